// A call that was offered and that nobody took: it is ended, and the thread stands aside until TAPI has closed it.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class AbandonedCall : public LineFixture {
  protected:
    // The thread stays parked until the call is closed, then waits for the next call for ever.
    void expect_park_until_the_call_is_closed(const std::string& text) {
        EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
        EXPECT_FALSE(driver.waits_for_call(4, 0));
        new_chapter();
        EXPECT_EQ(close_call(), 0);
        EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=0)"));
        EXPECT_TRUE(reads_in_order(traces(), {"[4] Closing call on line 15", text}));
        // The state went to idle when the call was given up.
        EXPECT_TRUE(reads(events(), {}));
    }

    void ring_until(int last) {
        offer_call_and_wait();
        for (int ring = 2; ring <= last; ++ring) ring_again();
        new_chapter();
    }
};

}  // namespace

TEST_F(AbandonedCall, EndsWhenTheRingsStop) {
    offer_call_and_wait();
    new_chapter();
    driver.wait_ends(4, KX_STATUS_OK, 353);
    EXPECT_TRUE(comes("[4] RING_DET_THREAD: call not answered wait for idle"));
    EXPECT_TRUE(reads(story(), joined({{
                                           "[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                                           "[4] LumLineWaitForCall res.line_status = WAIT_FOR_CALL_TIMEOUT(353)",
                                           "[4] Previous NEWCALL has not been picked up.",
                                       },
                                       kCallEnded,
                                       {"[4] RING_DET_THREAD: call not answered wait for idle"}})));
    expect_park_until_the_call_is_closed("[4] RING_DET_THREAD: call not answered and now idle");
}

TEST_F(AbandonedCall, EndsWhenTheWaitTimesOut) {
    offer_call_and_wait();
    new_chapter();
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(comes("[4] RING_DET_THREAD: timeout, call not answered wait for idle"));
    EXPECT_TRUE(reads(story(), joined({{
                                           "[4] LumLineWaitForCall res.status = KX_STATUS_TIMEOUT",
                                           "[4] Previous NEWCALL has not been pickep up.",
                                       },
                                       kCallEnded,
                                       {"[4] RING_DET_THREAD: timeout, call not answered wait for idle"}})));
    expect_park_until_the_call_is_closed("[4] RING_DET_THREAD: timeoutrings, call not answered and now idle");
}

TEST_F(AbandonedCall, EndsAfterTheTwentyFirstRing) {
    ring_until(20);
    EXPECT_TRUE(holds_no(events(), "LINE_CALLSTATE(<*>"));
    driver.ring(4);
    EXPECT_TRUE(comes("[4] RING_DET_THREAD: max rings, call not answered wait for idle"));
    EXPECT_TRUE(
        reads(story(), joined({{
                                   "[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                                   "[4] Did not Timeout",
                                   "[4] res.line_status = 1",
                               },
                               kNoRingCount,
                               {
                                   "[4] RING_DET_THREAD: number of incoming rings = 21  NRINGS = 1",
                                   "[4] " + kCall + "Sending LINE_LINEDEVSTATE, newstate=0x2, Parm2=0x1, Parm3=0x15",
                                   "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x15)",
                                   "[4] RING_DET_THREAD: call not connected, eLineState(4)",
                                   "[4] Previous NEWCALL has not been pickep up.",
                               },
                               kCallEnded,
                               {"[4] RING_DET_THREAD: max rings, call not answered wait for idle"}})));
    expect_park_until_the_call_is_closed("[4] RING_DET_THREAD: max rings, call not answered and now idle");
}

TEST_F(AbandonedCall, WaitsOnAfterTheTwentiethRing) {
    ring_until(19);
    ring_again();
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: number of incoming rings = 20  NRINGS = 1"));
    EXPECT_TRUE(holds_no(traces(), "[4] Previous NEWCALL<*>"));
    EXPECT_TRUE(holds(driver_calls(), "DornLineWaitForCallISDN(CHAN4, timeout=12000)"));
}

