// Closing a call: whatever is going on with it is ended, the channel reset, and the line handed back to its thread.
#include <atomic>
#include <cstring>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class CloseCall : public LineFixture {
  protected:
    // Remembers where the record keeps TAPI's handle of an incoming call.
    void remember_the_place_of_the_handle() {
        tapi.on_event = [this](const LineEvent& event) {
            if (event.message == LINE_NEWCALL) handle_place = reinterpret_cast<HTAPICALL*>(event.parameters[1]);
        };
    }
    // A close that failed half-way leaves the call, and the line's thread parked, for ever, so that the line cannot be
    // closed any more. For the test to end, the call is taken away and the thread let go from outside.
    void free_the_line() {
        *handle_place = nullptr;
        for (const auto& [handle, name] : windows.objects.open)
            if (name == "RING_DET_WAIT") SetEvent(handle);
    }

    void expect_nothing_to_do(const std::string& of_the_line) {
        new_chapter();
        EXPECT_EQ(close_call(), 0);
        EXPECT_TRUE(reads(on_this_thread(story()), {
                                                       "[16] " + of_the_line + "TSPI_lineCloseCall",
                                                       "[4] Closing call on line 15",
                                                       "[17] " + of_the_line + "TSPI_lineCloseCall(0) Good",
                                                   }));
        EXPECT_TRUE(reads(on_this_thread(handshake()), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
    }

    HTAPICALL* handle_place = nullptr;
};

class CloseOfABusyLine : public CloseCall {
  protected:
    // The worker could be gone after the first alert of a close, before anybody looks whether it is busy. Here it hears
    // only the second one, which is the drop's.
    void place_call_that_misses_the_first_alert(
        const std::function<int(DornAlertRecord*)>& second = ScriptedDriver::usual().DornLineAlert) {
        place_call_that_lasts();
        first_alert_missed = false;
        driver.on.DornLineAlert = [this, second](DornAlertRecord* record) {
            return first_alert_missed.exchange(true) ? second(record) : 0;
        };
        new_chapter();
    }
    void place_call_with_a_deaf_worker() {
        place_call_that_lasts();
        driver.on.DornLineAlert = [](DornAlertRecord*) { return 0; };
        new_chapter();
    }

    std::atomic<bool> first_alert_missed = false;
};

// The end of every close, once the line is still.
const Lines kHandedBack = {
    "ReleaseMutex(LOCK)",      "DornLineReset(CHAN4, <*>", "WaitForSingleObject(LOCK, INFINITE)",
    "SetEvent(RING_DET_WAIT)", "SetEvent(RING_DET_WAIT)",  "ReleaseMutex(LOCK)",
};

}  // namespace

// ---- nothing to do --------------------------------------------------------------------------------------------------

TEST_F(CloseCall, LeavesALineWithoutACallAlone) {
    expect_nothing_to_do(kNoCall);
}

TEST_F(CloseCall, NeedsAValidHandle) {
    EXPECT_EQ(tsp.TSPI_lineCloseCall(nullptr), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(story(), {"[16] TSPI_lineCloseCall", "[4] TSPI_lineCloseCall - Invalid CallHandle",
                                "[17] TSPI_lineCloseCall(-2147483624) Failed"}));
}

TEST_F(CloseCall, LeavesTheWorkToAnotherThreadThatIsDoingIt) {
    take_call(0);
    driver.gate("DornLineReset").close();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());
    expect_nothing_to_do(kCall);
    driver.gate("DornLineReset").open();
    EXPECT_EQ(closing.result(), 0);
}

