#include "waiting.h"

#include <chrono>
#include <set>
#include <utility>

namespace harness {

namespace {

// What gates need is never destroyed, so that the gates of other static objects may go at any time.
std::condition_variable& condition() {
    static auto& variable = *new std::condition_variable;
    return variable;
}

uint64_t changes = 0;

std::set<Gate*>& gates() {
    static auto& all = *new std::set<Gate*>;
    return all;
}

}  // namespace

std::mutex& world() {
    static auto& mutex = *new std::mutex;
    return mutex;
}

void world_changed() {
    {
        std::lock_guard<std::mutex> holding(world());
        ++changes;
    }
    condition().notify_all();
}

bool wait_until(const std::function<bool()>& asked, int milliseconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        uint64_t seen;
        {
            std::lock_guard<std::mutex> holding(world());
            seen = changes;
        }
        if (asked()) return true;
        std::unique_lock<std::mutex> holding(world());
        if (!condition().wait_until(holding, deadline, [&] { return changes != seen; })) {
            holding.unlock();
            return asked();
        }
    }
}

void block_until(std::unique_lock<std::mutex>& holding, const std::function<bool()>& predicate) {
    condition().wait(holding, predicate);
}

Gate::Gate() {
    std::lock_guard<std::mutex> holding(world());
    gates().insert(this);
}

Gate::~Gate() {
    open();
    std::unique_lock<std::mutex> holding(world());
    block_until(holding, [this] { return waiting_ == 0; });
    gates().erase(this);
}

void Gate::close() {
    std::lock_guard<std::mutex> holding(world());
    closed_ = true;
    tickets_ = 0;
}

void Gate::open() {
    {
        std::lock_guard<std::mutex> holding(world());
        closed_ = false;
    }
    world_changed();
}

void Gate::open_once() {
    {
        std::lock_guard<std::mutex> holding(world());
        ++tickets_;
    }
    world_changed();
}

void Gate::pass() {
    {
        std::unique_lock<std::mutex> holding(world());
        if (!closed_) return;
        ++waiting_;
    }
    world_changed();
    {
        std::unique_lock<std::mutex> holding(world());
        block_until(holding, [this] { return !closed_ || tickets_ > 0; });
        if (tickets_ > 0) --tickets_;
        --waiting_;
    }
    world_changed();
}

bool Gate::holds_somebody(int milliseconds) {
    return wait_until(
        [this] {
            std::lock_guard<std::mutex> holding(world());
            return waiting_ > tickets_;
        },
        milliseconds);
}

void open_all_gates() {
    {
        std::lock_guard<std::mutex> holding(world());
        for (Gate* gate : gates()) gate->closed_ = false;
    }
    world_changed();
}

DWORD WINAPI Call::run(void* argument) {
    auto* state = static_cast<State*>(argument);
    state->result = state->body();
    state->last_error = GetLastError();
    return 0;
}

Call::Call(std::function<LONG()> body) : state_(new State), handle_(nullptr, CloseHandle) {
    state_->body = std::move(body);
    handle_.reset(CreateThread(nullptr, 0, run, state_.get(), 0, &thread_));
}

Call::~Call() {
    if (handle_) WaitForSingleObject(handle_.get(), INFINITE);
}

bool Call::returns_within(int milliseconds) {
    return WaitForSingleObject(handle_.get(), static_cast<DWORD>(milliseconds)) == WAIT_OBJECT_0;
}

LONG Call::result() {
    WaitForSingleObject(handle_.get(), INFINITE);
    return state_->result;
}

DWORD Call::last_error() {
    WaitForSingleObject(handle_.get(), INFINITE);
    return state_->last_error;
}

void cause_access_violation() {
    static volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

}  // namespace harness
