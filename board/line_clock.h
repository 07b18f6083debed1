// The board's one clock. Whatever needs a turn again and again, the audio of every call, takes it on the clock's
// threads, of which there are as many as the machine has processors: what the board can carry is bounded by the
// processors' time, not by the number of threads.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "sync.h"

namespace softboard {

// Real time goes on in steps of this length, for all calls at the same moments.
constexpr Milliseconds TICK(20);

// The ticks that calls have missed because no processor came to them in time.
class MissedTicks {
  public:
    void add(uint64_t ticks) { count_ += ticks; }
    // What is to be said about them, empty as a rule: once in a while, and with `last_word` whatever is still unsaid.
    std::string news(Clock::time_point now, bool last_word);

  private:
    uint64_t count_ = 0;
    uint64_t told_ = 0;
    Clock::time_point told_at_;
};

// The ticks of one call. Begins with the next one of all calls.
class Ticks {
  public:
    // Whether one is due. When more are, the caller makes up for them one by one; what is more than five seconds
    // behind, a process was stopped, is let go by. A tick that is not taken before the next one has been missed.
    bool take(Clock::time_point now, MissedTicks& missed);
    // When the next one is due, once take has been called.
    Clock::time_point next() const { return *next_; }
    // The call pauses: it begins again with the next tick then.
    void pause() { next_.reset(); }

  private:
    std::optional<Clock::time_point> next_;
};

struct ClockTask;
using Tasks = std::list<std::shared_ptr<ClockTask>>;

// One turn: called with the board's lock held, gives when the next one is due, or nothing when there will be none. May
// let go of the lock and take it again.
using Turn = std::function<std::optional<Clock::time_point>(Guard& guard)>;

// The turn after this one is not due before the task is woken.
constexpr Clock::time_point WHEN_WOKEN = Clock::time_point::max();

struct ClockTask {
    Turn turn;
    Clock::time_point due;   // if the task is in the schedule
    Tasks* queue = nullptr;  // in which it waits, none during its turn and after its last one
    Tasks::iterator place;   // there
    bool woken = false;      // during its turn: the next one is due at once
};

// The functions are called with the board's lock held.
class LineClock {
  public:
    // The first turn is due at once, before those that are late. Throws std::bad_alloc, also when the system has no
    // thread to give.
    std::shared_ptr<ClockTask> add(Mutex& lock, Turn turn);
    // The task's next turn is due at once, before those that are late.
    void wake(const std::shared_ptr<ClockTask>& task);
    // When the last task is over, so are the threads, which are handed to the caller to be waited for without the lock.
    std::list<Thread> end();

  private:
    void start_threads(Mutex& lock);
    void run(Mutex& lock);
    void wait(Guard& guard);
    Clock::time_point next_due() const;
    void take_next_turn(Guard& guard);
    void line_up(Tasks& task, Tasks& queue, Tasks::iterator before);
    void schedule(Tasks& task, Clock::time_point due);

    Tasks woken_;     // and new ones
    Tasks schedule_;  // in the order in which they are due
    Tasks paused_;    // until they are woken
    size_t tasks_ = 0;
    Condition changed_;
    Clock::time_point watched_ = Clock::time_point::max();  // an idle thread wakes up then
    bool ending_ = false;
    std::list<Thread> threads_;
};

}  // namespace softboard
