// Locks, conditions and threads on the system's own primitives. They need no destruction, so a process that ends
// without DornShutdown hangs on none of them, and their fast paths stay within the process.
#pragma once

#include <windows.h>

#include <process.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>

namespace softboard {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

class Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    // What it guards is done in moments, so it is worth a short try before the thread goes to sleep, which not every
    // system's own lock makes.
    void lock() {
        constexpr int TRIES = 200;
        for (int i = 0; i < TRIES; ++i) {
            if (TryAcquireSRWLockExclusive(&lock_) != 0) return;
            YieldProcessor();
        }
        AcquireSRWLockExclusive(&lock_);
    }
    void unlock() { ReleaseSRWLockExclusive(&lock_); }
    void lock_shared() { AcquireSRWLockShared(&lock_); }
    void unlock_shared() { ReleaseSRWLockShared(&lock_); }
    SRWLOCK* native() { return &lock_; }

  private:
    SRWLOCK lock_ = SRWLOCK_INIT;
};

using Guard = std::unique_lock<Mutex>;
using SharedGuard = std::shared_lock<Mutex>;

class Condition {
  public:
    Condition() = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;
    void wait(Guard& guard) { SleepConditionVariableSRW(&condition_, guard.mutex()->native(), INFINITE, 0); }
    // Returns at the deadline at the latest; may return early, so callers loop.
    void wait_until(Guard& guard, Clock::time_point deadline) {
        const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now()).count();
        if (left > 0) SleepConditionVariableSRW(&condition_, guard.mutex()->native(), static_cast<DWORD>(left), 0);
    }
    void notify_all() { WakeAllConditionVariable(&condition_); }
    void notify_one() { WakeConditionVariable(&condition_); }

  private:
    CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

// Room for so many threads at once; the others wait. Held by std::lock_guard.
class Places {
  public:
    explicit Places(unsigned count) : free_(count) {}
    Places(const Places&) = delete;
    Places& operator=(const Places&) = delete;
    void lock() {
        Guard guard(lock_);
        while (free_ == 0) freed_.wait(guard);
        --free_;
    }
    void unlock() {
        const Guard guard(lock_);
        ++free_;
        freed_.notify_one();
    }

  private:
    Mutex lock_;
    Condition freed_;
    unsigned free_;
};

inline unsigned processor_count() {
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    return system.dwNumberOfProcessors;
}

// A thread that is joined when its owner goes. Throws std::bad_alloc when the system has no thread to give.
class Thread {
  public:
    explicit Thread(std::function<void()> body) {
        auto start = std::make_unique<std::function<void()>>(std::move(body));
        handle_ = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, run, start.get(), 0, &id_));
        if (handle_ == nullptr) throw std::bad_alloc();
        static_cast<void>(start.release());  // the thread has it
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread() {
        WaitForSingleObject(handle_, INFINITE);
        CloseHandle(handle_);
    }
    bool ended() const { return WaitForSingleObject(handle_, 0) == WAIT_OBJECT_0; }
    bool is_current() const { return id_ == GetCurrentThreadId(); }

  private:
    static unsigned __stdcall run(void* start) {
        const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(start));
        (*body)();
        return 0;
    }

    HANDLE handle_ = nullptr;
    unsigned id_ = 0;
};

}  // namespace softboard
