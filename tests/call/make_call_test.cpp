// Placing a call: the line is taken from its thread, the request completed at once, and the call set up by a worker.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class MakeCall : public LineFixture {
  protected:
    // A call was tried, was not placed, and the line's thread waits for calls again.
    void expect_the_line_given_back() {
        EXPECT_TRUE(driver.waits_for_call(4));
        EXPECT_TRUE(reads(completions(), {}));
        EXPECT_TRUE(holds_no(driver_calls(), "DornCallSetup(<*>"));
        EXPECT_TRUE(reads(events(), {}));
    }
};

constexpr int kAttempts = 5;

}  // namespace

TEST_F(MakeCall, TakesTheLineFromItsThreadAndCompletesTheRequestAtOnce) {
    driver.gate("DornCallSetup").close();
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(reads(on_this_thread(story()),
                      joined({{
                                  "[16] " + kNoCall + "TSPI_lineMakeCall",
                                  "DornLineAlert(unit=14)",
                                  "[4] !!!!!! Did you know !!!!!!!!!",
                                  "[4] TSPI_lineMakeCall - WaitForSingleObject() result= (WAIT_OBJECT_0)",
                                  "[4] TSPI_lineMakeCall() Async completion requestID= 0x21: result= 0x0",
                                  "completion(request=0x21, result=0x0)",
                              },
                              kNumCalls,
                              {"[17] TSPI_lineMakeCall(33) Good"}})));
    EXPECT_EQ(placed, call(0));
    EXPECT_TRUE(driver.gate("DornCallSetup").holds_somebody());
    driver.gate("DornCallSetup").open();
    worker_ends();
}

TEST_F(MakeCall, MeetsTheLinesThread) {
    driver.gate("DornCallSetup").close();
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(reads(on_this_thread(handshake()), {
                                                       "WaitForSingleObject(LOCK, INFINITE)",
                                                       "ResetEvent(WORKER_IDLE)",
                                                       "DornLineAlert(unit=14)",
                                                       "ReleaseMutex(LOCK)",
                                                       "WaitForSingleObject(WORKER_IDLE, 500)",
                                                       "WaitForSingleObject(LOCK, INFINITE)",
                                                       "ResetEvent(WORKER_IDLE)",
                                                       "completion(request=0x21, result=0x0)",
                                                       "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                       "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                       "ReleaseMutex(LOCK)",
                                                   }));
    EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
    EXPECT_TRUE(reads_in_order(all_of(TRACE | WINDOWS),
                               {"ResetEvent(RING_DET_WAIT)", "SetEvent(WORKER_IDLE)", "[4] Ring_det received alert",
                                "WaitForSingleObject(RING_DET_WAIT, INFINITE)"}));
    // The thread is on its way before the request is completed.
    EXPECT_TRUE(reads_in_order(on_this_thread(all_of(TRACE | WINDOWS | COMPLETION)),
                               {"ResetEvent(WORKER_IDLE)", "_beginthread(stack=16384)",
                                "[4] TSPI_lineMakeCall() Async completion requestID= 0x21: result= 0x0",
                                "completion(request=0x21, result=0x0)"}));
    driver.gate("DornCallSetup").open();
    worker_ends();
}

TEST_F(MakeCall, TracesEveryFunction) {
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    Lines expected = {"[16] " + kNoCall + "TSPI_lineMakeCall",
                      "[8] " + kNoCall + "IsValidLine",
                      "[9] " + kNoCall + "IsValidLine(1)",
                      "[8] " + kNoCall + "lock_line",
                      "[9] " + kNoCall + "lock_line",
                      "[8] " + kCall + "unlock_line",
                      "[9] " + kCall + "unlock_line",
                      "[8] " + kCall + "lock_line",
                      "[9] " + kCall + "lock_line",
                      "[8] CheckDialCharacters",
                      "[9] CheckDialCharacters(0)",
                      "[8] " + kCall + "send_linedevstate",
                      "[9] " + kCall + "send_linedevstate",
                      "[8] " + kCall + "send_addrstate",
                      "[9] " + kCall + "send_addrstate",
                      "[8] " + kCall + "unlock_line",
                      "[9] " + kCall + "unlock_line",
                      "[17] TSPI_lineMakeCall(33) Good"};
    EXPECT_TRUE(reads(on_this_thread(traces().levels({8, 9, 16, 17})), expected));
}

TEST_F(MakeCall, ReportsTheProgressOfACallThatIsAnswered) {
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(of_out_call_thread(story()),
                      {
                          "DornLineCCProtocolGet(CHAN4)",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x10, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                          "DornCallSetup(CHAN4, \"5551234\")",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x200, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x20)",
                          "DornCallWaitForComplete(CHAN4, timeout=1000000)",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x100, dwCallStateMode=0x1",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)",
                      }));
    EXPECT_TRUE(reads_in_order(of_out_call_thread(traces().levels({8, 9})),
                               {"[8] " + kCall + "out_call_thread", "[9] " + kCall + "out_call_thread"}));
}

