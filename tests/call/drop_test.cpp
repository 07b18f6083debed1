// Dropping a call: at once when no worker is busy, otherwise by a thread that takes the line from the worker.
#include <deque>
#include <tuple>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class Drop : public LineFixture {
  protected:
    // Refused, without a change to anything.
    void expect_refusal() {
        EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
        EXPECT_TRUE(
            reads(on_this_thread(story()), {"[16] <*>TSPI_lineDrop", "[17] <*>TSPI_lineDrop(-2147483620) Failed"}));
        EXPECT_TRUE(reads(on_this_thread(handshake()), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
    }

    DornTiff file = {};
};

// The outgoing call is in the driver's hands, its worker busy.
class DropOfABusyLine : public Drop {
  protected:
    void SetUp() override {
        Drop::SetUp();
        place_call_that_lasts();
        new_chapter();
    }
};

// Commands of the fax service.
constexpr uint32_t kTiffOpen = 1, kFaxReceive = 4;

}  // namespace

// ---- no worker busy -------------------------------------------------------------------------------------------------

TEST_F(Drop, EndsAConnectedCallAtOnceWithoutTheDriver) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(reads(story(), joined({{"[16] " + kCall + "TSPI_lineDrop"},
                                       kCallEnded,
                                       {
                                           "[4] TSPI_lineDrop() Async completion requestID= 0x21: result= 0x0",
                                           "completion(request=0x21, result=0x0)",
                                           "[17] " + kCall + "TSPI_lineDrop(33) Good",
                                       }})));
    EXPECT_TRUE(reads(signals(), {
                                     "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                     "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                     "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                     "completion(request=0x21, result=0x0)",
                                 }));
}

TEST_F(Drop, TracesEveryFunction) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    Lines functions = {"[16] " + kCall + "TSPI_lineDrop", "[8] " + kCall + "IsValidLine",
                       "[9] " + kCall + "IsValidLine(1)"};
    for (const char* step :
         {"[8] lock_line", "[9] lock_line", "[8] SetCallState", "[8] lock_line", "[9] lock_line", "[8] unlock_line",
          "[9] unlock_line", "[9] SetCallState", "[8] send_linedevstate", "[9] send_linedevstate", "[8] send_addrstate",
          "[9] send_addrstate", "[8] unlock_line", "[9] unlock_line", "[17] TSPI_lineDrop(33) Good"}) {
        std::string line = step;
        functions.push_back(line.insert(line.find("] ") + 2, kCall));
    }
    EXPECT_TRUE(reads(traces().levels({8, 9, 16, 17}), functions));
}

TEST_F(Drop, CompletesUnderTheLock) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(reads(handshake().without({"LINE_<*>"}), {
                                                             "WaitForSingleObject(LOCK, INFINITE)",
                                                             "WaitForSingleObject(LOCK, INFINITE)",
                                                             "ReleaseMutex(LOCK)",
                                                             "completion(request=0x21, result=0x0)",
                                                             "ReleaseMutex(LOCK)",
                                                         }));
}

TEST_F(Drop, EndsAnOfferedCall) {
    offer_call_and_wait();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"));
}

TEST_F(Drop, OfAnIdleCallOnlyCompletes) {
    take_call(0);
    EXPECT_EQ(drop(), 0x21);
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(reads(story(), {
                                   "[16] " + kCall + "TSPI_lineDrop",
                                   "[4] TSPI_lineDrop() Async completion requestID= 0x21: result= 0x0",
                                   "completion(request=0x21, result=0x0)",
                                   "[17] " + kCall + "TSPI_lineDrop(33) Good",
                               }));
}

TEST_F(Drop, NeedsAValidHandle) {
    EXPECT_EQ(tsp.TSPI_lineDrop(0x21, nullptr, nullptr, 0), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(story(), {"[16] TSPI_lineDrop", "[4] TSPI_lineDrop - Invalid CallHandle",
                                "[17] TSPI_lineDrop(-2147483624) Failed"}));
}

TEST_F(Drop, NeedsACall) {
    expect_refusal();
}

