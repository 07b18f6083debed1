// The close of a line at every stage of a call, and alerts that find its thread outside the driver.
#include <atomic>
#include <cstring>
#include <memory>

#include "harness.h"
#include "holding.h"
#include "line_fixture.h"

using namespace harness;

namespace {

const std::string kParkedThread = "WaitForSingleObject(RING_DET_WAIT, INFINITE)";

class LineCloseRace : public LineFixture {
  protected:
    // After the first alert of the close in vain the gate opens; the second one finds the thread in the driver.
    void open_after_the_first_alert(Gate& gate) {
        windows.objects.on_wait = [&](HANDLE object, DWORD milliseconds) -> std::optional<DWORD> {
            if (milliseconds != 1000) return std::nullopt;
            if (opened.exchange(true)) return WaitForSingleObject(object, kPatience);
            EXPECT_FALSE(is_held("LOCK"));
            gate.open();
            EXPECT_TRUE(driver.waits_for_call(4));
            return WAIT_TIMEOUT;
        };
    }

    std::atomic<bool> opened = false;
};

}  // namespace

TEST_F(LineCloseRace, AlertsAThreadAgainThatWasBeforeItsWait) {
    Gate& before_the_wait = driver.gate("DornLineWaitForCallISDN");
    before_the_wait.close();
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(before_the_wait.holds_somebody());
    new_chapter();
    open_after_the_first_alert(before_the_wait);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(story(), {
                                   "[16] " + kNoCall + "TSPI_lineClose",
                                   "DornLineAlert(unit=14)",
                                   "[4] TSPI_lineClose - Unlock #03",
                                   "DornLineAlert(unit=14)",
                                   "<*>",
                                   "<*>",
                                   "[4] ring_det_thread should be IDLE",
                                   "DornSessionDetach(CHAN4)",
                                   "[4] TSPI_lineClose - Unlock #04",
                                   "[17] TSPI_lineClose(0) Good",
                               }));
    EXPECT_TRUE(holds(traces(), "[4] LumLineWaitForCall res.status = KX_STATUS_ALERT"));
}

TEST_F(LineCloseRace, WakesTheThreadOfAnOfferedCallWithTheFirstAlertAfterItsPause) {
    offer_call(0);
    new_chapter();
    open_after_the_first_alert(sleep_gate(6000));
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(all_of(DRIVER).without({"DornSessionDetach(<*>"}), {
                                                                             "DornLineAlert(unit=14)",
                                                                             "DornLineAlert(unit=14)",
                                                                             "DornLineTerminateCallISDN(CHAN4)",
                                                                             "DornLineReset(CHAN4, <*>",
                                                                             "DornLineAlert(unit=14)",
                                                                             "DornLineWaitForCallISDN(CHAN4, "
                                                                             "timeout=12000)",
                                                                             "DornLineAlert(unit=14)",
                                                                         }));
    EXPECT_TRUE(reads_in_order(traces(), {"[4] RING_DET_THREAD: call not connected, eLineState(0)",
                                          "[4] LumLineWaitForCall res.status = KX_STATUS_ALERT"}));
}

// ---- another thread closes the call ---------------------------------------------------------------------------------

TEST_F(LineCloseRace, WaitsForACloseOfTheCallThatGetsTheLockBeforeItsOwn) {
    take_call(0);
    const HDRVCALL taken = call(0);
    new_chapter();
    driver.gate("DornLineReset").close();
    sleep_gate(500).close();
    std::atomic<DWORD> closing_thread = 0;
    std::unique_ptr<Call> faster;
    windows.objects.on_wait = [&, locks = 0](HANDLE object, DWORD) mutable -> std::optional<DWORD> {
        if (GetCurrentThreadId() != closing_thread || object_name(object) != "LOCK" || ++locks != 2)
            return std::nullopt;
        faster = std::make_unique<Call>([=] { return tsp.TSPI_lineCloseCall(taken); });
        EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());
        return std::nullopt;
    };
    Call closing([&] {
        closing_thread = GetCurrentThreadId();
        return close_line(0);
    });
    EXPECT_TRUE(sleep_gate(500).holds_somebody());
    driver.gate("DornLineReset").open();
    EXPECT_EQ(faster->result(), 0);
    sleep_gate(500).open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads(traces().on_thread(closing.thread()).only({"[4] TSPI_lineClose<*>"}),
                      {"[4] TSPI_lineClose - Unlock #01", "[4] TSPI_lineClose - Unlock #02",
                       "[4] TSPI_lineClose - Unlock #03", "[4] TSPI_lineClose - Unlock #04"}));
    EXPECT_EQ(driver.attached(), 0u);
}

TEST_F(LineCloseRace, ClosesACallThatCameInAfterTheOneThatAnotherThreadWasClosing) {
    take_call(0);
    driver.gate("DornLineReset").close();
    Call closing_the_call([this] { return close_call(); });
    EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());
    sleep_gate(500).close();
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(sleep_gate(500).holds_somebody());
    driver.gate("DornLineReset").open();
    EXPECT_EQ(closing_the_call.result(), 0);
    offer_call(0);
    new_chapter();
    windows.objects.longest_wait = 20;
    sleep_gate(500).open();
    EXPECT_TRUE(comes("[4] TSPI_lineClose - Unlock #03"));
    sleep_gate(6000).open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(
        reads(all_of(TRACE | EVENT)
                  .only({"[4] TSPI_lineClose - Unlock #01", "[4] TSPI_lineClose - Unlock #02", "LINE_CALLSTATE(<*>"}),
              {"[4] TSPI_lineClose - Unlock #01", "LINE_CALLSTATE(HTLINE1, HTCALL2, IDLE, 0x0, 0x20)"}));
    EXPECT_EQ(driver.attached(), 0u);
}

