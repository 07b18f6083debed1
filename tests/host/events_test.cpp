// Event queues, and the procedures that the provider calls.
#include "events.h"

#include <gtest/gtest.h>

#include "own_process.h"

class Events : public testing::Test {
  protected:
    void SetUp() override { htLine = hub_add_line(7, queue); }
    void TearDown() override {
        hub_observe(nullptr);
        hub_remove_line(htLine);
    }

    void call_state(DWORD state) { hub_line_event(htLine, nullptr, LINE_CALLSTATE, state, 0, 0x20); }

    Taken take(DWORD message, DWORD timeout = 0, HANDLE stop = nullptr) {
        return queue_take(
            queue, [=](const TapiEvent& candidate) { return !candidate.function && candidate.dwMsg == message; },
            patience(timeout, stop), event);
    }

    EventQueue queue;
    HTAPILINE htLine = nullptr;
    TapiEvent event;
};

TEST_F(Events, AreTakenInTheirOrder) {
    call_state(LINECALLSTATE_DIALING);
    call_state(LINECALLSTATE_CONNECTED);
    EXPECT_EQ(Taken::event, take(LINE_CALLSTATE));
    EXPECT_EQ(LINECALLSTATE_DIALING, event.dwParam1);
    EXPECT_EQ(7u, event.dwDeviceID);
    EXPECT_EQ(Taken::event, take(LINE_CALLSTATE));
    EXPECT_EQ(LINECALLSTATE_CONNECTED, event.dwParam1);
    EXPECT_EQ(Taken::timeout, take(LINE_CALLSTATE));
}

TEST_F(Events, ThatNobodyAsksForStayInTheQueue) {
    call_state(LINECALLSTATE_DIALING);
    hub_line_event(htLine, nullptr, LINE_CALLINFO, 8, 0, 0);
    EXPECT_EQ(Taken::event, take(LINE_CALLINFO));
    EXPECT_EQ(Taken::event, take(LINE_CALLSTATE));
}

TEST_F(Events, AreWaitedForUntilTheyCome) {
    const OwnedThread provider = thread_start([this] { call_state(LINECALLSTATE_CONNECTED); });
    EXPECT_EQ(Taken::event, take(LINE_CALLSTATE, 10000));
}

TEST_F(Events, AreWaitedForNoLongerThanUntilTheStop) {
    const OwnedHandle stop(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    EXPECT_EQ(Taken::stopped, take(LINE_CALLSTATE, 10000, stop.get()));
    call_state(LINECALLSTATE_CONNECTED);
    EXPECT_EQ(Taken::event, take(LINE_CALLSTATE, 10000, stop.get()));
}

TEST_F(Events, OfANewCallAreAnsweredWithAHandleAtOnce) {
    HTAPICALL htCall = nullptr;
    hub_line_event(htLine, nullptr, LINE_NEWCALL, 0x1234, reinterpret_cast<DWORD_PTR>(&htCall), 0);
    EXPECT_NE(nullptr, htCall);
    EXPECT_EQ(Taken::event, take(LINE_NEWCALL));
    EXPECT_EQ(htCall, event.htCall);
    EXPECT_EQ(0x1234u, event.dwParam1);
}

TEST_F(Events, KeepTheCallStateInMind) {
    EXPECT_EQ(DWORD{LINECALLSTATE_IDLE}, queue_call_state(queue));
    call_state(LINECALLSTATE_CONNECTED);
    queue_clear(queue);
    EXPECT_EQ(DWORD{LINECALLSTATE_CONNECTED}, queue_call_state(queue));
}

TEST_F(Events, OfALineThatIsGoneReachOnlyTheObserver) {
    int observed = 0;
    hub_observe([&observed](const TapiEvent& seen) { observed += seen.dwDeviceID == NO_LINE ? 1 : 0; });
    hub_remove_line(htLine);
    call_state(LINECALLSTATE_IDLE);
    EXPECT_EQ(1, observed);
    EXPECT_EQ(Taken::timeout, take(LINE_CALLSTATE));
}

TEST_F(Events, OfCompletionGoToTheLineThatAsked) {
    const DRV_REQUESTID request = hub_new_request(htLine, "TSPI_lineDrop");
    hub_completion(request, 0);
    const auto any = [](const TapiEvent&) { return true; };
    ASSERT_EQ(Taken::event, queue_take(queue, any, patience(0), event));
    EXPECT_STREQ("TSPI_lineDrop", event.function);
    EXPECT_EQ(request, event.dwRequestID);
}

TEST_F(Events, OfCompletionThatNobodyWaitsForReachOnlyTheObserver) {
    std::string observed;
    hub_observe([&observed](const TapiEvent& seen) { observed = seen.function; });
    const DRV_REQUESTID request = hub_new_request(htLine, "TSPI_lineDrop");
    hub_forget_request(request);
    hub_completion(request, 0);
    EXPECT_EQ("unknown request", observed);
    EXPECT_EQ(0u, queue.events.size());
}

TEST_F(Events, RequestIdsArePositiveAndDiffer) {
    const DRV_REQUESTID first = hub_new_request(htLine, "a");
    const DRV_REQUESTID second = hub_new_request(htLine, "b");
    EXPECT_NE(first, second);
    EXPECT_GT(static_cast<LONG>(first), 0);
    hub_forget_request(first);
    hub_forget_request(second);
}