TEST_F(AbandonedCall, IsFollowedByANewCallWithTheFirstRing) {
    ring_until(20);
    driver.ring(4);
    EXPECT_TRUE(comes("[4] RING_DET_THREAD: max rings, call not answered wait for idle"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    new_chapter();
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, OFFERING, 0x1, 0x20)"));
}

TEST_F(AbandonedCall, TellsTapiUnderTheLockAndParksWithoutIt) {
    offer_call_and_wait();
    new_chapter();
    driver.wait_ends(4, KX_STATUS_OK, 353);
    EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
    EXPECT_TRUE(reads(handshake(), {
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                       "ReleaseMutex(LOCK)",
                                       "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                       "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                       "ReleaseMutex(LOCK)",
                                       "WaitForSingleObject(RING_DET_WAIT, INFINITE)",
                                   }));
    EXPECT_EQ(close_call(), 0);
}

// ---- without a call -------------------------------------------------------------------------------------------------

class WaitWithoutACall : public AbandonedCall {};

TEST_F(WaitWithoutACall, GoesOnWhenTheRingsStop) {
    driver.wait_ends(4, KX_STATUS_OK, 353);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(story(), {
                                   "[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                                   "[4] LumLineWaitForCall res.line_status = WAIT_FOR_CALL_TIMEOUT(353)",
                                   "DornLineWaitForCallISDN(CHAN4, timeout=0)",
                               }));
}

TEST_F(WaitWithoutACall, GoesOnAfterATimeOut) {
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(story(), {
                                   "[4] LumLineWaitForCall res.status = KX_STATUS_TIMEOUT",
                                   "DornLineWaitForCallISDN(CHAN4, timeout=0)",
                               }));
}

// A call that was closed while the thread stood in its pause leaves the ring count, so that the next call is taken for
// further rings of it until the rings stop.
class CallClosedInThePause : public AbandonedCall {
  protected:
    void SetUp() override {
        AbandonedCall::SetUp();
        offer_call(0);
        EXPECT_EQ(close_call(), 0);
        new_chapter();
        end_the_pause();
    }
};

TEST_F(CallClosedInThePause, LeavesTheTimeOutAndTheRingCount) {
    EXPECT_TRUE(reads(story(), {"[4] RING_DET_THREAD: call not connected, eLineState(0)",
                                "DornLineWaitForCallISDN(CHAN4, timeout=12000)"}));
    new_chapter();
    ring_again();
    EXPECT_TRUE(reads(events(), {"LINE_LINEDEVSTATE(HTLINE1, 0, RINGING, 0x1, 0x2)"}));
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: number of incoming rings = 2  NRINGS = 1"));
}

TEST_F(CallClosedInThePause, IsForgottenWhenTheRingsStop) {
    driver.wait_ends(4, KX_STATUS_OK, 353);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=0)"));
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, OFFERING, 0x1, 0x20)"));
}

TEST_F(CallClosedInThePause, IsForgottenAfterATimeOut) {
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=0)"));
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, OFFERING, 0x1, 0x20)"));
}

TEST_F(CallClosedInThePause, IsForgottenAfterTheTwentyFirstRing) {
    for (int ring = 2; ring <= 20; ++ring) ring_again();
    EXPECT_TRUE(holds_no(events(), "LINE_NEWCALL(<*>"));
    new_chapter();
    ring_again();
    EXPECT_TRUE(reads_in_order(story(), {"[4] RING_DET_THREAD: number of incoming rings = 21  NRINGS = 1",
                                         "[4] RING_DET_THREAD: call not connected, eLineState(4)",
                                         "DornLineWaitForCallISDN(CHAN4, timeout=0)"}));
    EXPECT_TRUE(holds_no(traces(), "[4] Previous NEWCALL<*>"));
    EXPECT_TRUE(reads(events(), {"LINE_LINEDEVSTATE(HTLINE1, 0, RINGING, 0x1, 0x15)"}));
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, OFFERING, 0x1, 0x20)"));
}
