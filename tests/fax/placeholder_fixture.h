// The fixture of the placeholder's tests: a reception that fails before its first page, and the close of its file.
#pragma once

#include <string>

#include "fax_fixture.h"
#include "fax_story.h"
#include "tiff_file.h"

class PlaceholderFixture : public FaxFixture {
  protected:
    // A call with this routing text comes in, its reception fails, and the file is closed as a received one. The
    // journal begins with the close.
    void fail_before_the_first_page(const std::string& routing, uint32_t status = KX_STATUS_ERROR_HANGUP) {
        if (!has_call_) take_call(0, {"", "", "", "", routing});
        has_call_ = true;
        open_file();
        harness::driver.on.DornFaxBeginReceive = fax_step(-1, status, 0);
        receive_fax();
        harness::new_chapter();
        EXPECT_EQ(close_file(FAXRECEIVE), 0u);
    }

    // The rebuilding with the routing text "TO: ME", step by step.
    harness::Lines steps() const;
    // ... up to this call.
    harness::Lines steps_up_to(const std::string& call) const;

    // The close of a file whose directory was not found, with these steps of the rebuilding and its result.
    void expect_rebuilding(const harness::Lines& steps, int result,
                           const harness::Lines& close = {"DornTiffClose(TIFF3)"}) const;

  private:
    bool has_call_ = false;
};
