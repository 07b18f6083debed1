// What is stored when TAPI hears of it, and what a drop leaves behind.
#include <atomic>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class StateThatTapiFinds : public LineFixture {
  protected:
    // What TAPI is told when it asks for the line's calls, or tries to take its call up, from within an event.
    static void at_call_state(DWORD state, const std::function<void()>& ask) {
        tapi.on_event = [=](const LineEvent& event) {
            if (event.message != LINE_CALLSTATE || event.parameters[0] != state) return;
            ask();
            note("asked");
        };
    }
    void TearDown() override {
        EXPECT_TRUE(holds(all_of(NOTE), "asked"));
        LineFixture::TearDown();
    }
};

// TAPI's completion procedure throws, while the worker of the call stays in the driver.
class AfterAFailedCompletion : public LineFixture {
  protected:
    void expect_failure(const std::function<LONG()>& call) {
        driver.on.DornCallSetup = [](DornLine* line, DornCallRecord*) { return driver.block(line), 0; };
        tapi.on_completion = [](DRV_REQUESTID, LONG) { throw 1; };
        EXPECT_EQ(call(), failed(LINEERR_OPERATIONFAILED));
        tapi.on_completion = nullptr;
        EXPECT_TRUE(driver.is_blocked(4));
        new_chapter();
    }
    // A drop is over at once, and leaves the worker alone.
    void expect_no_worker_counted() {
        EXPECT_EQ(drop(), 0x21);
        EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
        EXPECT_TRUE(holds_no(driver_calls(), "DornLineAlert(<*>"));
        driver.release(4);
        worker_ends();
    }
};

class CallStateOfAFax : public LineFixture {
  protected:
    void receive_a_fax() {
        driver.on.DornTiffOpen = [this](DornTiffRecord*) { return &file; };
        driver.on.DornTiffClose = [](DornTiffRecord*) { return 0; };
        constexpr uint32_t kTiffOpen = 1, kFaxReceive = 4;
        for (uint32_t command : {kTiffOpen, kFaxReceive}) {
            uint32_t block[272] = {command};
            EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x31, line(0), 0, nullptr, block, sizeof(block)), 0x31);
        }
        EXPECT_TRUE(wait_until([] { return windows.threads.running == 1; }));
    }

    DornTiff file = {};
};

class AfterADrop : public LineFixture {
  protected:
    void place_call_with_a_deaf_worker() {
        place_call_that_lasts();
        driver.on.DornLineAlert = [](DornAlertRecord*) { return 0; };
        new_chapter();
    }
    // The next wait for the worker ends at once, as if it had ended.
    void wake_the_next_wait() {
        woken = false;
        windows.objects.on_wait = [this](HANDLE object, DWORD) -> std::optional<DWORD> {
            if (object_name(object) != "WORKER_IDLE" || woken.exchange(true)) return std::nullopt;
            return WAIT_OBJECT_0;
        };
    }

    std::atomic<bool> woken = false;
};

}  // namespace

TEST_F(StateThatTapiFinds, IsAcceptedInTheEvent) {
    offer_call(0);
    at_call_state(LINECALLSTATE_ACCEPTED, [this] { EXPECT_EQ(accept(), failed(LINEERR_INUSE)); });
    EXPECT_EQ(accept(), 0x21);
}

TEST_F(StateThatTapiFinds, IsAnsweredInTheEvent) {
    offer_call(0);
    at_call_state(LINECALLSTATE_CONNECTED, [this] { EXPECT_EQ(answer(), failed(LINEERR_INUSE)); });
    EXPECT_EQ(answer(), 0x21);
}

TEST_F(StateThatTapiFinds, IsStillTheOldOneInTheDriver) {
    offer_call(0);
    driver.on.DornLineAnswerISDN = [this](DornLine*, DornLineResultRecord*) {
        EXPECT_EQ(accept(), 0x21);
        note("asked");
        return 0;
    };
    EXPECT_EQ(answer(), 0x21);
}

TEST_F(StateThatTapiFinds, IsIdleWhenTheCallHasFailed) {
    driver.channel(4).complete_cause = 301;
    at_call_state(LINECALLSTATE_IDLE, [this] { EXPECT_EQ(active_calls(), 0u); });
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
}

TEST_F(StateThatTapiFinds, IsIdleWhenTheCallIsDropped) {
    place_call_that_lasts();
    // The worker gets through to the far end, so that the drop is the one that sends it.
    driver.on.DornLineAlert = [](DornAlertRecord*) { return driver.release(4), 0; };
    at_call_state(LINECALLSTATE_IDLE, [this] { EXPECT_EQ(active_calls(), 0u); });
    EXPECT_EQ(drop(), 0x21);
}

TEST_F(StateThatTapiFinds, IsTheCallStateWithItsMode) {
    offer_call(0);  // with another mode
    at_call_state(LINECALLSTATE_ACCEPTED, [this] {
        LINECALLSTATUS status = {};
        EXPECT_EQ(tsp.TSPI_lineGetCallStatus(call(0), &status), 0);
        EXPECT_EQ(status.dwCallState, static_cast<DWORD>(LINECALLSTATE_ACCEPTED));
        EXPECT_EQ(status.dwCallStateMode, 0u);
    });
    EXPECT_EQ(accept(), 0x21);
}

// ---- the same state with another mode -------------------------------------------------------------------------------

TEST_F(CallStateOfAFax, IsNotRepeatedWithAnotherMode) {
    take_call(0);
    new_chapter();
    receive_a_fax();
    driver.on.DornFaxEndReception = [](DornLine*, DornFaxRecord* record) {
        record->status = KX_STATUS_ERROR;
        return -1;
    };
    receive_a_fax();
    EXPECT_EQ(count(events(), "LINE_LINEDEVSTATE(<*>NUMCALLS<*>"), 2u);
    EXPECT_TRUE(reads(events().only({"LINE_CALLSTATE(<*>"}),
                      {text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%X, 0x20)", LINEDISCONNECTMODE_NORMAL)}));
    EXPECT_EQ(close_call(), 0);
}

// ---- counts ---------------------------------------------------------------------------------------------------------

TEST_F(AfterAFailedCompletion, ACallHasNoWorkerThatCounts) {
    expect_failure([this] { return make_call(); });
    expect_no_worker_counted();
}

TEST_F(AfterAFailedCompletion, DiallingHasNoWorkerThatCounts) {
    EXPECT_EQ(make_call(L"555;"), 0x21);
    worker_ends();
    expect_failure([this] { return dial(L"1"); });
    expect_no_worker_counted();
}

TEST_F(AfterADrop, TheLineHasOneOperationLessPendingThanThereIs) {
    place_call_that_lasts();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    tapi.calls_given = 0;
    place_call_with_a_deaf_worker();
    wake_the_next_wait();
    driver.gate("DornLineWaitForCallISDN").close();  // two calls of the driver do not block at once
    // The worker is not waited for a second time, although it has not ended.
    EXPECT_EQ(close_call(), 0);
    EXPECT_EQ(count(windows_calls(), "WaitForSingleObject(WORKER_IDLE, INFINITE)"), 1u);
    windows.objects.on_wait = nullptr;
    driver.release(4);
    worker_ends();
}

TEST_F(AfterADrop, TheLineHasNoWorkerEvenIfItHasNotEnded) {
    place_call_with_a_deaf_worker();
    wake_the_next_wait();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(comes("[9] " + kCall + "drop_call_thread"));
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineDrop() Async completion requestID= 0x21: result= 0x0"));
    driver.release(4);
    worker_ends();
}
