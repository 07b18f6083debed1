// The clock by itself: who gets a turn when, and on how many threads.
#include <gtest/gtest.h>
#include <line_clock.h>

#include <vector>

using namespace softboard;

namespace {

constexpr Clock::time_point NEVER = Clock::time_point::max();

class LineClockTest : public testing::Test {
  protected:
    ~LineClockTest() override {
        Guard guard(lock);
        std::list<Thread> threads = clock.end();
        guard.unlock();
    }

    std::shared_ptr<ClockTask> add(Turn turn) {
        const Guard guard(lock);
        return clock.add(lock, std::move(turn));
    }
    // Until so many have arrived here, this one included. The lock is held.
    void meet(Guard& guard, unsigned count) {
        ++met_;
        arrived.notify_all();
        while (met_ < count) arrived.wait(guard);
    }
    void wait_for(unsigned count) {
        Guard guard(lock);
        while (met_ < count) arrived.wait(guard);
    }

    Mutex lock;
    LineClock clock;

  private:
    Condition arrived;
    unsigned met_ = 0;
};

}  // namespace

TEST_F(LineClockTest, ATaskThatIsWokenDuringItsTurnHasAnotherOneAtOnce) {
    std::shared_ptr<ClockTask> task;
    int turns = 0;
    Guard guard(lock);
    task = clock.add(lock, [&](Guard& held) -> std::optional<Clock::time_point> {
        if (++turns == 2) {
            meet(held, 1);
            return std::nullopt;
        }
        clock.wake(task);
        return NEVER;
    });
    guard.unlock();
    wait_for(1);
}

TEST_F(LineClockTest, ATaskThatWaitsHasItsTurnWhenItIsWoken) {
    int turns = 0;
    const auto task = add([&](Guard& held) -> std::optional<Clock::time_point> {
        meet(held, 0);
        return ++turns == 2 ? std::nullopt : std::optional(NEVER);
    });
    wait_for(1);
    {
        const Guard guard(lock);
        clock.wake(task);
    }
    wait_for(2);
}

TEST_F(LineClockTest, ATaskThatIsOverIsNotWoken) {
    const auto task = add([&](Guard& held) -> std::optional<Clock::time_point> {
        meet(held, 0);
        return std::nullopt;
    });
    wait_for(1);
    const Guard guard(lock);
    clock.wake(task);
}

// Every thread has a turn of its own as long as no turn is over before all have begun.
TEST_F(LineClockTest, TurnsThatAreDueTogetherAreTakenOnAsManyThreadsAsThereAreProcessors) {
    const unsigned count = processor_count();
    const Clock::time_point together = Clock::now() + Milliseconds(100);
    for (unsigned i = 0; i < count; ++i) {
        add([&, first = true](Guard& held) mutable -> std::optional<Clock::time_point> {
            if (std::exchange(first, false)) return together;
            meet(held, count);
            return std::nullopt;
        });
    }
    wait_for(count);
}

TEST_F(LineClockTest, TurnsAreTakenInTheOrderInWhichTheyAreDue) {
    std::vector<int> order;
    Guard guard(lock);  // no turn before all are there
    const Clock::time_point begin = Clock::now() + Milliseconds(50);
    for (const int place : {3, 1, 2}) {
        clock.add(lock, [&, place, first = true](Guard& held) mutable -> std::optional<Clock::time_point> {
            if (std::exchange(first, false)) return begin + Milliseconds(place);
            order.push_back(place);
            meet(held, 0);
            return std::nullopt;
        });
    }
    guard.unlock();
    wait_for(3);
    guard.lock();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}
