// Waiting by condition: the one lock of the harness, gates that hold the provider's threads, calls in the background.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace harness {

// Nothing in a test may take longer; who waits longer has found a hang.
constexpr int kPatience = 10000;  // milliseconds

// Guards everything that the harness keeps; never held while a script, a fake or the provider runs.
std::mutex& world();

// Tells every waiter to look again. The caller does not hold the world.
void world_changed();

// Waits until the condition holds, at most so many milliseconds; the condition is asked without the world held.
bool wait_until(const std::function<bool()>& condition, int milliseconds = kPatience);

// Blocks on the world's condition until the predicate, asked with the world held, is true.
void block_until(std::unique_lock<std::mutex>& holding, const std::function<bool()>& predicate);

void open_all_gates();

// A place where threads stop while it is closed. The fixture opens every gate at the end of a test.
class Gate {
  public:
    Gate();
    ~Gate();
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void close();
    void open();
    // Lets exactly one thread through, the one that waits or the next to come.
    void open_once();
    // For the place itself: returns at once while the gate is open.
    void pass();
    // Waits until a thread stands before the closed gate.
    bool holds_somebody(int milliseconds = kPatience);

  private:
    friend void open_all_gates();
    bool closed_ = false;
    int tickets_ = 0;
    int waiting_ = 0;
};

// A call made on a thread of its own, as TAPI makes them while another one blocks.
class Call {
  public:
    explicit Call(std::function<LONG()> body);
    Call(Call&&) = default;
    ~Call();

    bool returns_within(int milliseconds = kPatience);
    bool has_returned() { return returns_within(0); }
    // Waits for the result; the watchdog of the fixture ends a test that hangs here.
    LONG result();
    DWORD last_error();
    DWORD thread() const { return thread_; }

  private:
    struct State {
        std::function<LONG()> body;
        LONG result = 0;
        DWORD last_error = 0;
    };
    static DWORD WINAPI run(void* state);

    std::unique_ptr<State> state_;
    std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> handle_;
    DWORD thread_ = 0;
};

// Writes through a null pointer, the way a broken library does.
void cause_access_violation();

}  // namespace harness