TEST_F(Drop, IsRefusedWhileTheCallIsBeingClosed) {
    take_call(0);
    driver.gate("DornLineReset").close();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());
    new_chapter();
    expect_refusal();
    driver.gate("DornLineReset").open();
    EXPECT_EQ(closing.result(), 0);
}

TEST_F(Drop, IsRefusedDuringAFaxTransfer) {
    take_call(0);
    driver.on.DornTiffOpen = [this](DornTiffRecord*) { return &file; };
    driver.on.DornTiffClose = [](DornTiffRecord*) { return 0; };
    driver.gate("DornFaxBeginReceive").close();
    for (uint32_t command : {kTiffOpen, kFaxReceive}) {
        uint32_t block[272] = {command};
        EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x31, line(0), 0, nullptr, block, sizeof(block)), 0x31);
    }
    EXPECT_TRUE(driver.gate("DornFaxBeginReceive").holds_somebody());
    new_chapter();
    expect_refusal();
    driver.gate("DornFaxBeginReceive").open();
    EXPECT_TRUE(wait_until([] { return windows.threads.running == 1; }));
    EXPECT_EQ(drop(), 0x21);
    EXPECT_EQ(close_call(), 0);
}

TEST_F(Drop, CatchesAnExceptionOfTheCompletionAndGivesTheLockBack) {
    take_call(0);
    new_chapter();
    tapi.on_completion = [](DRV_REQUESTID, LONG) { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineDrop", [this] { return drop(); }));
    EXPECT_TRUE(lock_is_given_back());
}

// ---- a worker busy --------------------------------------------------------------------------------------------------

TEST_F(DropOfABusyLine, IsOverWhenItReturns) {
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(reads(on_this_thread(story()),
                      {"[16] " + kCall + "TSPI_lineDrop", "[17] " + kCall + "TSPI_lineDrop(33) Good"}));
    EXPECT_TRUE(reads(of_drop_call_thread(story()),
                      joined({{
                                  "DornLineAlert(unit=14)",
                                  kDidYouKnow,
                                  "DornLineTerminateCallISDN(CHAN4)",
                                  "[4] drop_call_thread() Async completion requestID= 0x21: result= 0x0",
                                  "completion(request=0x21, result=0x0)",
                              },
                              kNumCalls})));
    EXPECT_TRUE(reads(completions(), {"completion(request=0x21, result=0x0)"}));
    EXPECT_TRUE(reads(events().only({"LINE_CALLSTATE(<*>"}),
                      {text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%X, 0x20)", LINEDISCONNECTMODE_UNAVAIL),
                       "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"}));
}

TEST_F(DropOfABusyLine, WaitsForTheWorkerAndClearsTheCallUnderTheLock) {
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(comes("[9] " + kCall + "drop_call_thread"));
    EXPECT_TRUE(reads(of_drop_call_thread(handshake()), {
                                                            "DornLineAlert(unit=14)",
                                                            "WaitForSingleObject(WORKER_IDLE, INFINITE)",
                                                            "WaitForSingleObject(LOCK, INFINITE)",
                                                            "DornLineTerminateCallISDN(CHAN4)",
                                                            "WaitForSingleObject(LOCK, INFINITE)",
                                                            "ReleaseMutex(LOCK)",
                                                            "completion(request=0x21, result=0x0)",
                                                            "SetEvent(WORKER_IDLE)",
                                                            "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                            "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                            "SetEvent(DROP_DONE)",
                                                            "ReleaseMutex(LOCK)",
                                                        }));
    EXPECT_TRUE(reads(on_this_thread(handshake()), {
                                                       "WaitForSingleObject(LOCK, INFINITE)",
                                                       "ResetEvent(DROP_DONE)",
                                                       "ReleaseMutex(LOCK)",
                                                       "WaitForSingleObject(DROP_DONE, INFINITE)",
                                                   }));
    EXPECT_TRUE(reads_in_order(on_this_thread(windows_calls()),
                               {"ResetEvent(DROP_DONE)", "_beginthread(stack=16384)", "ReleaseMutex(LOCK)",
                                "WaitForSingleObject(DROP_DONE, INFINITE)"}));
}

