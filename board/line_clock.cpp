#include "line_clock.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace softboard {

constexpr Clock::time_point NEVER = Clock::time_point::max();
constexpr Milliseconds MAKES_UP_FOR(5000);

// ---- ticks --------------------------------------------------------------------------------------------------------

std::string MissedTicks::news(Clock::time_point now, bool last_word) {
    constexpr Milliseconds INTERVAL(10000);
    if (count_ == told_ || (now - told_at_ < INTERVAL && !last_word)) return {};
    told_ = count_;
    told_at_ = now;
    return std::to_string(count_) + " ticks of 20 ms missed so far: the processor does not keep up with the calls";
}

static Clock::time_point last_tick(Clock::time_point now) {
    return Clock::time_point(now.time_since_epoch() / TICK * TICK);
}

bool Ticks::take(Clock::time_point now, MissedTicks& missed) {
    if (!next_.has_value()) next_ = last_tick(now) + TICK;
    const Clock::time_point tick = *next_;
    if (now < tick) return false;
    next_ = std::max(tick + TICK, last_tick(now) - MAKES_UP_FOR);
    if (now - tick >= TICK) missed.add(static_cast<uint64_t>((*next_ - tick) / TICK));
    return true;
}

// ---- tasks --------------------------------------------------------------------------------------------------------

std::shared_ptr<ClockTask> LineClock::add(Mutex& lock, Turn turn) {
    start_threads(lock);
    auto task = std::make_shared<ClockTask>();
    task->turn = std::move(turn);
    Tasks added{task};
    line_up(added, woken_, woken_.end());
    ++tasks_;
    changed_.notify_one();
    return task;
}

void LineClock::wake(const std::shared_ptr<ClockTask>& task) {
    if (task->queue == nullptr) {
        task->woken = true;
        return;
    }
    Tasks woken;
    woken.splice(woken.end(), *task->queue, task->place);
    line_up(woken, woken_, woken_.end());
    changed_.notify_one();
}

void LineClock::line_up(Tasks& task, Tasks& queue, Tasks::iterator before) {
    task.front()->queue = &queue;
    task.front()->place = task.begin();
    queue.splice(before, task);
}

// Nearly always at the end: calls whose turns are due together have them one after the other.
void LineClock::schedule(Tasks& task, Clock::time_point due) {
    auto before = schedule_.end();
    while (before != schedule_.begin() && (*std::prev(before))->due > due) --before;
    task.front()->due = due;
    line_up(task, schedule_, before);
}

std::list<Thread> LineClock::end() {
    ending_ = true;
    changed_.notify_all();
    return std::move(threads_);
}

// ---- the threads --------------------------------------------------------------------------------------------------

// One thread is enough to go on with; those that the system refuses are asked for again with the next task.
void LineClock::start_threads(Mutex& lock) {
    try {
        while (threads_.size() < processor_count()) threads_.emplace_back([this, &lock] { run(lock); });
    } catch (const std::bad_alloc&) {
        if (threads_.empty()) throw;
    }
}

void LineClock::run(Mutex& lock) {
    Guard guard(lock);
    while (!ending_ || tasks_ != 0) {
        if (next_due() <= Clock::now()) {
            take_next_turn(guard);
        } else {
            wait(guard);
        }
    }
}

// Idle threads wait for each other's leavings, and the one of them that the next turn is due for waits for its time.
void LineClock::wait(Guard& guard) {
    const Clock::time_point due = next_due();
    if (due >= watched_) {
        changed_.wait(guard);
        return;
    }
    watched_ = due;
    changed_.wait_until(guard, due);
    watched_ = NEVER;
}

Clock::time_point LineClock::next_due() const {
    if (!woken_.empty()) return Clock::time_point::min();
    return schedule_.empty() ? NEVER : schedule_.front()->due;
}

void LineClock::take_next_turn(Guard& guard) {
    Tasks& queue = woken_.empty() ? schedule_ : woken_;
    Tasks taken;
    taken.splice(taken.end(), queue, queue.begin());
    // This thread is away now: somebody else looks after what is left.
    if (next_due() < watched_) changed_.notify_one();
    ClockTask& task = *taken.front();
    task.queue = nullptr;
    task.woken = false;
    const std::optional<Clock::time_point> next = task.turn(guard);
    if (!next.has_value()) {
        --tasks_;
        if (ending_) changed_.notify_all();
        // What the turn holds, files among it, goes without the lock.
        guard.unlock();
        task.turn = nullptr;
        guard.lock();
    } else if (task.woken) {
        line_up(taken, woken_, woken_.end());
    } else if (*next == WHEN_WOKEN) {
        line_up(taken, paused_, paused_.end());
    } else {
        schedule(taken, *next);
    }
}

}  // namespace softboard
