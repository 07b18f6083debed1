// Accepting and answering a call that has been offered.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class Accept : public LineFixture {};
class Answer : public LineFixture {};

}  // namespace

// ---- accept ---------------------------------------------------------------------------------------------------------

TEST_F(Accept, ReportsTheCallAcceptedAndCompletesTheRequest) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(accept(), 0x21);
    EXPECT_TRUE(reads(story(), {
                                   "[16] " + kCall + "TSPI_lineAccept",
                                   "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x4, dwCallStateMode=0x0",
                                   "LINE_CALLSTATE(HTLINE1, HTCALL1, ACCEPTED, 0x0, 0x20)",
                                   "[4] TSPI_lineAccept() Async completion requestID= 0x21: result= 0x0",
                                   "completion(request=0x21, result=0x0)",
                                   "[17] " + kCall + "TSPI_lineAccept(33) Good",
                               }));
}

TEST_F(Accept, TracesEveryFunction) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(accept(), 0x21);
    EXPECT_TRUE(reads(traces().levels({8, 9, 16, 17}), {
                                                           "[16] " + kCall + "TSPI_lineAccept",
                                                           "[8] " + kCall + "IsValidLine",
                                                           "[9] " + kCall + "IsValidLine(1)",
                                                           "[8] " + kCall + "lock_line",
                                                           "[9] " + kCall + "lock_line",
                                                           "[8] " + kCall + "SetCallState",
                                                           "[8] " + kCall + "lock_line",
                                                           "[9] " + kCall + "lock_line",
                                                           "[8] " + kCall + "unlock_line",
                                                           "[9] " + kCall + "unlock_line",
                                                           "[9] " + kCall + "SetCallState",
                                                           "[8] " + kCall + "unlock_line",
                                                           "[9] " + kCall + "unlock_line",
                                                           "[17] " + kCall + "TSPI_lineAccept(33) Good",
                                                       }));
}

TEST_F(Accept, CompletesUnderTheLock) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(accept(), 0x21);
    EXPECT_TRUE(reads(handshake(), {
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "LINE_CALLSTATE(HTLINE1, HTCALL1, ACCEPTED, 0x0, 0x20)",
                                       "ReleaseMutex(LOCK)",
                                       "completion(request=0x21, result=0x0)",
                                       "ReleaseMutex(LOCK)",
                                   }));
}

TEST_F(Accept, WorksOnlyOnce) {
    offer_call(0);
    EXPECT_EQ(accept(), 0x21);
    new_chapter();
    EXPECT_EQ(accept(), failed(LINEERR_INUSE));
    EXPECT_TRUE(
        reads(story(), {"[16] " + kCall + "TSPI_lineAccept", "[17] " + kCall + "TSPI_lineAccept(-2147483633) Failed"}));
}

TEST_F(Accept, IsTooLateForAnAnsweredCall) {
    take_call(0);
    EXPECT_EQ(accept(), failed(LINEERR_INUSE));
}

TEST_F(Accept, IsNotForAnOutgoingCall) {
    place_call(0);
    EXPECT_EQ(accept(), failed(LINEERR_INUSE));
}

TEST_F(Accept, NeedsACall) {
    EXPECT_EQ(accept(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(reads(
        story(), {"[16] " + kNoCall + "TSPI_lineAccept", "[17] " + kNoCall + "TSPI_lineAccept(-2147483620) Failed"}));
    EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
}

TEST_F(Accept, NeedsAValidHandle) {
    EXPECT_EQ(tsp.TSPI_lineAccept(0x21, nullptr, nullptr, 0), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(story(), {"[16] TSPI_lineAccept", "[4] TSPI_lineAccept - Invalid Call handle",
                                "[17] TSPI_lineAccept(-2147483624) Failed"}));
}

TEST_F(Accept, IgnoresTheUserUserInformation) {
    offer_call(0);
    EXPECT_EQ(tsp.TSPI_lineAccept(0x21, call(0), "information", 12), 0x21);
}

TEST_F(Accept, CatchesAnExceptionOfTheCompletionAndGivesTheLockBack) {
    offer_call(0);
    new_chapter();
    tapi.on_completion = [](DRV_REQUESTID, LONG) { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineAccept", [this] { return accept(); }));
    EXPECT_TRUE(lock_is_given_back());
    tapi.on_completion = nullptr;
    Call answering([this] { return answer(); });
    EXPECT_EQ(answering.result(), 0x21);
}

// ---- answer ---------------------------------------------------------------------------------------------------------

TEST_F(Answer, ConnectsTheCallAndCompletesTheRequest) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(reads(story(), {
                                   "[16] " + kCall + "TSPI_lineAnswer",
                                   "DornLineAnswerISDN(CHAN4)",
                                   "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x100, dwCallStateMode=0x1",
                                   "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)",
                                   "[4] TSPI_lineAnswer - Async completion requestID= 0x21: result= 0x0",
                                   "completion(request=0x21, result=0x0)",
                                   "[17] " + kCall + "TSPI_lineAnswer(33) Good",
                               }));
}

TEST_F(Answer, HoldsTheLockFromTheDriverToTheCompletion) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(reads(handshake(), {
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "DornLineAnswerISDN(CHAN4)",
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)",
                                       "ReleaseMutex(LOCK)",
                                       "completion(request=0x21, result=0x0)",
                                       "ReleaseMutex(LOCK)",
                                   }));
}

