// The clock by itself: who gets a turn when, and on how many threads.
#include <gtest/gtest.h>
#include <line_clock.h>

#include <atomic>
#include <vector>

using namespace softboard;

namespace {

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
        return WHEN_WOKEN;
    });
    guard.unlock();
    wait_for(1);
}

TEST_F(LineClockTest, ATaskThatWaitsHasItsTurnWhenItIsWoken) {
    int turns = 0;
    const auto task = add([&](Guard& held) -> std::optional<Clock::time_point> {
        meet(held, 0);
        return ++turns == 2 ? std::nullopt : std::optional(WHEN_WOKEN);
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

// ---- ticks --------------------------------------------------------------------------------------------------------

// Turns that never let go of the lock are taken in the order in which they are counted here.
TEST_F(LineClockTest, ATaskThatIsWokenHasItsTurnBeforeThoseThatAreLate) {
    std::vector<std::string> order;
    const auto turns_of = [&](const std::string& name, Clock::time_point second, const std::function<void()>& act) {
        return [&, name, second, act, first = true](Guard& held) mutable -> std::optional<Clock::time_point> {
            if (std::exchange(first, false)) {
                act();
                return second;
            }
            order.push_back(name);
            meet(held, 0);
            return std::nullopt;
        };
    };
    std::shared_ptr<ClockTask> sleeper;
    Guard guard(lock);  // no turn before all are there
    const Clock::time_point late = Clock::now();
    sleeper = clock.add(lock, turns_of("woken", WHEN_WOKEN, [] {}));
    clock.add(lock, turns_of("first late", late, [] {}));
    clock.add(lock, turns_of("second late", late, [&] { clock.wake(sleeper); }));
    guard.unlock();
    wait_for(3);
    guard.lock();
    EXPECT_EQ(order, (std::vector<std::string>{"woken", "first late", "second late"}));
}

namespace {

constexpr Milliseconds TOLD_WITHIN(1000000);

class TicksTest : public testing::Test {
  protected:
    TicksTest() { ticks.take(after(0), missed); }  // the next one is 20 ms after `begin`

    static Clock::time_point after(int milliseconds) {
        const Clock::time_point begin(TICK * 1000);
        return begin + Milliseconds(milliseconds);
    }
    // How many may be taken at that time.
    int take_all(int milliseconds) {
        int count = 0;
        while (ticks.take(after(milliseconds), missed)) ++count;
        return count;
    }
    std::string told() { return missed.news(after(0) + TOLD_WITHIN, true); }

    Ticks ticks;
    MissedTicks missed;
};

}  // namespace

TEST_F(TicksTest, AreDueEvery20Milliseconds) {
    EXPECT_FALSE(ticks.take(after(19), missed));
    EXPECT_TRUE(ticks.take(after(20), missed));
    EXPECT_FALSE(ticks.take(after(39), missed));
    EXPECT_TRUE(ticks.take(after(40), missed));
    EXPECT_EQ(ticks.next(), after(60));
    EXPECT_EQ(told(), "");
}

TEST_F(TicksTest, AreTheSameForAllCalls) {
    Ticks other;
    EXPECT_FALSE(other.take(after(7), missed));
    EXPECT_EQ(other.next(), after(20));
}

TEST_F(TicksTest, OneThatIsTakenBeforeTheNextIsNotMissed) {
    EXPECT_EQ(take_all(39), 1);
    EXPECT_EQ(told(), "");
}

TEST_F(TicksTest, ThoseTakenLaterAreMissedOnceAndMadeUpFor) {
    EXPECT_EQ(take_all(20 + 65), 4);
    EXPECT_EQ(told(), "3 ticks of 20 ms missed so far: the processor does not keep up with the calls");
}

TEST_F(TicksTest, WhatIsMoreThanFiveSecondsBehindIsLetGoBy) {
    EXPECT_EQ(take_all(20 + 10000), 252);  // the first, 250 to make up for, and the one that is due
    EXPECT_EQ(told(), "500 ticks of 20 ms missed so far: the processor does not keep up with the calls");
    EXPECT_EQ(ticks.next(), after(10040));
}

TEST_F(TicksTest, AfterAPauseTheNextOneIsTheFirst) {
    ticks.pause();
    EXPECT_EQ(take_all(1007), 0);
    EXPECT_EQ(take_all(1020), 1);
    EXPECT_EQ(told(), "");
}

TEST_F(TicksTest, MissedOnesAreToldEveryTenSecondsAndInTheLastWord) {
    const Clock::time_point first = after(0) + TOLD_WITHIN;
    missed.add(1);
    EXPECT_NE(missed.news(first, false), "");
    missed.add(1);
    EXPECT_EQ(missed.news(first + Milliseconds(9999), false), "");
    EXPECT_NE(missed.news(first + Milliseconds(10000), false), "");
    EXPECT_EQ(missed.news(first + Milliseconds(30000), false), "") << "there are no new ones";
    missed.add(1);
    EXPECT_EQ(missed.news(first + Milliseconds(10001), true),
              "3 ticks of 20 ms missed so far: the processor does not keep up with the calls");
}

// ---- places -------------------------------------------------------------------------------------------------------

TEST(PlacesTest, OnlySoManyAreInAtOnceAndEveryoneGetsIn) {
    constexpr unsigned PLACES = 2;
    constexpr int THREADS = 8;
    Places places(PLACES);
    std::atomic<unsigned> inside{0};
    std::atomic<unsigned> most{0};
    std::atomic<int> through{0};
    {
        std::list<Thread> threads;
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < 200; ++round) {
                    const std::lock_guard<Places> place(places);
                    const unsigned now = ++inside;
                    if (now > most) most = now;
                    SwitchToThread();
                    --inside;
                }
                ++through;
            });
        }
    }
    EXPECT_EQ(through, THREADS);
    EXPECT_LE(most, PLACES);
}

TEST(PlacesTest, SoManyAreInAtOnce) {
    Places places(2);
    places.lock();
    places.lock();
    places.unlock();
    places.unlock();
}
