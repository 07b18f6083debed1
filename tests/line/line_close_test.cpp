// Closing a line: its call is closed first, its thread is alerted until it ends, and everything is given back.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class LineClose : public LineFixture {
  protected:
    // The line's alerts do not reach the thread; instead the wait for a call ends in another way.
    static void alerts_end_the_wait_with(uint32_t status, uint32_t line_status) {
        driver.on.DornLineAlert = [=](DornAlertRecord*) { return driver.wait_ends(4, status, line_status), 0; };
    }

    // The thread ended without another look at the call or the driver.
    static void expect_only_the_exit_of_the_thread() {
        EXPECT_TRUE(reads(events(), {}));
        EXPECT_TRUE(reads(driver_calls(), {"DornLineAlert(unit=14)", "DornSessionDetach(CHAN4)"}));
        EXPECT_TRUE(reads_in_order(
            all_of(TRACE | WINDOWS).levels({4, 9}),
            {"[9] " + kNoCall + "ring_det_thread", "SetEvent(WORKER_IDLE)", "[4] ring_det_thread should be IDLE"}));
    }
};

}  // namespace

TEST_F(LineClose, AlertsTheThreadUntilItEndsAndGivesEverythingBack) {
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(on_this_thread(story()), {
                                                   "[16] " + kNoCall + "TSPI_lineClose",
                                                   "DornLineAlert(unit=14)",
                                                   "[4] TSPI_lineClose - Unlock #03",
                                                   "[4] ring_det_thread should be IDLE",
                                                   "DornSessionDetach(CHAN4)",
                                                   "[4] TSPI_lineClose - Unlock #04",
                                                   "[17] TSPI_lineClose(0) Good",
                                               }));
    EXPECT_EQ(driver.attached(), 0u);
}

TEST_F(LineClose, WaitsForTheThreadWithoutTheLockAndDetachesWithIt) {
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(on_this_thread(all_of(DRIVER | WINDOWS)), {
                                                                    "WaitForSingleObject(LOCK, INFINITE)",
                                                                    "ResetEvent(WORKER_IDLE)",
                                                                    "DornLineAlert(unit=14)",
                                                                    "ReleaseMutex(LOCK)",
                                                                    "WaitForSingleObject(WORKER_IDLE, 1000)",
                                                                    "WaitForSingleObject(LOCK, INFINITE)",
                                                                    "DornSessionDetach(CHAN4)",
                                                                    "ReleaseMutex(LOCK)",
                                                                    "CloseHandle(LOCK)",
                                                                    "CloseHandle(WORKER_IDLE)",
                                                                    "CloseHandle(DROP_DONE)",
                                                                    "CloseHandle(RING_DET_WAIT)",
                                                                }));
}

TEST_F(LineClose, AlertsAgainAfterEverySecondThatTheThreadDoesNotAnswer) {
    int deaf = 2;
    driver.on.DornLineAlert = [&](DornAlertRecord* record) {
        return deaf-- > 0 ? 0 : ScriptedDriver::usual().DornLineAlert(record);
    };
    shorten_waits(1000);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(
        reads_in_order(on_this_thread(all_of(TRACE | DRIVER | WINDOWS)), {
                                                                             "DornLineAlert(unit=14)",
                                                                             "[4] TSPI_lineClose - Unlock #03",
                                                                             "WaitForSingleObject(WORKER_IDLE, 1000)",
                                                                             "DornLineAlert(unit=14)",
                                                                             "[4] TSPI_lineClose - Unlock #03",
                                                                             "WaitForSingleObject(WORKER_IDLE, 1000)",
                                                                             "DornLineAlert(unit=14)",
                                                                             "[4] TSPI_lineClose - Unlock #03",
                                                                             "WaitForSingleObject(WORKER_IDLE, 1000)",
                                                                             "[4] ring_det_thread should be IDLE",
                                                                         }));
    EXPECT_GE(count(driver_calls(), "DornLineAlert(<*>"), 3u);
}