TEST_F(MakeCall, CompletesBeforeItsFirstCallState) {
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(all_of(EVENT | COMPLETION), {
                                                      "completion(request=0x21, result=0x0)",
                                                      "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                      "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                      "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                                                      "LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x20)",
                                                      "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)",
                                                  }));
}

TEST_F(MakeCall, FinishesAConnectedCallUnderTheLock) {
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(of_out_call_thread(handshake().without({"DornCall<*>", "DornLineCC<*>", "LINE_CALLSTATE(<*>"})),
                      {
                          // around the two call states on the way, the state of the line, and the two at its end
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          // the end
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "SetEvent(WORKER_IDLE)",
                          "ReleaseMutex(LOCK)",
                      }));
}

TEST_F(MakeCall, LeavesTheLinesThreadParkedUntilTheCallIsClosed) {
    driver.channel(4).setup_status = 3;
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_FALSE(driver.waits_for_call(4, 0));
    EXPECT_EQ(count(windows_calls(), "SetEvent(RING_DET_WAIT)"), 0u);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(MakeCall, IsForAFaxUnlessTheCallerSaysOtherwise) {
    LINECALLPARAMS parameters = {};
    parameters.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    EXPECT_EQ(make_call(L"5551234", &parameters), 0x21);
    worker_ends();
    EXPECT_TRUE(
        reads(events().only({"LINE_CALLSTATE(<*>"}), {"LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x4)",
                                                      "LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x4)",
                                                      "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x4)"}));
}

TEST_F(MakeCall, ReadsTheFixedPartOfTheParametersAndNoFurther) {
    constexpr size_t kPage = 4096, kFixedPart = 176;
    auto* pages = static_cast<uint8_t*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE, PAGE_NOACCESS));
    ASSERT_NE(VirtualAlloc(pages, kPage, MEM_COMMIT, PAGE_READWRITE), nullptr);
    auto* parameters = reinterpret_cast<LINECALLPARAMS*>(pages + kPage - kFixedPart);
    parameters->dwMediaMode = LINEMEDIAMODE_G3FAX;
    EXPECT_EQ(make_call(L"5551234", parameters), 0x21);
    worker_ends();
    VirtualFree(pages, 0, MEM_RELEASE);
}

