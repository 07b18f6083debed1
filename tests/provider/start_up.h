// The fixture of the start-up tests: lines are enumerated, TSPI_providerInit is still to come.
#pragma once

#include "harness.h"

namespace harness {

class StartUp : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        ASSERT_EQ(enumerate(), 0);
        new_chapter();
    }

    // What TSPI_providerInit's own thread did.
    View own(const View& view) const { return view.on_thread(GetCurrentThreadId()); }
};

constexpr char kStartUpEntry[] =
    "[14] TSPI_providerInit: dwTSPIVersion(0x20000), dwPermanentProviderID(3), dwLineDeviceIDBase(7), "
    "dwPhoneDeviceIDBase(0), dwNumLines(2), dwNumPhones(0), lpfnCompletionProc(COMPLETION_PROC), "
    "lpdwTSPIOptions(OPTIONS)";
constexpr char kFaxServiceFound[] = "[4] OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE";
constexpr char kResetStarted[] = "[4] TSPI_providerInit: _beginthread ResetChannelThread started";

}  // namespace harness