TEST_F(LineClose, FailsOnAHandleThatIsNoLine) {
    HDRVLINE closed = line(0);
    EXPECT_EQ(close_line(0), 0);
    new_chapter();
    EXPECT_EQ(tsp.TSPI_lineClose(closed), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(reads_in_order(
        traces(), {"[16] <*>TSPI_lineClose", "[4] Invalid line handle", "[17] <*>TSPI_lineClose(-2147483576) Failed"}));
    EXPECT_TRUE(reads(driver_calls(), {}));
}

TEST_F(LineClose, FailsOnANullHandle) {
    EXPECT_EQ(tsp.TSPI_lineClose(nullptr), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(
        reads(traces(), {"[16] TSPI_lineClose", "[4] Invalid line handle", "[17] TSPI_lineClose(-2147483576) Failed"}));
}

TEST_F(LineClose, LeavesTheOtherLineAlone) {
    open_waiting_line(1);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineAlert(unit=15)"));
    EXPECT_TRUE(driver.waits_for_call(5));
    offer_call(1);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE2, HTCALL1, OFFERING, 0x1, 0x20)"));
}

// ---- the way out of the thread --------------------------------------------------------------------------------------

TEST_F(LineClose, EndsTheThreadByTheAlert) {
    EXPECT_EQ(close_line(0), 0);
    expect_only_the_exit_of_the_thread();
    EXPECT_TRUE(holds_no(traces(), "[4] Ring_det received alert"));
}

TEST_F(LineClose, EndsTheThreadOnARingAsWell) {
    alerts_end_the_wait_with(KX_STATUS_OK, 1);
    EXPECT_EQ(close_line(0), 0);
    expect_only_the_exit_of_the_thread();
    EXPECT_TRUE(reads_in_order(traces(), {"[4] Did not Timeout", "[4] res.line_status = 1"}));
}

TEST_F(LineClose, EndsTheThreadWhenTheRingsHaveStopped) {
    alerts_end_the_wait_with(KX_STATUS_OK, 353);
    EXPECT_EQ(close_line(0), 0);
    expect_only_the_exit_of_the_thread();
}

TEST_F(LineClose, EndsTheThreadOnATimeOutOfTheWait) {
    alerts_end_the_wait_with(KX_STATUS_TIMEOUT, 0);
    EXPECT_EQ(close_line(0), 0);
    expect_only_the_exit_of_the_thread();
}

TEST_F(LineClose, DoesNotEndTheThreadOnADriverError) {
    bool first = true;
    driver.on.DornLineAlert = [&](DornAlertRecord* record) {
        if (!first) return ScriptedDriver::usual().DornLineAlert(record);
        first = false;
        return driver.wait_ends(4, KX_STATUS_ERROR), 0;
    };
    shorten_waits(1000);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads_in_order(story(), {
                                            "DornLineAlert(unit=14)",
                                            "[4] Ring_det received error!",
                                            "DornLineReset(CHAN4, <*>",
                                            "DornLineWaitForCallISDN(CHAN4, timeout=0)",
                                            "[4] LumLineWaitForCall res.status = KX_STATUS_ALERT",
                                            "[4] ring_det_thread should be IDLE",
                                        }));
}

TEST_F(LineClose, EndsTheThreadInThePauseAfterTheTwentyFirstRing) {
    offer_call_and_wait();
    for (int ring = 2; ring <= 20; ++ring) ring_again();
    new_chapter();
    offer_call(0);
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(comes("[4] TSPI_lineClose - Unlock #03"));
    sleep_gate(6000).open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineWaitForCallISDN(<*>"));
    EXPECT_TRUE(reads_in_order(traces().levels({4, 9}), {
                                                            "[4] RING_DET_THREAD: call not connected, eLineState(0)",
                                                            "[9] " + kNoCall + "ring_det_thread",
                                                            "[4] ring_det_thread should be IDLE",
                                                        }));
    EXPECT_TRUE(holds_no(traces(), "[4] Previous NEWCALL<*>"));
}

// ---- with a call ----------------------------------------------------------------------------------------------------

TEST_F(LineClose, ClosesTheCallFirst) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads_in_order(on_this_thread(story()), {
                                                            "[16] " + kCall + "TSPI_lineClose",
                                                            "[4] TSPI_lineClose - Unlock #01",
                                                            "[16] " + kCall + "TSPI_lineCloseCall",
                                                            "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                                                            "DornLineReset(CHAN4, <*>",
                                                            "[17] " + kNoCall + "TSPI_lineCloseCall(0) Good",
                                                            "DornLineAlert(unit=14)",
                                                            "[4] TSPI_lineClose - Unlock #03",
                                                            "[4] ring_det_thread should be IDLE",
                                                            "DornSessionDetach(CHAN4)",
                                                            "[17] TSPI_lineClose(0) Good",
                                                        }));
    EXPECT_TRUE(holds_no(traces(), "[4] TSPI_lineClose - Unlock #02"));
}

TEST_F(LineClose, WaitsInHalfSecondsForAThreadThatIsClosingTheCall) {
    take_call(0);
    new_chapter();
    driver.gate("DornLineReset").close();
    Call closing_the_call([this] { return close_call(); });
    EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());

    sleep_gate(500).close();
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(sleep_gate(500).holds_somebody());
    sleep_gate(500).open_once();
    EXPECT_TRUE(comes("Sleep(500)", 2));
    EXPECT_TRUE(sleep_gate(500).holds_somebody());
    driver.gate("DornLineReset").open();
    EXPECT_EQ(closing_the_call.result(), 0);
    sleep_gate(500).open();

    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads(all_of(TRACE | WINDOWS).on_thread(closing.thread()).only({"[4] TSPI_lineClose<*>", "Sleep(<*>"}),
                      {
                          "[4] TSPI_lineClose - Unlock #02",
                          "Sleep(500)",
                          "[4] TSPI_lineClose - Unlock #02",
                          "Sleep(500)",
                          "[4] TSPI_lineClose - Unlock #03",
                          "[4] TSPI_lineClose - Unlock #04",
                      }));
    EXPECT_EQ(count(events(), "LINE_CALLSTATE(<*>IDLE<*>"), 1u);
}

TEST_F(LineClose, ClosesAnOutgoingCallAndItsLine) {
    place_call(0);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"));
    EXPECT_EQ(driver.attached(), 0u);
}

// ---- exceptions -----------------------------------------------------------------------------------------------------

TEST_F(LineClose, CatchesAnExceptionAndGivesTheLockBack) {
    driver.on.DornLineAlert = [](DornAlertRecord*) -> int { throw 1; };
    EXPECT_TRUE(reports_an_exception("TSPI_lineClose", [this] { return tsp.TSPI_lineClose(line(0)); }));
    EXPECT_TRUE(lock_is_given_back());
}
