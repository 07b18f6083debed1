// Dialling further digits on a call that waits for them.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

// A call that was set up with "555;" waits for more.
class Dial : public LineFixture {
  protected:
    void SetUp() override {
        LineFixture::SetUp();
        EXPECT_EQ(make_call(L"555;"), 0x21);
        worker_ends();
        new_chapter();
    }
};

class DialWithoutSuchACall : public LineFixture {};

}  // namespace

TEST_F(Dial, CompletesTheRequestAtOnceWithoutAnAlert) {
    driver.gate("DornCallSetup").close();
    EXPECT_EQ(dial(L"1234"), 0x21);
    EXPECT_TRUE(driver.gate("DornCallSetup").holds_somebody());
    EXPECT_TRUE(reads(on_this_thread(story()), {
                                                   "[16] " + kCall + "TSPI_lineDial",
                                                   "[4] TSPI_lineDial() Async completion requestID= 0x21: result= 0x0",
                                                   "completion(request=0x21, result=0x0)",
                                                   "[17] " + kCall + "TSPI_lineDial(33) Good",
                                               }));
    EXPECT_TRUE(reads(on_this_thread(handshake()), {
                                                       "WaitForSingleObject(LOCK, INFINITE)",
                                                       "ResetEvent(WORKER_IDLE)",
                                                       "completion(request=0x21, result=0x0)",
                                                       "ReleaseMutex(LOCK)",
                                                   }));
    // The thread is on its way before the request is completed.
    EXPECT_TRUE(reads_in_order(
        on_this_thread(all_of(TRACE | WINDOWS | COMPLETION)),
        {"ResetEvent(WORKER_IDLE)", "_beginthread(stack=16384)",
         "[4] TSPI_lineDial() Async completion requestID= 0x21: result= 0x0", "completion(request=0x21, result=0x0)"}));
    driver.gate("DornCallSetup").open();
    worker_ends();
}

TEST_F(Dial, ReportsTheProgressOfTheCall) {
    EXPECT_EQ(dial(L"1234"), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(of_out_call_thread(story()),
                      {
                          "DornLineCCProtocolGet(CHAN4)",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x10, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                          "DornCallSetup(CHAN4, \"1234\")",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x200, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x20)",
                          "DornCallWaitForComplete(CHAN4, timeout=1000000)",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x100, dwCallStateMode=0x1",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)",
                      }));
}

TEST_F(Dial, TracesEveryFunction) {
    EXPECT_EQ(dial(L"1234"), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(on_this_thread(traces().levels({8, 9, 16, 17})), {
                                                                           "[16] " + kCall + "TSPI_lineDial",
                                                                           "[8] " + kCall + "IsValidLine",
                                                                           "[9] " + kCall + "IsValidLine(1)",
                                                                           "[8] " + kCall + "lock_line",
                                                                           "[9] " + kCall + "lock_line",
                                                                           "[8] CheckDialCharacters",
                                                                           "[9] CheckDialCharacters(0)",
                                                                           "[8] " + kCall + "unlock_line",
                                                                           "[9] " + kCall + "unlock_line",
                                                                           "[17] " + kCall + "TSPI_lineDial(33) Good",
                                                                       }));
}

