// Opening a line: the channel is attached and reset, the record built, and the line's thread started.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class LineOpen : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
    }

    LONG open_device(DWORD device) {
        return tsp.TSPI_lineOpen(device, tapi.line_handle(0), &opened, kTspiVersion, tapi_event);
    }

    HDRVLINE opened = nullptr;
};

// The thread's number as "0x%p" shows it.
std::string this_thread_as_pointer() {
    return with_names(text("%016lX", GetCurrentThreadId()));
}

}  // namespace

TEST_F(LineOpen, AttachesAndResetsTheChannelAndBuildsTheLine) {
    open_line(0);
    EXPECT_TRUE(reads(on_this_thread(story()),
                      {
                          "[16] dwDeviceID(7): TSPI_lineOpen(TSPIVersion(0x20000))",
                          "DornLineAttach(channel=4)",
                          "[16] dwDeviceID(7): TSPI_lineGetDevCaps(TSPIVersion(0x20000),ExtVersion(0x0))",
                          "[4] Query Caps for <Halvorsund Line #1>",
                          "[4] (lpLineDevCaps->dwTotalSize >= lpLineDevCaps->dwNeededSize)",
                          "[17] TSPI_lineGetDevCaps(0) Good",
                          "[4] mmbyte using kxcall<C:\\boards\\kxcall.cfg>",
                          "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
                          "DornLineCapCheck(CHAN4, 14)",
                          "[4] TSPI_lineOpen() After CreateMutex() pLine->line_mutex= 0xMUTEX1 ",
                          "[4] pLine->line_mutex_CreatedInThreadId= 0x" + this_thread_as_pointer(),
                          "[4] Halvorsund Line #1",
                          "[17] " + kNoCall + "TSPI_lineOpen(0) Good",
                      }));
}

TEST_F(LineOpen, StartsAThreadThatWaitsForCallsWithoutATimeOut) {
    open_line(0);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(<*>"));
    EXPECT_TRUE(reads(windows_calls().only({"_beginthread<*>"}), {"_beginthread(stack=16384)"}));
    EXPECT_TRUE(reads(all_of(TRACE | DRIVER)
                          .levels({1, 2, 4, 8, 9})
                          .without({"<*>IsValidLine<*>"})
                          .only({"[8] <*>ring_det_thread", "DornLineWaitForCallISDN(<*>"}),
                      {"[8] " + kNoCall + "ring_det_thread", "DornLineWaitForCallISDN(CHAN4, timeout=0)"}));
}

TEST_F(LineOpen, CreatesTheLockThenTheEventsAfterTheReset) {
    open_line(0);
    EXPECT_TRUE(reads(all_of(DRIVER | WINDOWS).only({"Create<*>", "DornLineReset(<*>", "_beginthread(<*>"}),
                      {
                          "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
                          "CreateMutex -> MUTEX1",
                          "CreateEvent -> EVENT2",
                          "CreateEvent -> EVENT3",
                          "CreateEvent -> EVENT4",
                          "_beginthread(stack=16384)",
                      }));
}

TEST_F(LineOpen, GivesEveryLineItsOwnChannelAndRecord) {
    open_waiting_line(0);
    open_waiting_line(1);
    EXPECT_NE(line(0), line(1));
    close_line(1);
    new_chapter();
    open_line(1);
    EXPECT_TRUE(reads_in_order(story(), {
                                            "[16] dwDeviceID(8): TSPI_lineOpen(TSPIVersion(0x20000))",
                                            "DornLineAttach(channel=5)",
                                            "[4] Query Caps for <Halvorsund Line #2>",
                                            "DornLineReset(CHAN5, <*>",
                                            "DornLineCapCheck(CHAN5, 14)",
                                            "[4] Halvorsund Line #2",
                                            "[17] hdLine(0xLINE2), htLine(0xHTLINE2), dwDeviceID(0x8), "
                                            "htCall(0x0000000000000000): TSPI_lineOpen(0) Good",
                                        }));
}

TEST_F(LineOpen, AsksForTheCapabilitiesInTheVersionThatItWasOpenedWith) {
    EXPECT_EQ(tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, 0x12345, tapi_event), 0);
    EXPECT_TRUE(holds(traces(), "[16] dwDeviceID(7): TSPI_lineOpen(TSPIVersion(0x12345))"));
    EXPECT_TRUE(holds(traces(), "[16] dwDeviceID(7): TSPI_lineGetDevCaps(TSPIVersion(0x12345),ExtVersion(0x0))"));
    EXPECT_EQ(tsp.TSPI_lineClose(opened), 0);
}

