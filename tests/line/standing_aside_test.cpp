// The thread stands aside: while a call is taken up, after an alert, and when an outgoing call meets a ring.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class StandingAside : public LineFixture {
  protected:
    // Whoever alerts the channel finds it ringing instead.
    void ring_instead_of_the_alert(const CallData& data = {}) {
        driver.on.DornLineAlert = [=](DornAlertRecord*) {
            driver.on.DornLineAlert = ScriptedDriver::usual().DornLineAlert;
            driver.ring(4, data);
            return 0;
        };
    }
};

}  // namespace

// ---- a call is taken up ---------------------------------------------------------------------------------------------

TEST_F(StandingAside, LastsAsLongAsAnAnsweredCall) {
    offer_call(0);
    EXPECT_EQ(answer(), 0x21);
    new_chapter();
    sleep_gate(6000).open();
    EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
    EXPECT_TRUE(reads(story(), {
                                   "[4] pLine->eLineState = 0x6 Wait for ring_det_wait_event.",
                                   "[4] RING_DET_THREAD: call connected",
                               }));
    EXPECT_TRUE(reads(handshake(), {
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "ReleaseMutex(LOCK)",
                                       "WaitForSingleObject(RING_DET_WAIT, INFINITE)",
                                   }));
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=0)"));
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: call connected and now idle"));
}

TEST_F(StandingAside, BeginsWhenACallIsAccepted) {
    offer_call(0);
    EXPECT_EQ(accept(), 0x21);
    new_chapter();
    sleep_gate(6000).open();
    EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
    EXPECT_TRUE(reads(story(), {
                                   "[4] pLine->eLineState = 0x5 Wait for ring_det_wait_event.",
                                   "[4] RING_DET_THREAD: call connected",
                               }));
    EXPECT_EQ(answer(), 0x21);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=0)"));
}

TEST_F(StandingAside, IsFollowedByANewCallWithItsFirstRing) {
    take_call(0);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, OFFERING, 0x1, 0x20)"));
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: number of incoming rings = 1  NRINGS = 1"));
}

TEST_F(StandingAside, MissesACallAcceptedAfterThePauseUntilTheNextRing) {
    offer_call_and_wait();
    EXPECT_EQ(accept(), 0x21);
    new_chapter();
    ring_again();
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: call not connected, eLineState(4)"));
    // The ring has set the state back, and an answer takes the call all the same.
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"));
}

// ---- an alert -------------------------------------------------------------------------------------------------------

TEST_F(StandingAside, FollowsAnAlert) {
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(comes("LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"));
    worker_ends();
    EXPECT_TRUE(reads_in_order(traces(),
                               {"[4] LumLineWaitForCall res.status = KX_STATUS_ALERT", "[4] Ring_det received alert"}));
    EXPECT_FALSE(driver.waits_for_call(4, 0));
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=0)"));
}

TEST_F(StandingAside, ResetsItsOwnEventBeforeItAnswersTheAlert) {
    // A dial string that is refused leaves nothing but the meeting with the thread.
    EXPECT_EQ(make_call(L"$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(signals()
                          .without({"LINE_<*>"})
                          .on_thread(entries(windows_calls().only({"SetEvent(WORKER_IDLE)"})).at(0).thread),
                      {
                          "ResetEvent(RING_DET_WAIT)",
                          "SetEvent(WORKER_IDLE)",
                          "WaitForSingleObject(RING_DET_WAIT, INFINITE)",
                      }));
}

TEST_F(StandingAside, KeepsTheRingCountAndTheTimeOutOverAnAlert) {
    offer_call_and_wait();
    new_chapter();
    // The call is closed by its alert, which interrupts the wait for its next ring.
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(comes("DornLineWaitForCallISDN(CHAN4, timeout=12000)"));
    EXPECT_TRUE(holds(traces(), "[4] Ring_det received alert"));
    EXPECT_TRUE(driver.waits_for_call(4));
    new_chapter();
    ring_again();
    EXPECT_TRUE(reads(events(), {"LINE_LINEDEVSTATE(HTLINE1, 0, RINGING, 0x1, 0x2)"}));
}

// ---- a collision ----------------------------------------------------------------------------------------------------

TEST_F(StandingAside, LetsAnIncomingCallWinOverAnOutgoingOne) {
    ring_instead_of_the_alert({"5551234"});
    sleep_gate(6000).close();
    EXPECT_EQ(make_call(), failed(LINEERR_CALLUNAVAIL));
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
    EXPECT_TRUE(
        reads(on_this_thread(story()), {
                                           "[16] " + kNoCall + "TSPI_lineMakeCall",
                                           "DornLineAlert(unit=14)",
                                           "[4] !!!!!! Did you know !!!!!!!!!",
                                           "[4] TSPI_lineMakeCall - WaitForSingleObject() result= (WAIT_OBJECT_0)",
                                           "[4] MakeCall: collision detected, backing off",
                                           "[17] <*>TSPI_lineMakeCall(-2147483643) Failed",
                                       }));
    EXPECT_TRUE(reads_in_order(
        traces(), {"[4] Did not Timeout", "[4] r_d_t: Collision detected", "[4] " + kNoCall + "Sending LINE_NEWCALL"}));
    EXPECT_TRUE(reads_in_order(all_of(TRACE | WINDOWS),
                               {"ResetEvent(RING_DET_WAIT)", "ReleaseMutex(LOCK)", "SetEvent(WORKER_IDLE)",
                                "[4] r_d_t: Collision detected", "WaitForSingleObject(RING_DET_WAIT, INFINITE)"}));
    EXPECT_TRUE(reads(events(), {
                                    "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                    "LINE_CALLSTATE(HTLINE1, HTCALL2, OFFERING, 0x1, 0x20)",
                                    "LINE_LINEDEVSTATE(HTLINE1, HTCALL2, NUMCALLS, 0x0, 0x0)",
                                    "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                    "LINE_CALLINFO(HTLINE1, HTCALL2, CALLEDID, 0x0, 0x0)",
                                    "LINE_LINEDEVSTATE(HTLINE1, HTCALL2, RINGING, 0x1, 0x1)",
                                }));
    EXPECT_TRUE(reads(completions(), {}));
}

