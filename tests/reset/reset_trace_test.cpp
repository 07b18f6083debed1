// The functions that a reset and a ring count go through, as their entries and exits show them.
#include "harness.h"

using namespace harness;

namespace {

class ResetTrace : public ProviderFixture {
  protected:
    // A view of what another thread did, which made this driver call.
    static View of_who_called(const std::string& driver_call) {
        View view = all_of(TRACE | DRIVER).all_levels();
        return view.on_thread(entries(driver_calls().only({driver_call})).at(0).thread);
    }

    static constexpr const char* kNamed = "hdLine(0xLINE1), htLine(0xHTLINE1), dwDeviceID(0x7), htCall(0xHTCALL1): ";
};

}  // namespace

TEST_F(ResetTrace, OfAStartUpResetShowsItsFunctions) {
    driver.modules = {{2, 4, 1}};
    ASSERT_EQ(enumerate(), 0);
    ASSERT_EQ(initialise(), 0);
    ASSERT_TRUE(windows.all_threads_end(kPatience));
    EXPECT_TRUE(reads(of_who_called("DornSessionDetach(CHAN4)"),
                      {
                          "[8] <*>ResetChannelThread<*>",
                          "[8] hdLine(0x<*>), htLine(0x0000000000000000), dwDeviceID(0x0), "
                          "htCall(0x0000000000000000): LumLineResetReg",
                          "[8] get_value_sz",
                          "[9] get_value_sz(0)",
                          "[4] mmbyte using kxcall<C:\\boards\\kxcall.cfg>",
                          "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
                          "[9] hdLine(0x<*>), htLine(0x0000000000000000), dwDeviceID(0x0), "
                          "htCall(0x0000000000000000): LumLineResetReg(0)",
                          "DornLineCapCheck(CHAN4, 14)",
                          "DornLineCapCheck(CHAN4, 41)",
                          "DornLineCapCheck(CHAN4, 20)",
                          "DornSessionDetach(CHAN4)",
                          "[9] <*>ResetChannelThread<*>",
                      }));
}

TEST_F(ResetTrace, OfAResetWithACallNamesTheLine) {
    start_provider();
    open_waiting_line(0);
    take_call(0);
    new_chapter();
    tsp.TSPI_lineCloseCall(call(0));
    EXPECT_TRUE(reads_in_order(all_of(TRACE | DRIVER).all_levels().on_thread(GetCurrentThreadId()),
                               {std::string("[8] ") + kNamed + "LumLineResetReg", "DornLineTerminateCallISDN(CHAN4)",
                                "[8] get_value_sz", "[9] get_value_sz(0)", "[4] mmbyte using kxcall<*>",
                                "DornLineReset(CHAN4, <*>", std::string("[9] ") + kNamed + "LumLineResetReg(0)"}));
}

TEST_F(ResetTrace, OfARingCountThatIsNotFound) {
    windows.registry.key(kFaxDevices);
    start_provider();
    open_waiting_line(0);
    offer_call(0);
    EXPECT_TRUE(reads(traces().levels({4, 8, 9}).only({"<*>indNringsFromLineID<*>"}),
                      {"[8] <*>findNringsFromLineID<*>", "[4] ****** FindNringsFromLineID: did not find it ",
                       "[9] findNringsFromLineID(1)"}));
}

TEST_F(ResetTrace, OfARingCountThatIsFound) {
    windows.registry.set(kFaxDevices + L"\\A\\Provider", L"TAPI Permanent Lineid", DWORD{196612});
    windows.registry.set(kFaxDevices + L"\\A\\Provider", L"Rings", DWORD{2});
    start_provider();
    open_waiting_line(0);
    offer_call(0);
    EXPECT_TRUE(reads(traces().levels({4, 8, 9}).only({"<*>indNringsFromLineID<*>"}),
                      {"[8] <*>findNringsFromLineID<*>", "[9] findNringsFromLineID(0)"}));
}