TEST_F(CloseCall, LeavesACallAloneThatCameWhileTheLineIsClosing) {
    // The line's thread is deaf, and the close waits for it as long as the gate is closed.
    std::atomic<bool> deaf = true;
    driver.on.DornLineAlert = [&](DornAlertRecord* record) {
        return deaf ? 0 : ScriptedDriver::usual().DornLineAlert(record);
    };
    Gate between_alerts;
    between_alerts.close();
    windows.objects.on_wait = [&](HANDLE, DWORD milliseconds) -> std::optional<DWORD> {
        const bool unheard = deaf;
        if (milliseconds == 1000) between_alerts.pass();
        if (unheard && (milliseconds == 1000 || milliseconds == 500)) return WAIT_TIMEOUT;
        return std::nullopt;
    };
    HDRVLINE closing_line = line(0);
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(between_alerts.holds_somebody());
    EXPECT_EQ(tsp.TSPI_lineMakeCall(0x21, closing_line, tapi.new_call_handle(), &placed, L"5", 0, nullptr),
              failed(LINEERR_RESOURCEUNAVAIL));
    new_chapter();
    EXPECT_EQ(tsp.TSPI_lineCloseCall(placed), 0);
    EXPECT_TRUE(reads(on_this_thread(story()), {
                                                   "[16] " + kCall + "TSPI_lineCloseCall",
                                                   "[4] Closing call on line 15",
                                                   "[17] " + kCall + "TSPI_lineCloseCall(0) Good",
                                               }));
    deaf = false;
    between_alerts.open();
    EXPECT_EQ(closing.result(), 0);
}

// ---- no worker busy -------------------------------------------------------------------------------------------------

TEST_F(CloseCall, EndsAnAnsweredCallAndHandsTheLineBack) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(story()), joined({{
                                                           "[16] " + kCall + "TSPI_lineCloseCall",
                                                           "[4] Closing call on line 15",
                                                           "DornLineAlert(unit=14)",
                                                       },
                                                       kCallEnded,
                                                       {"DornLineAlert(unit=14)", "DornLineTerminateCallISDN(CHAN4)"},
                                                       kReset,
                                                       {"[17] " + kNoCall + "TSPI_lineCloseCall(0) Good"}})));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseCall, ResetsTheChannelWithoutTheLockAndSignalsTwice) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(handshake().without({"LINE_<*>", "DornLineTerminate<*>"})),
                      joined({{
                                  "WaitForSingleObject(LOCK, INFINITE)",
                                  "DornLineAlert(unit=14)",
                                  "ReleaseMutex(LOCK)",
                                  "WaitForSingleObject(LOCK, INFINITE)",
                                  "WaitForSingleObject(LOCK, INFINITE)",
                                  "ReleaseMutex(LOCK)",
                                  "DornLineAlert(unit=14)",
                              },
                              kHandedBack})));
}

TEST_F(CloseCall, TracesEveryFunction) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads_in_order(on_this_thread(traces().levels({8, 9, 16, 17})),
                               {
                                   "[16] " + kCall + "TSPI_lineCloseCall",
                                   "[8] " + kCall + "IsValidLine",
                                   "[9] " + kCall + "IsValidLine(1)",
                                   "[8] " + kCall + "lock_line",
                                   "[9] " + kCall + "lock_line",
                                   "[8] " + kCall + "unlock_line",
                                   "[9] " + kCall + "unlock_line",
                                   "[8] " + kCall + "lock_line",
                                   "[9] " + kCall + "lock_line",
                                   "[8] " + kCall + "SetCallState",
                                   "[9] " + kCall + "SetCallState",
                                   "[8] " + kCall + "send_linedevstate",
                                   "[9] " + kCall + "send_linedevstate",
                                   "[8] " + kCall + "send_addrstate",
                                   "[9] " + kCall + "send_addrstate",
                                   "[8] " + kCall + "unlock_line",
                                   "[9] " + kCall + "unlock_line",
                                   "[8] <*>LumLineResetReg",
                                   "[9] <*>LumLineResetReg(0)",
                                   "[8] " + kCall + "lock_line",
                                   "[9] " + kCall + "lock_line",
                                   "[8] <*>UpdateSharedMemory",
                                   "[9] <*>UpdateSharedMemory",
                                   "[8] " + kNoCall + "unlock_line",
                                   "[9] " + kNoCall + "unlock_line",
                                   "[17] " + kNoCall + "TSPI_lineCloseCall(0) Good",
                               }));
}

