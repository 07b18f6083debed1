#include "line_clock.h"

#include <algorithm>
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
    task->place = schedule_.emplace(Clock::now(), task);
    ++tasks_;
    changed_.notify_one();
    return task;
}

void LineClock::wake(const std::shared_ptr<ClockTask>& task) {
    if (task->has_its_turn) {
        task->woken = true;
        return;
    }
    auto entry = schedule_.extract(task->place);
    entry.key() = Clock::now();
    task->place = schedule_.insert(std::move(entry));
    changed_.notify_one();
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
        if (!schedule_.empty() && schedule_.begin()->first <= Clock::now()) {
            take_first_turn(guard);
        } else {
            wait(guard);
        }
    }
}

// Idle threads wait for each other's leavings, and the one of them that the next turn is due for waits for its time.
void LineClock::wait(Guard& guard) {
    const Clock::time_point due = schedule_.empty() ? NEVER : schedule_.begin()->first;
    if (due >= watched_) {
        changed_.wait(guard);
        return;
    }
    watched_ = due;
    changed_.wait_until(guard, due);
    watched_ = NEVER;
}

void LineClock::take_first_turn(Guard& guard) {
    auto entry = schedule_.extract(schedule_.begin());
    // This thread is away now: somebody else looks after what is left.
    if (!schedule_.empty() && schedule_.begin()->first < watched_) changed_.notify_one();
    const std::shared_ptr<ClockTask> task = entry.mapped();
    task->has_its_turn = true;
    task->woken = false;
    const std::optional<Clock::time_point> next = task->turn(guard);
    task->has_its_turn = false;
    if (next.has_value()) {
        entry.key() = task->woken ? Clock::now() : *next;
        task->place = schedule_.insert(std::move(entry));
        return;
    }
    // It stays "in its turn", so that waking it does nothing. What the turn holds, files among it, goes without the
    // lock.
    task->has_its_turn = true;
    Turn over = std::exchange(task->turn, nullptr);
    --tasks_;
    if (ending_) changed_.notify_all();
    guard.unlock();
    over = nullptr;
    guard.lock();
}

}  // namespace softboard