TEST_F(MakeCall, SaysSoWhenTheCallersHandleHasChangedMeanwhile) {
    static char elsewhere;
    name_pointer(&elsewhere, "ELSEWHERE");
    tapi.on_completion = [this](DRV_REQUESTID, LONG) { placed = reinterpret_cast<HDRVCALL>(&elsewhere); };
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(reads_in_order(on_this_thread(story()),
                               {"LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                "[4] Note: *lphdCall 0xELSEWHERE, pLine 0xLINE1", "[17] TSPI_lineMakeCall(33) Good"}));
}

// ---- refusals -------------------------------------------------------------------------------------------------------

TEST_F(MakeCall, NeedsAValidHandle) {
    EXPECT_EQ(tsp.TSPI_lineMakeCall(0x21, nullptr, tapi.new_call_handle(), &placed, L"555", 0, nullptr),
              failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(reads(story(), {"[16] TSPI_lineMakeCall", "[4] TSPI_lineMakeCall - Invalid line handle.",
                                "[17] TSPI_lineMakeCall(-2147483605) Failed"}));
    EXPECT_EQ(placed, nullptr);
}

TEST_F(MakeCall, IsRefusedWhileThereIsACall) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(make_call(), failed(LINEERR_INUSE));
    EXPECT_TRUE(
        reads(story(), {"[16] " + kCall + "TSPI_lineMakeCall", "[17] <*>TSPI_lineMakeCall(-2147483633) Failed"}));
    EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
    EXPECT_EQ(placed, nullptr);
}

TEST_F(MakeCall, ReportsThatThereIsNoMemoryForTheRequest) {
    windows.memory.fails = is_call_request;
    EXPECT_EQ(make_call(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(reads(on_this_thread(all_of(WINDOWS | EVENT_LOG | COMPLETION)
                                         .only({"<*>LOCK<*>", "SetEvent(<*>", "ResetEvent(<*>", "event log(<*>"})),
                      {
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ResetEvent(WORKER_IDLE)",
                          "ReleaseMutex(LOCK)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "SetEvent(RING_DET_WAIT)",
                          "ReleaseMutex(LOCK)",
                          "event log(category=3, 0xC0000008, \"\")",
                      }));
    EXPECT_TRUE(holds(traces(), "[17] <*>TSPI_lineMakeCall(-2147483580) Failed"));
    EXPECT_TRUE(holds_no(traces(), "<*>called report_event with error"));
    expect_the_line_given_back();
}

TEST_F(MakeCall, SaysWhenTheLackOfMemoryCannotBeReported) {
    windows.memory.fails = is_call_request;
    windows.event_log.takes_entries = false;
    EXPECT_EQ(make_call(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(holds(traces(), "[4] tspi_linemakecall called report_event with error"));
    expect_the_line_given_back();
}

TEST_F(MakeCall, MayBeTriedAgainAfterALackOfMemory) {
    windows.memory.fails = is_call_request;
    EXPECT_EQ(make_call(), failed(LINEERR_NOMEM));
    windows.memory.fails = nullptr;
    EXPECT_TRUE(driver.waits_for_call(4));
    place_call(0);
}

// ---- the wait for the line's thread ---------------------------------------------------------------------------------

TEST_F(MakeCall, GivesUpAfterFiveWaitsAndRollsNothingBack) {
    windows.objects.on_wait = [](HANDLE, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 500) return std::nullopt;
        return WAIT_TIMEOUT;
    };
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    Lines expected = {"[16] " + kNoCall + "TSPI_lineMakeCall", "DornLineAlert(unit=14)"};
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        expected.push_back("[4] !!!!!! Did you know !!!!!!!!!");
        expected.push_back("[4] TSPI_lineMakeCall - WaitForSingleObject() result= (WAIT_TIMEOUT)");
    }
    expected.push_back("[17] <*>TSPI_lineMakeCall(-2147483573) Failed");
    EXPECT_TRUE(reads(on_this_thread(story()), expected));
    EXPECT_EQ(count(on_this_thread(windows_calls()), "WaitForSingleObject(WORKER_IDLE, 500)"), 5u);
    EXPECT_TRUE(holds_no(windows_calls(), "SetEvent(RING_DET_WAIT)"));
    EXPECT_TRUE(comes("[4] Ring_det received alert"));
    // The call is still there, with the line neither idle nor being dialled.
    EXPECT_EQ(make_call(), failed(LINEERR_INUSE));
    EXPECT_EQ(active_calls(), 1u);
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INUSE));
}

TEST_F(MakeCall, IsFreeAgainWhenACallThatTimedOutIsClosed) {
    windows.objects.on_wait = [](HANDLE, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 500) return std::nullopt;
        return WAIT_TIMEOUT;
    };
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    windows.objects.on_wait = nullptr;
    EXPECT_TRUE(comes("[4] Ring_det received alert"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    place_call(0);
}

TEST_F(MakeCall, NamesEveryOutcomeOfAWait) {
    std::deque<DWORD> outcomes = {WAIT_FAILED, WAIT_ABANDONED, WAIT_TIMEOUT, 5};
    windows.objects.on_wait = [&](HANDLE, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 500 || outcomes.empty()) return std::nullopt;
        DWORD outcome = outcomes.front();
        outcomes.pop_front();
        SetLastError(0x6D9);
        return outcome;
    };
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    const std::string did_you_know = "[4] !!!!!! Did you know !!!!!!!!!";
    const std::string result = "[4] TSPI_lineMakeCall - WaitForSingleObject() result= ";
    EXPECT_TRUE(reads(on_this_thread(traces()).only({"[4] !!!<*>", "[4] TSPI_lineMakeCall - <*>"}),
                      {
                          did_you_know,
                          result + "(WAIT_FAILED)",
                          "[4] TSPI_lineMakeCall - WaitForSingleObject() LastError= 0x6D9",
                          did_you_know,
                          result + "(WAIT_ABANDONED)",
                          did_you_know,
                          result + "(WAIT_TIMEOUT)",
                          did_you_know,
                          result + "(Unknown!)",
                          did_you_know,
                          result + "(WAIT_OBJECT_0)",
                      }));
}

// ---- exceptions -----------------------------------------------------------------------------------------------------

TEST_F(MakeCall, CatchesAnExceptionOfTheAlertAndGivesTheLockBack) {
    driver.on.DornLineAlert = [](DornAlertRecord*) -> int { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineMakeCall", [this] { return make_call(); }));
    EXPECT_TRUE(lock_is_given_back());
}

TEST_F(MakeCall, CatchesAnExceptionOfTheCompletionAndGivesTheLockBack) {
    tapi.on_completion = [](DRV_REQUESTID, LONG) { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineMakeCall", [this] { return make_call(); }));
    EXPECT_TRUE(lock_is_given_back());
    // The call has its worker all the same, and is closed like any other.
    worker_ends();
    EXPECT_EQ(close_call(), 0);
}

TEST_F(MakeCall, CatchesAFaultInTheCallersPlaceForTheHandle) {
    EXPECT_EQ(tsp.TSPI_lineMakeCall(0x21, line(0), tapi.new_call_handle(), nullptr, L"555", 0, nullptr),
              failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(holds(traces(), "[1] TSPI_lineMakeCall: Exception"));
    EXPECT_TRUE(lock_is_given_back());
}