TEST_F(LineOpen, DoesNotClearACallWhenItResetsTheChannel) {
    open_line(0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineTerminateCallISDN(<*>"));
}

TEST_F(LineOpen, OpensTheLineAgainAfterItWasClosed) {
    open_waiting_line(0);
    EXPECT_EQ(close_line(0), 0);
    open_waiting_line(0);
    EXPECT_EQ(driver.attached(), 1u);
}

// ---- the rate -------------------------------------------------------------------------------------------------------

class RateOfALine : public ProviderFixture, public testing::WithParamInterface<unsigned> {};

TEST_P(RateOfALine, IsWhatItsOwnResetHasFound) {
    const unsigned other = 1 - GetParam();
    driver.channel(4 + other).reset_result = -1;  // leaves the rate of the start
    start_provider();
    EXPECT_EQ(device_caps(other).dwMaxRate, 14400u);
    open_waiting_line(GetParam());
    struct {
        LINECALLINFO fixed;
        uint8_t texts[256];
    } info = {};
    info.fixed.dwTotalSize = sizeof(info);
    EXPECT_EQ(tsp.TSPI_lineGetCallInfo(call(GetParam()), &info.fixed), 0);
    EXPECT_EQ(info.fixed.dwRate, 2400u);
}

INSTANTIATE_TEST_SUITE_P(EachLine, RateOfALine, testing::Values(0u, 1u));

// ---- the range of device IDs ----------------------------------------------------------------------------------------

namespace {

// The two lines of a channel that is marked bad, which every index outside the tables seems to be.
Lines channel_marked_bad(int index, int device) {
    return {
        text("[4] Open err, channel previously marked bad, chan= %d  dwDeviceID= %d  gdwLineDeviceIDBase= 7", index,
             device),
        "[4] Open err, channel marked bad, val= -<*>",
        "[17] TSPI_lineOpen(-2147483573) Failed",
    };
}

Lines invalid_device(int index, int device) {
    return {text("[1] Invalid device: dwDeviceId(%d), index(%d)", device, index),
            "[17] TSPI_lineOpen(-2147483612) Failed"};
}

}  // namespace

TEST_F(LineOpen, ComplainsOfADeviceBelowTheBaseAndGoesOnToItsChannel) {
    EXPECT_EQ(open_device(kDeviceIdBase - 1), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(story(), joined({{"[16] dwDeviceID(6): TSPI_lineOpen(TSPIVersion(0x20000))"},
                                       invalid_device(-1, 6),
                                       channel_marked_bad(-1, 6)})));
}

TEST_F(LineOpen, ComplainsOfTheIndex4049AndGoesOnToItsChannel) {
    EXPECT_EQ(open_device(kDeviceIdBase + 4049), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(story(), joined({{"[16] dwDeviceID(4056): TSPI_lineOpen(TSPIVersion(0x20000))"},
                                       invalid_device(4049, 4056),
                                       channel_marked_bad(4049, 4056)})));
}

TEST_F(LineOpen, TakesTheIndex4048ForALineWhoseChannelIsBad) {
    EXPECT_EQ(open_device(kDeviceIdBase + 4048), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(story(), joined({{"[16] dwDeviceID(4055): TSPI_lineOpen(TSPIVersion(0x20000))"},
                                       channel_marked_bad(4048, 4055)})));
}
