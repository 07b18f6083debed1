// A ring and an outgoing call want the line at the same moment, in every order.
#include "harness.h"
#include "holding.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class RingAgainstCall : public LineFixture {
  protected:
    // From its next wait on, the line's thread stops with the driver's answer in its hands while the gate is closed.
    void hold_the_thread_with_a_ring() {
        driver.on.DornLineWaitForCallISDN = [this](DornLine* line, DornWaitForCallRecord* record) {
            const int result = ScriptedDriver::usual().DornLineWaitForCallISDN(line, record);
            held.pass();
            return result;
        };
        driver.wait_ends(4, KX_STATUS_TIMEOUT);
        EXPECT_TRUE(driver.waits_for_call(4));
        held.close();
        driver.ring(4);
        EXPECT_TRUE(held.holds_somebody());
    }
    // The line's thread stands in front of the driver.
    static void hold_the_thread_before_its_wait() {
        driver.gate("DornLineWaitForCallISDN").close();
        driver.wait_ends(4, KX_STATUS_TIMEOUT);
        EXPECT_TRUE(driver.gate("DornLineWaitForCallISDN").holds_somebody());
    }
    static void expect_offered(const std::string& call) {
        EXPECT_TRUE(sleep_gate(6000).holds_somebody());
        EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, " + call + ", OFFERING, 0x1, 0x20)"));
    }

    Gate held;
};

}  // namespace

TEST_F(RingAgainstCall, ThatIsOnItsWayWinsAlthoughTheAlertReachesNobody) {
    hold_the_thread_with_a_ring();
    sleep_gate(6000).close();
    waits_last(500);
    new_chapter();
    Call calling([this] { return make_call(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, 500)"));
    EXPECT_FALSE(is_held("LOCK"));
    held.open();
    EXPECT_EQ(calling.result(), failed(LINEERR_CALLUNAVAIL));
    expect_offered("HTCALL2");
    EXPECT_TRUE(
        reads_in_order(all_of(TRACE | DRIVER | EVENT | WINDOWS), {
                                                                     "DornLineAlert(unit=14)",
                                                                     "WaitForSingleObject(WORKER_IDLE, 500)",
                                                                     "[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                                                                     "SetEvent(WORKER_IDLE)",
                                                                     "[4] MakeCall: collision detected, backing off",
                                                                     "SetEvent(RING_DET_WAIT)",
                                                                     "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                                                 }));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(<*>"), 1u);
    EXPECT_TRUE(holds_no(traces(), "[4] Ring_det received alert"));
    EXPECT_TRUE(reads(completions(), {}));
    EXPECT_EQ(answer(), 0x21);
}

TEST_F(RingAgainstCall, ThatIsBeingOfferedHasTheLockAndRefusesTheCall) {
    held.close();
    tapi.on_event = [this](const LineEvent& event) {
        if (event.message == LINE_NEWCALL) held.pass();
    };
    sleep_gate(6000).close();
    driver.ring(4);
    EXPECT_TRUE(held.holds_somebody());
    EXPECT_TRUE(is_held("LOCK"));
    Call calling([this] { return make_call(); });
    EXPECT_TRUE(waits_for(calling, "LOCK"));
    held.open();
    EXPECT_EQ(calling.result(), failed(LINEERR_INUSE));
    expect_offered("HTCALL2");
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineAlert(<*>"));
    EXPECT_EQ(answer(), 0x21);
}

// The thread looks for any call handle after its pause, and finds that of the outgoing call.
TEST_F(RingAgainstCall, WhoseOfferWasRefusedOnceTakesTheHandleOfACallMadeInItsPause) {
    tapi.refused_new_calls = 1;
    sleep_gate(1000).close();
    sleep_gate(6000).close();
    driver.ring(4);
    EXPECT_TRUE(sleep_gate(1000).holds_somebody());
    EXPECT_FALSE(is_held("LOCK"));
    new_chapter();
    waits_time_out(500);
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    sleep_gate(1000).open();
    expect_offered("HTCALL1");
    EXPECT_TRUE(holds_no(events(), "LINE_NEWCALL(<*>"));
    EXPECT_EQ(answer(), failed(LINEERR_INUSE));
    end_the_pause();
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: call not connected, eLineState(3)"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"));
}

TEST_F(RingAgainstCall, OfALineThatACallHasTakenIsOfferedAfterItsClose) {
    place_call_that_lasts();
    sleep_gate(6000).close();
    new_chapter();
    driver.ring(4);
    driver.release(4);
    worker_ends();
    const Lines connected = {"LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x20)",
                             "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"};
    EXPECT_TRUE(reads(events(), connected));
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineWaitForCallISDN(<*>"));
    EXPECT_EQ(close_call(), 0);
    expect_offered("HTCALL2");
    EXPECT_TRUE(reads_in_order(all_of(DRIVER | EVENT), {
                                                           "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                                           "DornLineReset(CHAN4, <*>",
                                                           "DornLineWaitForCallISDN(CHAN4, timeout=0)",
                                                           "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                                       }));
    EXPECT_EQ(answer(), 0x21);
}

TEST_F(RingAgainstCall, IsNotReachedByTheOneAlertOfACallThatFindsTheThreadBeforeItsWait) {
    hold_the_thread_before_its_wait();
    new_chapter();
    waits_time_out(500);
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(unit=14)"), 1u);
    EXPECT_EQ(count(windows_calls(), "WaitForSingleObject(WORKER_IDLE, 500)"), 5u);
    driver.gate("DornLineWaitForCallISDN").open();
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(holds_no(traces(), "[4] Ring_det received alert"));
    EXPECT_TRUE(reads(events(), {}));
}

// The request that gave up is still in the line's state, and nobody is there to back off.
TEST_F(RingAgainstCall, AfterACallThatGaveUpWaitsForItsCloseAndCannotBeAnsweredBeforeItsNextRing) {
    hold_the_thread_before_its_wait();
    waits_time_out(500);
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    driver.gate("DornLineWaitForCallISDN").open();
    EXPECT_TRUE(driver.waits_for_call(4));
    new_chapter();
    sleep_gate(6000).close();
    driver.ring(4);
    EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
    EXPECT_TRUE(holds(traces(), "[4] r_d_t: Collision detected"));
    EXPECT_FALSE(is_held("LOCK"));
    EXPECT_TRUE(reads(events(), {}));
    EXPECT_EQ(close_call(), 0);
    expect_offered("HTCALL2");
    EXPECT_EQ(answer(), failed(LINEERR_INUSE));
    end_the_pause();
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: call not connected, eLineState(0)"));
    ring_again();
    EXPECT_EQ(answer(), 0x21);
}