// ---- a thread that stands aside for nobody --------------------------------------------------------------------------

// A refused number leaves the request in the line's state, and the next ring gives way to a call that is not made.
TEST_F(LineCloseRace, WakesAThreadThatGaveWayToARefusedCallWhenItAnswersNoAlertForHalfAMinute) {
    EXPECT_EQ(make_call(L"12$34"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(driver.waits_for_call(4));
    driver.ring(4);
    EXPECT_TRUE(comes("[4] r_d_t: Collision detected"));
    new_chapter();
    windows.objects.longest_wait = 5;
    EXPECT_EQ(close_line(0), 0);
    const auto woken = entries(all_of(TRACE | WINDOWS).only({"[4] TSPI_lineClose - Unlock #03", "SetEvent(RING<*>"}));
    ASSERT_GT(woken.size(), 30u);
    EXPECT_EQ(woken[29].kind, TRACE);
    EXPECT_EQ(woken[30].kind, WINDOWS);
    EXPECT_EQ(driver.attached(), 0u);
}

// The thread tells of a collision after it has given the lock up; the close must not take that for its end.
TEST_F(LineCloseRace, DoesNotTakeACollisionForTheEndOfTheThread) {
    EXPECT_EQ(make_call(L"12$34"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(driver.waits_for_call(4));
    Gate before_the_signal;
    before_the_signal.close();
    const DWORD test_thread = GetCurrentThreadId();
    std::atomic<bool> held = false;
    driver.on.QorvLogLogMsg = [&](uint32_t, int level, const char* line, const char*, uint32_t) {
        if (level != 9 || !std::strstr(line, ": unlock_line") || GetCurrentThreadId() == test_thread) return;
        if (!held.exchange(true)) before_the_signal.pass();
    };
    driver.ring(4);
    EXPECT_TRUE(before_the_signal.holds_somebody());
    new_chapter();
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(comes("[4] TSPI_lineClose - Unlock #03"));
    before_the_signal.open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads_in_order(
        all_of(TRACE | DRIVER | WINDOWS).levels({4, 9}),
        {"SetEvent(WORKER_IDLE)", "ResetEvent(WORKER_IDLE)", "SetEvent(RING_DET_WAIT)", "[9] <*>: ring_det_thread",
         "SetEvent(WORKER_IDLE)", "[4] ring_det_thread should be IDLE", "DornSessionDetach(CHAN4)"}));
}

// ---- every stage of a call ------------------------------------------------------------------------------------------

namespace {

enum class Stage { InThePauseOfARing, BetweenTwoRings, Accepted, Answered, DialledAndConnected, InSetup };

class CloseOfALine : public LineFixture, public testing::WithParamInterface<Stage> {
  protected:
    void bring_the_call_to(Stage stage) {
        switch (stage) {
            case Stage::InThePauseOfARing:
                return offer_call(0);
            case Stage::BetweenTwoRings:
                return offer_call_and_wait();
            case Stage::Accepted:
                offer_call(0);
                EXPECT_EQ(accept(), 0x21);
                sleep_gate(6000).open();
                EXPECT_TRUE(comes(kParkedThread));
                return;
            case Stage::Answered:
                return take_call(0);
            case Stage::DialledAndConnected:
                return place_call(0);
            case Stage::InSetup:
                return place_call_that_lasts();
        }
    }
};

std::string name_of_stage(const testing::TestParamInfo<Stage>& stage) {
    static const char* const names[] = {"InThePauseOfARing", "BetweenTwoRings",     "Accepted",
                                        "Answered",          "DialledAndConnected", "InSetup"};
    return names[static_cast<int>(stage.param)];
}

INSTANTIATE_TEST_SUITE_P(WithACall, CloseOfALine,
                         testing::Values(Stage::InThePauseOfARing, Stage::BetweenTwoRings, Stage::Accepted,
                                         Stage::Answered, Stage::DialledAndConnected, Stage::InSetup),
                         name_of_stage);

}  // namespace

TEST_P(CloseOfALine, EndsTheCallFirstAndSaysNothingAfterwards) {
    bring_the_call_to(GetParam());
    const size_t objects = windows.objects.open.size();
    new_chapter();
    windows.objects.on_wait = [](HANDLE object, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 1000) return std::nullopt;
        sleep_gate(6000).open();
        return WaitForSingleObject(object, 20);
    };
    EXPECT_EQ(close_line(0), 0);
    note("closed");
    EXPECT_TRUE(windows.all_threads_end(kPatience));
    const Lines given_up = {
        text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%X, 0x20)", LINEDISCONNECTMODE_UNAVAIL),
        "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"};
    EXPECT_TRUE(reads(all_of(EVENT | COMPLETION | NOTE),
                      joined({GetParam() == Stage::InSetup ? given_up : kCallIsOver, {"closed"}})));
    EXPECT_TRUE(reads_in_order(driver_calls(), {"DornLineAlert(unit=14)", "DornLineReset(CHAN4, <*>",
                                                "DornLineAlert(unit=14)", "DornSessionDetach(CHAN4)"}));
    EXPECT_EQ(driver.attached(), 0u);
    EXPECT_EQ(windows.objects.open.size(), objects - 4);
}
