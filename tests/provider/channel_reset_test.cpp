// The reset of a channel when the provider starts: the configuration file, the report handler kept aside, the channel
// marked bad, its rate.
#include "harness.h"

using namespace harness;

namespace {

// One line, index 0, channel 4, unit 14.
class ChannelReset : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        driver.modules = {{2, 4, 1}};
        ASSERT_EQ(enumerate(), 0);
        new_chapter();
    }

    // What the reset's own thread did.
    View of_the_reset(const View& view) const {
        return view.on_thread(entries(driver_calls().only({"DornSessionDetach(CHAN<*>)"})).at(0).thread);
    }

    LONG open_result() {
        HDRVLINE opened = nullptr;
        return tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, kTspiVersion, tapi_event);
    }
};

// A report handler that was there before the reset, and what it was given.
int reports_passed_on = 0;
uint32_t unit_passed_on = 0;

void earlier_handler(DornLine*, DornReport*, uint32_t unit) {
    ++reports_passed_on;
    unit_passed_on = unit;
}

}  // namespace

TEST_F(ChannelReset, LoadsTheCallConfigurationAndAsksForTheChannelsCapabilities) {
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[4] mmbyte using kxcall<C:\\boards\\kxcall.cfg>",
        "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
        "DornLineCapCheck(CHAN4, 14)",
        "DornLineCapCheck(CHAN4, 41)",
        "DornLineCapCheck(CHAN4, 20)",
        "DornSessionDetach(CHAN4)",
    };
    EXPECT_TRUE(reads(of_the_reset(story()), expected));
}

TEST_F(ChannelReset, ReportsThatItIsDoneAtItsVeryEnd) {
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[8] ResetChannelThread",           "DornSessionDetach(CHAN4)",         "[9] ResetChannelThread",
        "EnterCriticalSection(RESET_LOCK)", "LeaveCriticalSection(RESET_LOCK)", "SetEvent(EVENT1)",
    };
    EXPECT_TRUE(
        reads(of_the_reset(all_of(TRACE | DRIVER | WINDOWS)
                               .all_levels()
                               .only({"<*>ResetChannelThread", "DornSession<*>", "<*>RESET_LOCK<*>", "SetEvent<*>"})),
              expected));
}

TEST_F(ChannelReset, ReadsTheConfigurationsPathFromTheRegistryAndClosesTheKey) {
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "RegOpenKeyExW(\"HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters\", 0x20019)",
        "RegQueryValueExW(\"HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters\", \"kxcall\")",
        "RegCloseKey(\"HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters\")",
    };
    EXPECT_TRUE(reads(of_the_reset(windows_calls().only({"Reg<*>"})), expected));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(ChannelReset, TracesTheRegistryHelper) {
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads_in_order(of_the_reset(traces().levels({4, 8, 9})),
                               {"[8] get_value_sz", "[9] get_value_sz(0)", "[4] mmbyte using kxcall<<*>"}));
}

TEST_F(ChannelReset, GoesAheadWithAnEmptyPathWhenTheValueIsMissing) {
    windows.registry.key(kHostParameters).values.clear();
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads_in_order(of_the_reset(all_of(TRACE | DRIVER).all_levels()),
                               {"[9] get_value_sz(1)", "[4] mmbyte using kxcall<>", "DornLineReset(CHAN4, \"\")"}));
    EXPECT_NE(open_line(0), nullptr);
}

TEST_F(ChannelReset, FailsWithoutTouchingTheBoardWhenTheKeyIsMissing) {
    windows.registry.remove(kHostParameters);
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[2] Exiting:LumLineResetReg unable to locate kxcall.cfg(-1)",
        "[1] Reset failure or no fw on chan 14!",
        "DornSessionDetach(CHAN4)",
    };
    EXPECT_TRUE(reads(of_the_reset(story()), expected));
    EXPECT_EQ(open_result(), failed(LINEERR_RESOURCEUNAVAIL));
}

TEST_F(ChannelReset, MarksTheChannelBadWhenTheDriverFails) {
    driver.channel(4).reset_result = -1;
    driver.channel(4).reset_status = 0xAB;
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[4] mmbyte using kxcall<C:\\boards\\kxcall.cfg>",
        "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
        "DornErrorMessage(CHAN4)",
        "[2] LumLineReset: error text of CHAN4: status AB.",
        "[1] Reset failure or no fw on chan 14!",
        "DornSessionDetach(CHAN4)",
    };
    EXPECT_TRUE(reads(of_the_reset(story()), expected));
    EXPECT_EQ(windows.registry.open_keys, 0);
    EXPECT_EQ(open_result(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), "[4] Open err, channel marked bad, val= -5"));
}

TEST_F(ChannelReset, ReadsABadChannelsNumberBack) {
    driver.modules = {{2, 0, 1}};
    driver.channel(0).reset_result = -1;
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(open_result(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), "[4] Open err, channel marked bad, val= -1"));
    EXPECT_EQ(device_caps(0).dwPermanentLineID, 3u << 16);
}