TEST_F(CloseCall, SendsNothingForACallThatWasDropped) {
    take_call(0);
    EXPECT_EQ(drop(), 0x21);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(events(), {}));
    EXPECT_TRUE(reads(on_this_thread(driver_calls()), {
                                                          "DornLineAlert(unit=14)",
                                                          "DornLineAlert(unit=14)",
                                                          "DornLineTerminateCallISDN(CHAN4)",
                                                          "DornLineReset(CHAN4, <*>",
                                                      }));
}

TEST_F(CloseCall, InterruptsTheWaitForTheNextRingOfAnOfferedCall) {
    offer_call_and_wait();
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(comes("[4] Ring_det received alert"));
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(on_this_thread(events()), {
                                                    "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                                    "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                    "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                }));
}

TEST_F(CloseCall, EndsAnOutgoingCallThatIsConnected) {
    place_call(0);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(driver_calls()), {
                                                          "DornLineAlert(unit=14)",
                                                          "DornLineAlert(unit=14)",
                                                          "DornLineTerminateCallISDN(CHAN4)",
                                                          "DornLineReset(CHAN4, <*>",
                                                      }));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseCall, HandsTheLineBackEvenIfTheResetFails) {
    take_call(0);
    new_chapter();
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(holds(traces(), "[17] " + kNoCall + "TSPI_lineCloseCall(0) Good"));
}

TEST_F(CloseCall, LeavesTheLineReadyForTheNextCall) {
    take_call(0);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    take_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, CONNECTED, 0x1, 0x20)"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    place_call(0);
}

TEST_F(CloseCall, ClosesTheFileThatIsOpen) {
    take_call(0);
    static DornTiff file;
    name_pointer(&file, "FILE");
    driver.on.DornTiffOpen = [](DornTiffRecord*) { return &file; };
    driver.on.DornTiffClose = [](DornTiffRecord*) { return 0; };
    uint32_t block[272] = {1};  // the command to open a file
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x31, line(0), 0, nullptr, block, sizeof(block)), 0x31);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(driver_calls()), {
                                                          "DornTiffClose(FILE)",
                                                          "DornLineAlert(unit=14)",
                                                          "DornLineAlert(unit=14)",
                                                          "DornLineTerminateCallISDN(CHAN4)",
                                                          "DornLineReset(CHAN4, <*>",
                                                      }));
}

TEST_F(CloseCall, PublishesAnEmptyFaxStatus) {
    take_call(0);
    SharedRecord& record = shared_record(0);
    std::memset(&record, 'x', sizeof(record));
    EXPECT_EQ(close_call(), 0);
    EXPECT_EQ(record.szRemoteId[0], '\0');
    EXPECT_EQ(record.wszCalledId[0], L'\0');
    EXPECT_EQ(record.wszCallerId[0], L'\0');
    EXPECT_EQ(record.dwPageCount, 0u);
}

// ---- a worker busy --------------------------------------------------------------------------------------------------

TEST_F(CloseOfABusyLine, DropsTheCallOnItsOwnThread) {
    place_call_that_misses_the_first_alert();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(story()), joined({{
                                                           "[16] " + kCall + "TSPI_lineCloseCall",
                                                           "[4] Closing call on line 15",
                                                           "DornLineAlert(unit=14)",
                                                           "DornLineAlert(unit=14)",
                                                           kDidYouKnow,
                                                           "DornLineTerminateCallISDN(CHAN4)",
                                                       },
                                                       kReset,
                                                       {"[17] " + kNoCall + "TSPI_lineCloseCall(0) Good"}})));
    EXPECT_TRUE(reads_in_order(on_this_thread(traces().levels({8, 9})),
                               {"[8] " + kCall + "drop_call_thread", "[9] " + kCall + "drop_call_thread"}));
    EXPECT_TRUE(reads(completions(), {}));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseOfABusyLine, WaitsWithoutTheLock) {
    place_call_that_misses_the_first_alert();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(handshake()), joined({{
                                                               "WaitForSingleObject(LOCK, INFINITE)",
                                                               "DornLineAlert(unit=14)",
                                                               "ReleaseMutex(LOCK)",
                                                               "WaitForSingleObject(LOCK, INFINITE)",
                                                               "ReleaseMutex(LOCK)",
                                                               "DornLineAlert(unit=14)",
                                                               "WaitForSingleObject(WORKER_IDLE, INFINITE)",
                                                               "WaitForSingleObject(LOCK, INFINITE)",
                                                               "DornLineTerminateCallISDN(CHAN4)",
                                                               // a call state that was sent already
                                                               "WaitForSingleObject(LOCK, INFINITE)",
                                                               "ReleaseMutex(LOCK)",
                                                               "SetEvent(DROP_DONE)",
                                                               "ReleaseMutex(LOCK)",
                                                               "WaitForSingleObject(LOCK, INFINITE)",
                                                           },
                                                           kHandedBack})));
}