TEST_F(StandingAside, AnswersTheOutgoingCallOfACollisionAndWaitsForItsRetreat) {
    ring_instead_of_the_alert();
    sleep_gate(6000).close();
    EXPECT_EQ(make_call(), failed(LINEERR_CALLUNAVAIL));
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
    DWORD ring_thread = entries(windows_calls().only({"Sleep(6000)"})).at(0).thread;
    EXPECT_TRUE(reads(all_of(WINDOWS)
                          .only({"SetEvent(<*>", "ResetEvent(<*>", "WaitFor<*>", "ReleaseMutex(<*>", "Sleep(<*>"})
                          .on_thread(ring_thread)
                          .without({"Reg<*>"}),
                      {
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ResetEvent(RING_DET_WAIT)",
                          "ReleaseMutex(LOCK)",
                          "SetEvent(WORKER_IDLE)",
                          "WaitForSingleObject(RING_DET_WAIT, INFINITE)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ResetEvent(RING_DET_WAIT)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "ReleaseMutex(LOCK)",
                          "ReleaseMutex(LOCK)",
                          "Sleep(6000)",
                      }));
    EXPECT_TRUE(reads(on_this_thread(signals()), {
                                                     "ResetEvent(WORKER_IDLE)",
                                                     "WaitForSingleObject(WORKER_IDLE, 500)",
                                                     "SetEvent(RING_DET_WAIT)",
                                                 }));
}

TEST_F(StandingAside, LetsTheWinningCallBeAnswered) {
    ring_instead_of_the_alert();
    sleep_gate(6000).close();
    EXPECT_EQ(make_call(), failed(LINEERR_CALLUNAVAIL));
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL2, CONNECTED, 0x1, 0x20)"));
    sleep_gate(6000).open();
    EXPECT_TRUE(comes("[4] RING_DET_THREAD: call connected"));
}

// ---- driver errors --------------------------------------------------------------------------------------------------

class DriverErrorInTheWait : public StandingAside, public testing::WithParamInterface<uint32_t> {};

TEST_P(DriverErrorInTheWait, ResetsTheChannelUnderTheLockAndWaitsOn) {
    driver.wait_ends(4, GetParam(), 353);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(
        story(), joined({{"[4] Ring_det received error!"}, kReset, {"DornLineWaitForCallISDN(CHAN4, timeout=0)"}})));
    EXPECT_TRUE(reads(all_of(DRIVER | WINDOWS).without({"Reg<*>"}), {
                                                                        "WaitForSingleObject(LOCK, INFINITE)",
                                                                        "DornLineReset(CHAN4, <*>",
                                                                        "ReleaseMutex(LOCK)",
                                                                        "DornLineWaitForCallISDN(CHAN4, timeout=0)",
                                                                    }));
}

INSTANTIATE_TEST_SUITE_P(EachStatus, DriverErrorInTheWait, testing::Values(1u, 2u, 3u, 4u, 5u, 8u, 0xFFFFFFFFu));

TEST_F(StandingAside, DoesNotFollowADriverErrorThatClearsAnOfferedCall) {
    offer_call_and_wait();
    new_chapter();
    driver.wait_ends(4, KX_STATUS_ERROR);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads(story(), joined({{"[4] Ring_det received error!", "DornLineTerminateCallISDN(CHAN4)"},
                                       kReset,
                                       {"DornLineWaitForCallISDN(CHAN4, timeout=12000)"}})));
}

TEST_F(StandingAside, DoesNotFollowAResetThatFails) {
    driver.channel(4).reset_result = -1;
    driver.wait_ends(4, KX_STATUS_ERROR);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(reads_in_order(story(), {"[4] Ring_det received error!", "DornErrorMessage(CHAN4)",
                                         "DornLineWaitForCallISDN(CHAN4, timeout=0)"}));
    driver.channel(4).reset_result = 0;
}

TEST_F(StandingAside, DoesNotFollowAnExceptionOfTheDriver) {
    bool first = true;
    driver.on.DornLineWaitForCallISDN = [&](DornLine* line, DornWaitForCallRecord* record) {
        if (!first) return ScriptedDriver::usual().DornLineWaitForCallISDN(line, record);
        first = false;
        throw 1;
    };
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(comes("[1] ring_det_thread: Exception"));
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(windows.all_threads_end(kPatience));
}

TEST_F(StandingAside, LeavesTheLockAfterAnExceptionUnderIt) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    driver.wait_ends(4, KX_STATUS_ERROR);
    EXPECT_TRUE(comes("[1] ring_det_thread: Exception"));
    EXPECT_EQ(close_line(0), 0);
}