TEST_F(ChannelReset, GivesEveryChannelThatResets2400BitsASecond) {
    for (std::set<int> capabilities : {std::set<int>{}, {14}, {14, 41}, {14, 20, 41}}) {
        driver.channel(4).capabilities = capabilities;
        EXPECT_EQ(initialise(), 0);
        EXPECT_EQ(device_caps(0).dwMaxRate, 2400u);
        EXPECT_EQ(shut_down(), 0);
    }
}

TEST_F(ChannelReset, OnlyTracesThatAChannelDoesNotSupportFax) {
    driver.channel(4).capabilities.erase(20);
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads_in_order(
        of_the_reset(story()),
        {"DornLineCapCheck(CHAN4, 20)", "[4] (Channel 14) doesn't support fax!", "DornSessionDetach(CHAN4)"}));
    EXPECT_NE(open_line(0), nullptr);
}

TEST_F(ChannelReset, LeavesTheChannelUsableWhenThereIsNoMemoryForItsRecord) {
    windows.memory.fail_once_after("DornLineAttach(channel=4)", 3000, 6000);
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(of_the_reset(story()), {"[2] Couldn't allocate memory for pLine.", "DornSessionDetach(CHAN4)"}));
    EXPECT_EQ(device_caps(0).dwMaxRate, 14400u);
    EXPECT_NE(open_line(0), nullptr);
}

TEST_F(ChannelReset, KeepsTheReportHandlerAsideWhileItLasts) {
    driver.channel(4).handler = earlier_handler;
    DornIncomingCmdFunc during = nullptr;
    driver.on.DornLineReset = [&](DornLine* line, DornResetRecord* record) {
        during = driver.channel(4).handler;
        return ScriptedDriver::usual().DornLineReset(line, record);
    };
    EXPECT_EQ(initialise(), 0);
    EXPECT_NE(during, nullptr);
    EXPECT_NE(during, &earlier_handler);
    EXPECT_EQ(driver.channel(4).handler, &earlier_handler);
}

TEST_F(ChannelReset, PutsTheReportHandlerBackAfterAFailure) {
    driver.channel(4).handler = earlier_handler;
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(driver.channel(4).handler, &earlier_handler);
}

TEST_F(ChannelReset, SwallowsTheBoardsResetReportAndPassesOthersOn) {
    reports_passed_on = 0;
    driver.channel(4).handler = earlier_handler;
    DornReport swallowed = {}, passed_on = {};
    driver.on.DornLineReset = [&](DornLine* line, DornResetRecord* record) {
        swallowed = driver.report(4, 11, 8, 2);
        EXPECT_EQ(reports_passed_on, 0);
        passed_on = driver.report(4, 11, 8, 3);
        return ScriptedDriver::usual().DornLineReset(line, record);
    };
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(swallowed.dwClass, 0u);
    EXPECT_EQ(passed_on.dwClass, 11u);
    EXPECT_EQ(reports_passed_on, 1);
    EXPECT_EQ(unit_passed_on, 14u);
}

TEST_F(ChannelReset, SurvivesAReportWithNoHandlerToPassItTo) {
    driver.on.DornLineReset = [&](DornLine* line, DornResetRecord* record) {
        EXPECT_EQ(driver.report(4, 9, 8, 5).dwClass, 9u);
        return ScriptedDriver::usual().DornLineReset(line, record);
    };
    EXPECT_EQ(initialise(), 0);
}

TEST_F(ChannelReset, LeavesTheHandlerOfAUnitFrom1024OnInPlace) {
    for (uint32_t unit : {1023u, 1024u}) {
        driver.channel(4).unit = unit;
        driver.channel(4).handler = earlier_handler;
        bool in_place = false;
        driver.on.DornLineReset = [&](DornLine*, DornResetRecord*) {
            in_place = driver.channel(4).handler == &earlier_handler;
            return 0;
        };
        EXPECT_EQ(initialise(), 0);
        EXPECT_EQ(in_place, unit == 1024);
        EXPECT_EQ(shut_down(), 0);
    }
}

TEST_F(ChannelReset, DoesNotClearACallThatIsNotThere) {
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineTerminateCallISDN(<*>"));
}

TEST_F(ChannelReset, LetsNobodyWaitForAThreadThatThrows) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds(traces(), "[1] ResetChannelThread: Exception"));
    EXPECT_EQ(open_result(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), "[4] Open err, channel marked bad, val= -5"));
}

TEST_F(ChannelReset, LetsNobodyWaitForAThreadWithAFault) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) { return cause_access_violation(), 0; };
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds(traces(), "[1] ResetChannelThread: Exception"));
    EXPECT_EQ(open_result(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), "[4] Open err, channel marked bad, val= -5"));
}
