// A drop at each step of an outgoing call's worker, and drops and closes at the same moment.
#include <atomic>

#include "harness.h"
#include "holding.h"
#include "line_fixture.h"

using namespace harness;

namespace {

const std::string kForTheWorker = "WaitForSingleObject(WORKER_IDLE, INFINITE)";
const std::string kConnected = "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)";
const std::string kIdle = "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)";

View call_states() {
    return events().only({"LINE_CALLSTATE(<*>"});
}

class DropRace : public LineFixture {
  protected:
    // The far end does not answer before the channel is alerted or released.
    static void let_the_far_end_ring() {
        driver.on.DornCallWaitForComplete = [](DornLine* line, DornCallRecord* record) {
            const bool alerted = driver.block(line);
            ScriptedDriver::usual().DornCallWaitForComplete(line, record);
            if (alerted) record->status = KX_STATUS_ALERT;
            return 0;
        };
    }
    // The worker of an outgoing call stands in front of a driver function.
    void place_call_until(const std::string& function) {
        driver.gate(function).close();
        EXPECT_EQ(make_call(), 0x21);
        EXPECT_TRUE(driver.gate(function).holds_somebody());
        new_chapter();
    }
    void place_call_that_does_not_hear() {
        place_call_that_lasts();
        driver.on.DornLineAlert = [](DornAlertRecord*) { return 0; };
        new_chapter();
    }
    void expect_the_line_free() {
        EXPECT_EQ(close_call(), 0);
        EXPECT_TRUE(driver.waits_for_call(4));
        EXPECT_FALSE(is_held("LOCK"));
    }

    Gate held;
};

class CloseRace : public DropRace {};

}  // namespace

// ---- a drop and the worker ------------------------------------------------------------------------------------------

TEST_F(DropRace, InterruptsTheWaitForTheFarEnd) {
    let_the_far_end_ring();
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(comes("DornCallWaitForComplete(<*>"));
    EXPECT_TRUE(driver.is_blocked(4));
    EXPECT_FALSE(is_held("LOCK"));
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(reads_in_order(
        all_of(DRIVER | EVENT | COMPLETION),
        {
            "DornLineAlert(unit=14)",
            text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%X, 0x20)", LINEDISCONNECTMODE_UNAVAIL),
            "DornLineReset(CHAN4, <*>",
            kIdle,
            "DornLineTerminateCallISDN(CHAN4)",
            "completion(request=0x21, result=0x0)",
            "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
            "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
        }));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(<*>"), 1u);
    EXPECT_EQ(lines(call_states()).size(), 2u);
    expect_the_line_free();
}

// The alert finds the worker between two calls of the driver and is lost: the far end is heard out, and TAPI sees the
// call connected before it is idle.
class DropBetweenTwoDriverCalls : public DropRace, public testing::WithParamInterface<const char*> {};