TEST_F(Dial, TakesAPartialStringAgain) {
    EXPECT_EQ(dial(L"12;"), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(events(), {"LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                                 "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALTONE, 0x0, 0x20)"}));
    EXPECT_EQ(dial(L"34"), 0x21);
    EXPECT_TRUE(comes("LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"));
    worker_ends(2);
}

TEST_F(Dial, WithoutAStringReportsNothing) {
    EXPECT_EQ(dial(nullptr), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(driver_calls(), {"DornCallSetup(CHAN4, null)"}));
    EXPECT_TRUE(reads(events(), {}));
}

TEST_F(Dial, ThatFailsEndsTheCall) {
    driver.channel(4).setup_status = 3;
    driver.channel(4).setup_cause = 261;
    EXPECT_EQ(dial(L"1234"), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(events(), {"LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                                 "LINE_CALLSTATE(HTLINE1, HTCALL1, BUSY, 0x2, 0x20)",
                                 "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"}));
    EXPECT_EQ(dial(L"1234"), failed(LINEERR_INUSE));
}

TEST_F(Dial, KeepsTheMediaModeOfTheCall) {
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    LINECALLPARAMS parameters = {};
    parameters.dwMediaMode = LINEMEDIAMODE_DATAMODEM;
    EXPECT_EQ(make_call(L"555;", &parameters), 0x21);
    worker_ends();
    new_chapter();
    EXPECT_EQ(dial(L"1234"), 0x21);
    worker_ends();
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, CONNECTED, 0x1, 0x10)"));
}

// ---- refusals -------------------------------------------------------------------------------------------------------

TEST_F(DialWithoutSuchACall, NeedsAValidHandle) {
    EXPECT_EQ(tsp.TSPI_lineDial(0x21, nullptr, L"1", 0), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(story(), {"[16] TSPI_lineDial", "[4] TSPI_lineDial - Invalid call handle.",
                                "[17] TSPI_lineDial(-2147483624) Failed"}));
}

TEST_F(DialWithoutSuchACall, NeedsACall) {
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(
        reads(story(), {"[16] " + kNoCall + "TSPI_lineDial", "[17] " + kNoCall + "TSPI_lineDial(-2147483624) Failed"}));
    EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
}

TEST_F(DialWithoutSuchACall, IsNotForAnIncomingCall) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INUSE));
    EXPECT_TRUE(
        reads(story(), {"[16] " + kCall + "TSPI_lineDial", "[17] " + kCall + "TSPI_lineDial(-2147483633) Failed"}));
    EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
}

TEST_F(DialWithoutSuchACall, IsTooEarlyWhileTheCallIsBeingSetUp) {
    place_call_that_lasts();
    new_chapter();
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(
        reads(story(), {"[16] " + kCall + "TSPI_lineDial", "[17] " + kCall + "TSPI_lineDial(-2147483620) Failed"}));
    EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
    driver.release(4);
    worker_ends();
}

TEST_F(Dial, RefusesCharactersAndLeavesTheCallAsItIs) {
    const LONG errors[] = {failed(LINEERR_DIALBILLING), failed(LINEERR_DIALPROMPT), failed(LINEERR_DIALQUIET)};
    const wchar_t* const numbers[] = {L"12$", L"12?", L"12@"};
    for (int i = 0; i < 3; ++i) {
        new_chapter();
        EXPECT_EQ(dial(numbers[i]), errors[i]);
        EXPECT_TRUE(reads(story(), {"[16] " + kCall + "TSPI_lineDial",
                                    text("[17] %sTSPI_lineDial(%ld) Failed", kCall.c_str(), errors[i])}));
        EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
    }
    EXPECT_EQ(dial(L"12"), 0x21);
    worker_ends();
}

TEST_F(Dial, ReportsThatThereIsNoMemoryForTheRequest) {
    windows.memory.fails = is_call_request;
    EXPECT_EQ(dial(L"1234"), failed(LINEERR_NOMEM));
    EXPECT_TRUE(reads(all_of(WINDOWS | EVENT_LOG | COMPLETION | DRIVER)
                          .only({"<*>LOCK<*>", "SetEvent(<*>", "ResetEvent(<*>", "event log(<*>", "completion<*>"}),
                      {
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "event log(category=3, 0xC0000008, \"\")",
                      }));
    EXPECT_TRUE(holds(traces(), "[17] " + kCall + "TSPI_lineDial(-2147483580) Failed"));
    EXPECT_TRUE(holds_no(traces(), "<*>called report_event with error"));
    windows.memory.fails = nullptr;
    EXPECT_EQ(dial(L"1234"), 0x21);
    worker_ends();
}

TEST_F(Dial, SaysWhenTheLackOfMemoryCannotBeReported) {
    windows.memory.fails = is_call_request;
    windows.event_log.takes_entries = false;
    EXPECT_EQ(dial(L"1234"), failed(LINEERR_NOMEM));
    EXPECT_TRUE(holds(traces(), "[4] tspi_linedial called report_event with error"));
}

TEST_F(Dial, CatchesAnExceptionOfTheCompletionAndGivesTheLockBack) {
    tapi.on_completion = [](DRV_REQUESTID, LONG) { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineDial", [this] { return dial(L"1234"); }));
    EXPECT_TRUE(lock_is_given_back());
    worker_ends();
}
