// The whole order of closing a line: traces of all levels, the board, Windows and TAPI in one list.
#include <atomic>

#include "harness.h"
#include "whole_story.h"

using namespace harness;

namespace {

class OrderOfAClosing : public LineFixture {
  protected:
    static Lines begun() {
        return joined({{"[16] " + kNoCall + "TSPI_lineClose"}, handle_is_valid(kNoCall), lock_taken(kNoCall)});
    }
    static Lines thread_alerted() {
        return joined({kAlert,
                       {"[4] TSPI_lineClose - Unlock #03"},
                       lock_given_back(kNoCall),
                       {"WaitForSingleObject(WORKER_IDLE, 1000)"},
                       lock_taken(kNoCall)});
    }
    static Lines given_back() {
        return joined({{"[4] ring_det_thread should be IDLE", "DornLineUnitGet(CHAN4)", "DornSessionDetach(CHAN4)",
                        "[4] TSPI_lineClose - Unlock #04"},
                       lock_given_back(kNoCall),
                       {"CloseHandle(LOCK)", "CloseHandle(WORKER_IDLE)", "CloseHandle(DROP_DONE)",
                        "CloseHandle(RING_DET_WAIT)", "[17] TSPI_lineClose(0) Good"}});
    }
    // A wait for the thread lasts until it has ended and then has this result.
    static void waits_end_with(DWORD result) {
        windows.objects.on_wait = [=](HANDLE object, DWORD milliseconds) -> std::optional<DWORD> {
            if (milliseconds != 1000) return std::nullopt;
            WaitForSingleObject(object, kPatience);
            return result;
        };
    }
    // The line closes, and its thread does this.
    void expect_of_the_thread(const Lines& woken) {
        waits_end_with(WAIT_OBJECT_0);
        EXPECT_EQ(close_line(0), 0);
        EXPECT_TRUE(windows.all_threads_end(kPatience));
        EXPECT_TRUE(reads(of_ring_det_thread(whole_story()),
                          joined({woken,
                                  lock_taken(kNoCall),
                                  lock_given_back(kNoCall),
                                  {"[9] " + kNoCall + "ring_det_thread", "SetEvent(WORKER_IDLE)"}})));
    }
    static void alerts_end_the_wait_with(uint32_t status, uint32_t line_status) {
        driver.on.DornLineAlert = [=](DornAlertRecord*) { return driver.wait_ends(4, status, line_status), 0; };
    }
};

}  // namespace

TEST_F(OrderOfAClosing, StopsTheThreadAndGivesEverythingBack) {
    waits_end_with(WAIT_OBJECT_0);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(on_this_thread(whole_story()),
                      joined({begun(), {"ResetEvent(WORKER_IDLE)"}, thread_alerted(), given_back()})));
}

TEST_F(OrderOfAClosing, AlertsAgainOnlyAfterATimeOut) {
    std::atomic<int> deaf = 2;
    driver.on.DornLineAlert = [&](DornAlertRecord* record) {
        return deaf > 0 ? 0 : ScriptedDriver::usual().DornLineAlert(record);
    };
    windows.objects.on_wait = [&](HANDLE object, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 1000) return std::nullopt;
        if (deaf-- > 0) return WAIT_TIMEOUT;
        return WaitForSingleObject(object, kPatience);
    };
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(on_this_thread(whole_story()), joined({begun(),
                                                             {"ResetEvent(WORKER_IDLE)"},
                                                             thread_alerted(),
                                                             thread_alerted(),
                                                             thread_alerted(),
                                                             given_back()})));
}

class ResultOfTheWait : public OrderOfAClosing, public testing::WithParamInterface<DWORD> {};

TEST_P(ResultOfTheWait, EndsItUnlessItIsATimeOut) {
    waits_end_with(GetParam());
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(on_this_thread(whole_story()),
                      joined({begun(), {"ResetEvent(WORKER_IDLE)"}, thread_alerted(), given_back()})));
}

INSTANTIATE_TEST_SUITE_P(OtherResults, ResultOfTheWait, testing::Values(WAIT_FAILED, WAIT_ABANDONED, 5u));

TEST_F(OrderOfAClosing, RefusesABadHandle) {
    EXPECT_EQ(tsp.TSPI_lineClose(nullptr), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(
        reads(on_this_thread(whole_story()), {"[16] TSPI_lineClose", "[8] IsValidLine", "[9] IsValidLine(0)",
                                              "[4] Invalid line handle", "[17] TSPI_lineClose(-2147483576) Failed"}));
}

TEST_F(OrderOfAClosing, ClosesTheCallWithoutTheLock) {
    take_call(0);
    new_chapter();
    std::atomic<int> alerts = 0;
    driver.on.DornLineAlert = [&](DornAlertRecord* record) {
        // The third alert is the line's own, and finds the thread in the driver.
        if (++alerts == 3) driver.waits_for_call(4);
        return ScriptedDriver::usual().DornLineAlert(record);
    };
    waits_end_with(WAIT_OBJECT_0);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(on_this_thread(whole_story()), joined({{"[16] " + kCall + "TSPI_lineClose"},
                                                             handle_is_valid(),
                                                             lock_taken(),
                                                             {"[4] TSPI_lineClose - Unlock #01"},
                                                             lock_given_back(),
                                                             close_begun(),
                                                             call_end_sent(),
                                                             kAlert,
                                                             handed_back(true),
                                                             lock_taken(kNoCall),
                                                             {"ResetEvent(WORKER_IDLE)"},
                                                             thread_alerted(),
                                                             given_back()})));
}

TEST_F(OrderOfAClosing, WaitsWithoutTheLockForAnotherThreadThatClosesTheCall) {
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
    EXPECT_TRUE(driver.waits_for_call(4));
    waits_end_with(WAIT_OBJECT_0);
    sleep_gate(500).open();
    EXPECT_EQ(closing.result(), 0);
    const Lines asleep = joined({{"[4] TSPI_lineClose - Unlock #02"}, lock_given_back(), {"Sleep(500)"}});
    EXPECT_TRUE(reads(whole_story().on_thread(closing.thread()), joined({{"[16] " + kCall + "TSPI_lineClose"},
                                                                         handle_is_valid(),
                                                                         lock_taken(),
                                                                         asleep,
                                                                         lock_taken(),
                                                                         asleep,
                                                                         lock_taken(kNoCall),
                                                                         {"ResetEvent(WORKER_IDLE)"},
                                                                         thread_alerted(),
                                                                         given_back()})));
}

TEST_F(OrderOfAClosing, EndsTheThreadAfterAnAlert) {
    expect_of_the_thread({"[4] LumLineWaitForCall res.status = KX_STATUS_ALERT"});
}

TEST_F(OrderOfAClosing, EndsTheThreadAfterARing) {
    alerts_end_the_wait_with(KX_STATUS_OK, 1);
    expect_of_the_thread(
        {"[4] LumLineWaitForCall res.status = KX_STATUS_OK", "[4] Did not Timeout", "[4] res.line_status = 1"});
}

TEST_F(OrderOfAClosing, EndsTheThreadAfterTheLastRing) {
    alerts_end_the_wait_with(KX_STATUS_OK, 353);
    expect_of_the_thread({"[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                          "[4] LumLineWaitForCall res.line_status = WAIT_FOR_CALL_TIMEOUT(353)"});
}

TEST_F(OrderOfAClosing, EndsTheThreadAfterATimeOut) {
    alerts_end_the_wait_with(KX_STATUS_TIMEOUT, 0);
    expect_of_the_thread({"[4] LumLineWaitForCall res.status = KX_STATUS_TIMEOUT"});
}