TEST_F(DropOfABusyLine, TracesTheThread) {
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(comes("[9] " + kCall + "drop_call_thread"));
    Lines functions;
    for (const char* step : {"[8] drop_call_thread", "[8] lock_line", "[9] lock_line", "[8] SetCallState",
                             "[8] lock_line", "[9] lock_line", "[8] unlock_line", "[9] unlock_line", "[9] SetCallState",
                             "[8] send_linedevstate", "[9] send_linedevstate", "[8] send_addrstate",
                             "[9] send_addrstate", "[8] unlock_line", "[9] unlock_line", "[9] drop_call_thread"}) {
        std::string line = step;
        functions.push_back(line.insert(line.find("] ") + 2, kCall));
    }
    EXPECT_TRUE(reads(of_drop_call_thread(traces().levels({8, 9})), functions));
}

TEST_F(DropOfABusyLine, SendsIdleItselfWhenTheWorkerDidNot) {
    // The worker gets through to the far end before the alert reaches it.
    driver.on.DornLineAlert = [](DornAlertRecord*) { return driver.release(4), 0; };
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(reads(events().only({"LINE_CALLSTATE(<*>"}), {
                                                                 "LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, "
                                                                 "0x20)",
                                                                 "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, "
                                                                 "0x20)",
                                                                 "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                                             }));
    EXPECT_TRUE(reads(of_drop_call_thread(events()), {
                                                         "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                                         "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                         "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                     }));
}

TEST_F(DropOfABusyLine, LeavesTheLineIdleAndItsCallToBeClosed) {
    EXPECT_EQ(drop(), 0x21);
    EXPECT_EQ(active_calls(), 0u);
    EXPECT_EQ(make_call(), failed(LINEERR_INUSE));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    driver.on.DornCallSetup = ScriptedDriver::usual().DornCallSetup;
    place_call(0);
}

struct Termination {
    uint32_t status, sub_status;
    int waits;
};

void PrintTo(const Termination& termination, std::ostream* out) {
    *out << "status " << termination.status << ", sub-status " << termination.sub_status;
}

class TerminationOfACall : public DropOfABusyLine, public testing::WithParamInterface<Termination> {};

TEST_P(TerminationOfACall, IsFollowedByTheWaitForAPendingRelease) {
    int pending = 0;
    driver.on.DornLineTerminateCallISDN = [&](DornLine*, DornLineResultRecord* record) {
        // The worker clears the call as well.
        pending = GetParam().waits - 1;
        record->status = GetParam().status;
        record->sub_status = GetParam().sub_status;
        return 0;
    };
    driver.on.DornCallWaitForRelease = [&](DornLine*, DornCallRecord* record) {
        record->status = pending > 0 ? 7 : 0;
        record->cause = 1;
        --pending;
        return 0;
    };
    EXPECT_EQ(drop(), 0x21);
    Lines cleared = {"WaitForSingleObject(LOCK, INFINITE)", "DornLineTerminateCallISDN(CHAN4)"};
    cleared.insert(cleared.end(), static_cast<size_t>(GetParam().waits), "DornCallWaitForRelease(CHAN4)");
    cleared.push_back("WaitForSingleObject(LOCK, INFINITE)");
    EXPECT_TRUE(reads(of_drop_call_thread(all_of(DRIVER | WINDOWS).only({"Dorn<*>", "<*>LOCK, INFINITE)"}))
                          .without({"DornLineAlert(<*>"}),
                      cleared));
}

INSTANTIATE_TEST_SUITE_P(Done, TerminationOfACall,
                         testing::Values(Termination{0, 0, 0}, Termination{0, 1, 0}, Termination{7, 0, 0},
                                         Termination{7, 2, 0}, Termination{2, 1, 0}));
INSTANTIATE_TEST_SUITE_P(Pending, TerminationOfACall, testing::Values(Termination{7, 1, 1}, Termination{7, 1, 3}));

TEST_F(DropOfABusyLine, StopsWaitingForTheReleaseAtAnyOtherResult) {
    std::deque<std::pair<uint32_t, uint32_t>> results;
    driver.on.DornLineTerminateCallISDN = [&](DornLine*, DornLineResultRecord* record) {
        // The worker clears the call as well.
        results = {{7, 1}, {7, 2}, {7, 1}};
        record->status = 7;
        record->sub_status = 1;
        return 0;
    };
    driver.on.DornCallWaitForRelease = [&](DornLine*, DornCallRecord* record) {
        std::tie(record->status, record->cause) = results.front();
        results.pop_front();
        return 0;
    };
    EXPECT_EQ(drop(), 0x21);
    EXPECT_EQ(count(of_drop_call_thread(driver_calls()), "DornCallWaitForRelease(<*>"), 2u);
}

// ---- two drops ------------------------------------------------------------------------------------------------------

TEST_F(DropOfABusyLine, InProgressIsNotAlertedASecondTime) {
    // The worker is deaf, so that both drops wait for it.
    driver.on.DornLineAlert = [](DornAlertRecord*) { return 0; };
    Call first([this] { return drop(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)"));
    Call second([this] { return tsp.TSPI_lineDrop(0x22, call(0), nullptr, 0); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)", 2));
    driver.release(4);
    EXPECT_EQ(first.result(), 0x21);
    EXPECT_EQ(second.result(), 0x22);
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(unit=14)"), 1u);
    EXPECT_TRUE(wait_until([] { return windows.threads.running == 1; }));
    EXPECT_EQ(count(completions(), "completion(request=0x21, result=0x0)"), 1u);
    EXPECT_EQ(count(completions(), "completion(request=0x22, result=0x0)"), 1u);
    EXPECT_EQ(count(events(), "LINE_CALLSTATE(<*>IDLE<*>"), 1u);
    // Worker and drops have counted more operations down than there were; a close does not wait for the difference.
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    driver.on = ScriptedDriver::usual();
    place_call(0);
}

// ---- failures -------------------------------------------------------------------------------------------------------

TEST_F(DropOfABusyLine, ReportsThatThereIsNoMemoryForTheRequest) {
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    EXPECT_EQ(drop(), failed(LINEERR_NOMEM));
    windows.memory.fails = nullptr;
    EXPECT_TRUE(reads(all_of(WINDOWS | EVENT_LOG | DRIVER | EVENT | COMPLETION)
                          .only({"<*>LOCK<*>", "<*>DROP_DONE<*>", "event log(<*>", "Dorn<*>", "LINE_<*>", "_begin<*>"}),
                      {
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "event log(category=3, 0xC0000008, \"\")",
                      }));
    EXPECT_TRUE(holds(traces(), "[17] " + kCall + "TSPI_lineDrop(-2147483580) Failed"));
    EXPECT_TRUE(holds_no(traces(), "<*>called report_event with error"));
    EXPECT_EQ(drop(), 0x21);
}

TEST_F(DropOfABusyLine, SaysUnderAnothersNameWhenTheLackOfMemoryCannotBeReported) {
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    windows.event_log.takes_entries = false;
    EXPECT_EQ(drop(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineDevSpecific called report_event with error"));
}

TEST_F(DropOfABusyLine, ReturnsEvenIfItsThreadThrows) {
    driver.on.DornLineTerminateCallISDN = [](DornLine*, DornLineResultRecord*) -> int { throw 1; };
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(dropping.returns_within());
    EXPECT_TRUE(holds(traces(), "[1] drop_call_thread: Exception"));
    driver.on.DornLineTerminateCallISDN = ScriptedDriver::usual().DornLineTerminateCallISDN;
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(DropOfABusyLine, ReturnsEvenIfTheCompletionFaults) {
    tapi.on_completion = [](DRV_REQUESTID, LONG) { cause_access_violation(); };
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(dropping.returns_within());
    EXPECT_TRUE(holds(traces(), "[1] drop_call_thread: Exception"));
    tapi.on_completion = nullptr;
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
}