TEST_F(CloseOfABusyLine, SendsIdleWithoutTheNumberOfCalls) {
    // The worker gets through to the far end before the alert reaches it.
    place_call_that_misses_the_first_alert([](DornAlertRecord*) { return driver.release(4), 0; });
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(reads(on_this_thread(events()), {"LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"}));
}

TEST_F(CloseOfABusyLine, WaitsForADropThatIsInProgress) {
    place_call_with_a_deaf_worker();
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)"));
    EXPECT_TRUE(comes("WaitForSingleObject(DROP_DONE, INFINITE)"));
    new_chapter();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes("WaitForSingleObject(DROP_DONE, INFINITE)"));
    driver.release(4);
    EXPECT_EQ(dropping.result(), 0x21);
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads(handshake().on_thread(closing.thread()).without({"LINE_<*>"}),
                      joined({{
                                  "WaitForSingleObject(LOCK, INFINITE)",
                                  "DornLineAlert(unit=14)",
                                  "ReleaseMutex(LOCK)",
                                  "WaitForSingleObject(LOCK, INFINITE)",
                                  "ReleaseMutex(LOCK)",
                                  "WaitForSingleObject(DROP_DONE, INFINITE)",
                                  "WaitForSingleObject(LOCK, INFINITE)",
                              },
                              kHandedBack})));
    EXPECT_TRUE(holds_no(traces().on_thread(closing.thread()), kDidYouKnow));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseOfABusyLine, WaitsUntilNoOperationIsPending) {
    place_call_with_a_deaf_worker();
    // The worker's event seems to be signalled all the same.
    std::atomic<bool> woken = false;
    windows.objects.on_wait = [&](HANDLE object, DWORD) -> std::optional<DWORD> {
        if (object_name(object) != "WORKER_IDLE" || woken.exchange(true)) return std::nullopt;
        return WAIT_OBJECT_0;
    };
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)", 2));
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineReset(<*>"));
    driver.release(4);
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads_in_order(all_of(TRACE | WINDOWS).on_thread(closing.thread()),
                               {
                                   "SetEvent(DROP_DONE)",
                                   "WaitForSingleObject(LOCK, INFINITE)",
                                   "ResetEvent(WORKER_IDLE)",
                                   "ReleaseMutex(LOCK)",
                                   "WaitForSingleObject(WORKER_IDLE, INFINITE)",
                                   kDidYouKnow,
                                   "WaitForSingleObject(LOCK, INFINITE)",
                                   "ReleaseMutex(LOCK)",
                                   "[4] mmbyte using kxcall<<*>",
                               }));
}