TEST_F(Answer, TakesACallThatWasAcceptedBefore) {
    offer_call(0);
    EXPECT_EQ(accept(), 0x21);
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(reads_in_order(events(), {"LINE_CALLSTATE(HTLINE1, HTCALL1, ACCEPTED, 0x0, 0x20)",
                                          "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"}));
}

TEST_F(Answer, ReportsTheCallConnectedWhateverTheDriverSays) {
    offer_call(0);
    driver.on.DornLineAnswerISDN = [](DornLine*, DornLineResultRecord* record) {
        record->status = KX_STATUS_ERROR;
        return -1;
    };
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"));
    EXPECT_TRUE(holds(completions(), "completion(request=0x21, result=0x0)"));
}

TEST_F(Answer, WorksOnlyOnce) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(answer(), failed(LINEERR_INUSE));
    EXPECT_TRUE(
        reads(story(), {"[16] " + kCall + "TSPI_lineAnswer", "[17] " + kCall + "TSPI_lineAnswer(-2147483633) Failed"}));
}

TEST_F(Answer, IsNotForAnOutgoingCall) {
    place_call(0);
    EXPECT_EQ(answer(), failed(LINEERR_INUSE));
}

TEST_F(Answer, NeedsACall) {
    EXPECT_EQ(answer(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(reads(
        story(), {"[16] " + kNoCall + "TSPI_lineAnswer", "[17] " + kNoCall + "TSPI_lineAnswer(-2147483620) Failed"}));
    EXPECT_TRUE(reads(handshake(), {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"}));
}

TEST_F(Answer, NeedsAValidHandle) {
    EXPECT_EQ(tsp.TSPI_lineAnswer(0x21, nullptr, nullptr, 0), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(story(), {"[16] TSPI_lineAnswer", "[2] TSPI_lineAnswer - Invalid call handle.",
                                "[17] TSPI_lineAnswer(-2147483624) Failed"}));
}

TEST_F(Answer, IgnoresTheUserUserInformation) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(tsp.TSPI_lineAnswer(0x21, call(0), "information", 12), 0x21);
    EXPECT_TRUE(reads(driver_calls(), {"DornLineAnswerISDN(CHAN4)"}));
}

TEST_F(Answer, HasAnExceptionTraceOfItsOwnAndLeavesTheLastErrorAlone) {
    offer_call(0);
    new_chapter();
    driver.on.DornLineAnswerISDN = [](DornLine*, DornLineResultRecord*) -> int { throw 1; };
    SetLastError(77);
    EXPECT_EQ(answer(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_NE(GetLastError(), 1064u);
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineAnswer - Catch Error"));
    EXPECT_TRUE(reads(traces().levels({1}), {}));
    EXPECT_TRUE(reads(events(), {}));
    EXPECT_TRUE(reads(completions(), {}));
}

TEST_F(Answer, GivesTheLockBackAfterAFault) {
    offer_call(0);
    driver.on.DornLineAnswerISDN = [](DornLine*, DornLineResultRecord*) { return cause_access_violation(), 0; };
    EXPECT_EQ(answer(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineAnswer - Catch Error"));
    driver.on.DornLineAnswerISDN = ScriptedDriver::usual().DornLineAnswerISDN;
    Call again([this] { return answer(); });
    EXPECT_EQ(again.result(), 0x21);
}