TEST_P(DropBetweenTwoDriverCalls, WaitsUntilTheCallIsConnectedAndClearsIt) {
    place_call_until(GetParam());
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(comes(kForTheWorker));
    EXPECT_FALSE(dropping.has_returned());
    EXPECT_FALSE(is_held("LOCK"));
    driver.gate(GetParam()).open();
    EXPECT_EQ(dropping.result(), 0x21);
    EXPECT_TRUE(reads(call_states(), {kConnected, kIdle}));
    EXPECT_TRUE(reads_in_order(all_of(DRIVER | EVENT | COMPLETION),
                               {"DornLineAlert(unit=14)", kConnected, "DornLineTerminateCallISDN(CHAN4)", kIdle,
                                "completion(request=0x21, result=0x0)"}));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(<*>"), 1u);
    EXPECT_EQ(lines(completions()).size(), 1u);
    expect_the_line_free();
}

INSTANTIATE_TEST_SUITE_P(Before, DropBetweenTwoDriverCalls,
                         testing::Values("DornCallWaitForComplete", "DornLineStateAccess"),
                         [](const auto& function) { return std::string(function.param); });

TEST_F(DropRace, RightAfterTheConnectWaitsForTheWorkersEnd) {
    std::atomic<DWORD> worker = 0;
    held.close();
    tapi.on_event = [&](const LineEvent& event) {
        if (event.message == LINE_CALLSTATE && event.parameters[0] == LINECALLSTATE_CONNECTED)
            worker = GetCurrentThreadId();
    };
    windows.objects.on_wait = [&](HANDLE object, DWORD) -> std::optional<DWORD> {
        if (worker == GetCurrentThreadId() && object_name(object) == "LOCK") held.pass();
        return std::nullopt;
    };
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(held.holds_somebody());
    EXPECT_FALSE(is_held("LOCK"));
    new_chapter();
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(comes(kForTheWorker));
    EXPECT_TRUE(reads(events(), {}));
    held.open();
    EXPECT_EQ(dropping.result(), 0x21);
    EXPECT_TRUE(reads(all_of(DRIVER | EVENT | COMPLETION), {
                                                               "DornLineAlert(unit=14)",
                                                               "DornLineTerminateCallISDN(CHAN4)",
                                                               kIdle,
                                                               "completion(request=0x21, result=0x0)",
                                                               "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, "
                                                               "0x0)",
                                                               "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                           }));
    windows.objects.on_wait = nullptr;
    tapi.on_event = nullptr;
    expect_the_line_free();
}

// ---- two closes, a drop and a close ---------------------------------------------------------------------------------

TEST_F(CloseRace, HasTheLockWhileASecondOneAndADropComeInVain) {
    take_call(0);
    new_chapter();
    driver.gate("DornLineAlert").close();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(driver.gate("DornLineAlert").holds_somebody());
    EXPECT_TRUE(is_held("LOCK"));
    Call dropping([this] { return drop(); });
    Call closing_too([this] { return close_call(); });
    EXPECT_TRUE(waits_for(dropping, "LOCK"));
    EXPECT_TRUE(waits_for(closing_too, "LOCK"));
    driver.gate("DornLineAlert").open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_EQ(dropping.result(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_EQ(closing_too.result(), 0);
    EXPECT_TRUE(reads(driver_calls().on_thread(closing_too.thread()), {}));
    EXPECT_TRUE(reads(driver_calls().on_thread(dropping.thread()), {}));
    EXPECT_TRUE(reads(completions(), {}));
    EXPECT_TRUE(reads(call_states(), {kIdle}));
    EXPECT_EQ(count(driver_calls(), "DornLineReset(<*>"), 1u);
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseRace, FindsTheCallIdleWhenADropHadTheLockBefore) {
    take_call(0);
    new_chapter();
    held.close();
    tapi.on_completion = [this](DRV_REQUESTID, LONG) { held.pass(); };
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(held.holds_somebody());
    EXPECT_TRUE(is_held("LOCK"));
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(waits_for(closing, "LOCK"));
    held.open();
    EXPECT_EQ(dropping.result(), 0x21);
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads(all_of(DRIVER | EVENT | COMPLETION).without({"DornLineWaitForCallISDN(<*>"}),
                      {
                          kIdle,
                          "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                          "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                          "completion(request=0x21, result=0x0)",
                          "DornLineAlert(unit=14)",
                          "DornLineAlert(unit=14)",
                          "DornLineTerminateCallISDN(CHAN4)",
                          "DornLineReset(CHAN4, <*>",
                      }));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseRace, LeavesNothingToASecondOneOrToADropWhileItWaitsForTheWorker) {
    place_call_that_does_not_hear();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes(kForTheWorker));
    EXPECT_FALSE(is_held("LOCK"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(reads(on_this_thread(driver_calls()), {}));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(unit=14)"), 2u);
    driver.release(4);
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads(call_states(), {"LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x20)", kConnected, kIdle}));
    EXPECT_TRUE(reads(completions(), {}));
    EXPECT_EQ(count(driver_calls(), "DornLineReset(<*>"), 1u);
    EXPECT_TRUE(driver.waits_for_call(4));
}

// ---- a close and the worker -----------------------------------------------------------------------------------------

TEST_F(CloseRace, WakesTheWorkerWithItsSecondAlertWhenTheFirstFallsBetweenTwoDriverCalls) {
    let_the_far_end_ring();
    place_call_until("DornCallWaitForComplete");
    HoldAfterTheAlert after_the_alert("LOCK");
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(after_the_alert.holds_somebody());
    EXPECT_FALSE(is_held("LOCK"));
    driver.gate("DornCallWaitForComplete").open();
    EXPECT_TRUE(driver.is_blocked(4));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(<*>"), 1u);
    after_the_alert.open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(<*>"), 2u);
    EXPECT_TRUE(
        reads(call_states(),
              {text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%X, 0x20)", LINEDISCONNECTMODE_UNAVAIL), kIdle}));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(CloseRace, LastsAsLongAsTheDriverDoesWhenBothItsAlertsFallBetweenTwoDriverCalls) {
    let_the_far_end_ring();
    place_call_until("DornCallWaitForComplete");
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes(kForTheWorker));
    driver.gate("DornCallWaitForComplete").open();
    EXPECT_TRUE(driver.is_blocked(4));
    EXPECT_FALSE(closing.has_returned());
    EXPECT_FALSE(is_held("LOCK"));
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(unit=14)"), 2u);
    driver.release(4);
    EXPECT_EQ(closing.result(), 0);
    EXPECT_EQ(count(driver_calls(), "DornLineAlert(unit=14)"), 2u);
    EXPECT_TRUE(reads(call_states(), {kConnected, kIdle}));
    EXPECT_TRUE(driver.waits_for_call(4));
}
