// The whole order of opening a line: traces of all levels, the board and Windows in one list.
#include "harness.h"
#include "whole_story.h"

using namespace harness;

namespace {

class OrderOfAnOpening : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
    }
    // Opens the line, which is expected to fail.
    testing::AssertionResult fails_after(DWORD error, const Lines& steps) {
        new_chapter();
        HDRVLINE opened = nullptr;
        const LONG result = tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, kTspiVersion, tapi_event);
        EXPECT_EQ(result, failed(error));
        return reads(on_this_thread(whole_story()),
                     joined({{kEntry}, steps, {text("[17] TSPI_lineOpen(%ld) Failed", failed(error))}}));
    }
    static Lines attached() { return {"DornLineAttach(channel=4)"}; }
    // The record has been made and its channel reset.
    static Lines reset(int result = 0) {
        const std::string of_the_record =
            "hdLine(0x<*>), htLine(0x0000000000000000), dwDeviceID(0x7), "
            "htCall(0x0000000000000000): ";
        const Lines complaint = {"DornErrorMessage(CHAN4)", "[2] LumLineReset: error text of CHAN4: status 0."};
        return joined(
            {attached(),
             {"[16] dwDeviceID(7): TSPI_lineGetDevCaps(TSPIVersion(0x20000),ExtVersion(0x0))",
              "[4] Query Caps for <Halvorsund Line #1>",
              "[4] (lpLineDevCaps->dwTotalSize >= lpLineDevCaps->dwNeededSize)", "[17] TSPI_lineGetDevCaps(0) Good",
              "[8] " + of_the_record + "LumLineResetReg", "DornLineUnitGet(CHAN4)",
              "DornLineIncomingCmdFuncAccess(CHAN4)", "[8] get_value_sz", "[9] get_value_sz(0)"},
             kReset,
             result == 0 ? Lines{} : complaint,
             {"DornLineIncomingCmdFuncAccess(CHAN4)",
              text("[9] %sLumLineResetReg(%d)", of_the_record.c_str(), result)}});
    }
    static Lines with_firmware() { return joined({reset(), {"DornLineCapCheck(CHAN4, 14)"}}); }
    static Lines told_of_the_lock(const std::string& lock) {
        return {"[4] TSPI_lineOpen() After CreateMutex() pLine->line_mutex= 0x" + lock + " ",
                "[4] pLine->line_mutex_CreatedInThreadId= 0x" + with_names(text("%016lX", GetCurrentThreadId())),
                "[4] Halvorsund Line #1"};
    }
    static Lines with_lock() {
        return joined({with_firmware(), {"CreateMutex -> MUTEX1"}, told_of_the_lock("MUTEX1")});
    }
    static Lines unusable() {
        return {"DornLineUnitGet(CHAN4)", "[1] Reset failure or no fw on LumChannel(14), dwDeviceID(0x7)",
                "DornSessionDetach(CHAN4)"};
    }

    static inline const std::string kEntry = "[16] dwDeviceID(7): TSPI_lineOpen(TSPIVersion(0x20000))";
    static inline const std::string kNoLock = "0000000000000000";
};

}  // namespace

TEST_F(OrderOfAnOpening, BuildsTheLineAndStartsItsThreadLast) {
    open_line(0);
    EXPECT_TRUE(reads(
        on_this_thread(whole_story()),
        joined({{kEntry},
                with_lock(),
                {"CreateEvent -> EVENT2", "CreateEvent -> EVENT3", "CreateEvent -> EVENT4", "DornLineUnitGet(CHAN4)",
                 "_beginthread(stack=16384)", "[17] " + kNoCall + "TSPI_lineOpen(0) Good"}})));
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(of_ring_det_thread(whole_story()),
                      {"[8] " + kNoCall + "ring_det_thread", "DornLineWaitForCallISDN(CHAN4, timeout=0)"}));
}

TEST_F(OrderOfAnOpening, TellsTheCallerItsHandleBeforeTheLineIsKnown) {
    HDRVLINE opened = nullptr;
    driver.on.DornLineUnitGet = [&](DornLine* line) {
        if (windows.objects.events_created == 4) note(opened ? "told" : "not told");
        return ScriptedDriver::usual().DornLineUnitGet(line);
    };
    EXPECT_EQ(tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, kTspiVersion, tapi_event), 0);
    EXPECT_TRUE(reads(all_of(NOTE), {"told"}));
    driver.on.DornLineUnitGet = ScriptedDriver::usual().DornLineUnitGet;
    windows.objects.longest_wait = 20;
    EXPECT_EQ(tsp.TSPI_lineClose(opened), 0);
}