TEST_F(CloseOfABusyLine, ReportsThatThereIsNoMemoryAndNeverClosesTheCall) {
    remember_the_place_of_the_handle();
    take_call(0);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    place_call_with_a_deaf_worker();
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    EXPECT_EQ(close_call(), failed(LINEERR_NOMEM));
    windows.memory.fails = nullptr;
    EXPECT_TRUE(reads(
        on_this_thread(
            all_of(WINDOWS | EVENT_LOG | DRIVER | EVENT).only({"<*>LOCK<*>", "event log(<*>", "Dorn<*>", "LINE_<*>"})),
        {
            "WaitForSingleObject(LOCK, INFINITE)",
            "DornLineAlert(unit=14)",
            "ReleaseMutex(LOCK)",
            "WaitForSingleObject(LOCK, INFINITE)",
            "ReleaseMutex(LOCK)",
            "event log(category=3, 0xC0000008, \"\")",
        }));
    EXPECT_TRUE(holds(traces(), "[17] <*>TSPI_lineCloseCall(-2147483580) Failed"));
    EXPECT_TRUE(holds_no(traces(), "<*>called report_event with error"));
    // As far as the provider knows another thread is closing the call.
    driver.release(4);
    worker_ends();
    EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
    expect_nothing_to_do(of_line("HTCALL2"));
    free_the_line();
}

TEST_F(CloseOfABusyLine, SaysWhenTheLackOfMemoryCannotBeReported) {
    remember_the_place_of_the_handle();
    take_call(0);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    place_call_with_a_deaf_worker();
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    windows.event_log.source_opens = false;
    EXPECT_EQ(close_call(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(holds(traces(), "[4] tspi_lineclosecall called report_event with error"));
    driver.release(4);
    worker_ends();
    free_the_line();
}

TEST_F(CloseOfABusyLine, ThatFoundNoMemoryIsTriedAgainWhenTheLineIsClosed) {
    place_call_with_a_deaf_worker();
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    EXPECT_EQ(close_call(), failed(LINEERR_NOMEM));
    windows.memory.fails = nullptr;
    driver.release(4);
    worker_ends();
    driver.on.DornLineAlert = ScriptedDriver::usual().DornLineAlert;
    new_chapter();
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineClose - Unlock #01"));
    EXPECT_TRUE(holds_no(traces(), "[4] TSPI_lineClose - Unlock #02"));
    EXPECT_TRUE(holds(driver_calls(), "DornLineReset(CHAN4, <*>"));
    EXPECT_EQ(driver.attached(), 0u);
}

// ---- exceptions -----------------------------------------------------------------------------------------------------

TEST_F(CloseCall, ThatBrokeOffInTheDriverIsTriedAgainWhenTheLineIsClosed) {
    for (auto raise : {+[] { throw 1; }, cause_access_violation}) {
        take_call(0);
        driver.on.DornLineReset = [=](DornLine*, DornResetRecord*) { return raise(), 0; };
        EXPECT_EQ(close_call(), failed(LINEERR_OPERATIONFAILED));
        driver.on.DornLineReset = ScriptedDriver::usual().DornLineReset;
        new_chapter();
        EXPECT_EQ(close_line(0), 0);
        EXPECT_TRUE(holds(traces(), "[4] TSPI_lineClose - Unlock #01"));
        EXPECT_TRUE(holds_no(traces(), "[4] TSPI_lineClose - Unlock #02"));
        EXPECT_EQ(driver.attached(), 0u);
        open_named_line();
    }
}

TEST_F(CloseCall, CatchesAnExceptionUnderTheLockAndGivesItBack) {
    take_call(0);
    new_chapter();
    std::atomic<bool> throwing = true;
    driver.on.DornLineUnitGet = [&](DornLine* line) -> uint32_t {
        if (throwing) throw 1;
        return ScriptedDriver::usual().DornLineUnitGet(line);
    };
    EXPECT_TRUE(reports_an_exception("TSPI_lineCloseCall", [this] { return close_call(); }));
    EXPECT_TRUE(lock_is_given_back());
    throwing = false;
    Call again([this] { return close_call(); });
    EXPECT_EQ(again.result(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseCall, CatchesAnExceptionOfTheReset) {
    remember_the_place_of_the_handle();
    take_call(0);
    new_chapter();
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineCloseCall", [this] { return close_call(); }));
    EXPECT_TRUE(lock_is_given_back());
    driver.on.DornLineReset = ScriptedDriver::usual().DornLineReset;
    free_the_line();
}
