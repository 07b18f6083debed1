// The fixture of the placeholder's tests: a reception that fails before its first page, and the close of its file.
#pragma once

#include <string>

#include "fax_fixture.h"
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

  private:
    bool has_call_ = false;
};