TEST_F(OrderOfAnOpening, EndsWithAChannelThatDoesNotAttach) {
    driver.channel(4).attaches = false;
    EXPECT_TRUE(fails_after(LINEERR_RESOURCEUNAVAIL, joined({attached(),
                                                             {"[4] Open err, attach failure, chan 4",
                                                              "event log(category=1, 0xC000000D, \"\", \"4\")"}})));
}

TEST_F(OrderOfAnOpening, EndsWithoutMemory) {
    windows.memory.fails = [](const Allocation& one) { return one.size > 3400 && one.size < 8000; };
    const Lines detached = joined({attached(), {"[4] Open err, allocation", "DornSessionDetach(CHAN4)"}});
    EXPECT_TRUE(fails_after(LINEERR_NOMEM, joined({detached, {"event log(category=3, 0xC0000008, \"\")"}})));
    windows.event_log.takes_entries = false;
    EXPECT_TRUE(fails_after(LINEERR_NOMEM, joined({detached,
                                                   {"refused event log(category=3, 0xC0000008, \"\")",
                                                    "[4] tspi_lineopen called report_event with error"}})));
}

TEST_F(OrderOfAnOpening, EndsWithAResetThatFailsBeforeTheFirmwareIsLookedFor) {
    driver.channel(4).reset_result = -1;
    EXPECT_TRUE(fails_after(LINEERR_OPERATIONUNAVAIL, joined({reset(-1), unusable()})));
}

TEST_F(OrderOfAnOpening, EndsWithoutFirmware) {
    driver.channel(4).capabilities.erase(14);
    EXPECT_TRUE(fails_after(LINEERR_OPERATIONUNAVAIL, joined({with_firmware(), unusable()})));
}

TEST_F(OrderOfAnOpening, EndsWithoutALock) {
    windows.objects.mutexes[1] = {fails, 0x5AA};
    EXPECT_TRUE(fails_after(LINEERR_RESOURCEUNAVAIL, joined({with_firmware(),
                                                             {"CreateMutex failed"},
                                                             told_of_the_lock(kNoLock),
                                                             {"event log(category=3, 0xC0000006, \"\", \"5AA\")",
                                                              "DornSessionDetach(CHAN4)"}})));
}

TEST_F(OrderOfAnOpening, EndsWithALockThatExistsAlready) {
    windows.objects.mutexes[1] = {exists_already};
    EXPECT_TRUE(
        fails_after(LINEERR_RESOURCEUNAVAIL,
                    joined({with_firmware(),
                            {"CreateMutex -> MUTEX1", "[4] TSPI_lineOpen mutex already exists, reporting error"},
                            told_of_the_lock(kNoLock),
                            {"event log(category=3, 0xC0000006, \"\", \"B7\")", "DornSessionDetach(CHAN4)"}})));
}

TEST_F(OrderOfAnOpening, EndsWithAnEventThatExistsAlready) {
    windows.objects.events[4] = {exists_already};
    EXPECT_TRUE(fails_after(
        LINEERR_RESOURCEUNAVAIL,
        joined({with_lock(),
                {"CreateEvent -> EVENT2", "CreateEvent -> EVENT3", "CreateEvent -> EVENT4",
                 "[4] TSPI_lineOpen - erroralreadyexists #3", "event log(category=3, 0xC0000007, \"\", \"B7\")",
                 "CloseHandle(EVENT3)", "CloseHandle(EVENT2)", "CloseHandle(MUTEX1)", "DornSessionDetach(CHAN4)"}})));
}

TEST_F(OrderOfAnOpening, ThatFailedEndsWithAnExceptionOfItsDetach) {
    windows.objects.events[2] = {fails, 0x5AA};
    driver.on.DornSessionDetach = [](DornLine* line, DornAttachRecord*) -> int {
        driver.detach(line);
        throw 1;
    };
    EXPECT_TRUE(reports_an_exception("TSPI_lineOpen", [this] {
        HDRVLINE opened = nullptr;
        return tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, kTspiVersion, tapi_event);
    }));
    // The channel is detached once, and the exception of that is the one that counts.
    EXPECT_TRUE(reads(traces().levels({1}), {"[1] TSPI_lineOpen: Exception"}));
    EXPECT_EQ(count(driver_calls(), "DornSessionDetach(CHAN4)"), 1u);
    EXPECT_TRUE(reads(windows_calls().only({"CloseHandle(<*>"}), {"CloseHandle(MUTEX1)"}));
}
