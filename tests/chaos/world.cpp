#include "world.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "journal.h"
#include "objects.h"
#include "text.h"

namespace chaos {

using harness::text;

// A thread of the machine that lives once or several times in the world.
struct Thread {
    std::string name;
    std::function<void()> body;
    bool lives = false;
    const std::function<bool()>* ready = nullptr;  // what it waits for, null when it could go on
    Milliseconds deadline = FOR_EVER;
    std::string waits_for;
    Task task;
    int on_its_way_from = -1;
    volatile LONG is_introduced = 0;
    volatile LONG turn = 0;
    DWORD id = 0;
};

Habits habits;

namespace {

constexpr Milliseconds LONGEST_TASK = 6 * 3600 * 1000;
constexpr uint32_t LONGEST_STALL = 10000;
constexpr DWORD LONGEST_TURN = 30000;  // milliseconds of the machine's time

uint64_t first_seed = 0;
Chance the_chance;
Milliseconds time_now = 0;
volatile LONG64 step_count = 0;
std::deque<Thread> threads;
std::vector<Thread*> candidates;
std::map<std::string, size_t> started_threads;
Thread* the_running = nullptr;
void (*introduce_thread)() = nullptr;

bool is_over(const Thread& waiting) {
    return waiting.deadline <= time_now || (*waiting.ready)();
}

std::string wait_of(const Thread& thread) {
    if (&thread == the_running) return "runs";
    if (!thread.ready) return "could go on";
    std::string until = thread.deadline == FOR_EVER ? "for ever" : text("until %llu", thread.deadline);
    return "waits for " + thread.waits_for + " " + until;
}

std::string told(const Task& task) {
    return task.what.empty() ? "" : task.what + " on " + task.owner + "; ";
}

// The next time at which somebody's wait is over.
Milliseconds next_deadline() {
    Milliseconds next = FOR_EVER;
    for (const Thread& thread : threads)
        if (thread.lives && thread.ready && thread.deadline > time_now) next = std::min(next, thread.deadline);
    return next;
}

void put_clock_forward(Milliseconds time) {
    time_now = time;
    for (const Thread& thread : threads)
        if (thread.lives && !thread.task.what.empty() && time_now - thread.task.since > LONGEST_TASK)
            give_up(thread.name + " does not come back from " + thread.task.what);
}

Thread& choose() {
    for (;;) {
        candidates.clear();
        for (Thread& thread : threads)
            if (thread.lives && (!thread.ready || is_over(thread))) candidates.push_back(&thread);
        const Milliseconds next = next_deadline();
        if (candidates.empty() && next == FOR_EVER) give_up("nobody can ever go on");
        const bool jumps = next != FOR_EVER && (candidates.empty() || the_chance.below(1000000) < habits.hurries);
        if (!jumps) return *candidates[the_chance.below(static_cast<uint32_t>(candidates.size()))];
        put_clock_forward(next);
    }
}

// Waits until the flag is set, and clears it.
void await(volatile LONG& flag) {
    LONG not_yet = 0;
    while (InterlockedCompareExchange(&flag, 0, 1) == 0) WaitOnAddress(&flag, &not_yet, sizeof not_yet, INFINITE);
}

void set(volatile LONG& flag) {
    InterlockedExchange(&flag, 1);
    WakeByAddressSingle(const_cast<LONG*>(&flag));
}

void give_turn(Thread& next) {
    the_running = &next;
    set(next.turn);
}

void pass_turn() {
    Thread& me = *the_running;
    InterlockedIncrement64(&step_count);
    Thread& next = choose();
    if (&next == &me) return;
    give_turn(next);
    await(me.turn);
}

DWORD WINAPI live_again_and_again(void* argument) {
    Thread& me = *static_cast<Thread*>(argument);
    introduce_thread();
    set(me.is_introduced);
    for (;;) {
        await(me.turn);
        harness::note(me.name + " begins");
        me.body();
        me.body = nullptr;
        me.on_its_way_from = -1;
        me.lives = false;
        give_turn(choose());
    }
}

// Only a turn that does not end, or a call into Windows that should not have been made, brings it up.
DWORD WINAPI watch(void*) {
    LONG64 seen = -1;
    for (;;) {
        Sleep(LONGEST_TURN);
        const LONG64 counted = InterlockedCompareExchange64(&step_count, 0, 0);
        if (counted == seen) give_up("the turn does not end");
        seen = counted;
    }
}

LONG WINAPI last_words(EXCEPTION_POINTERS* fault) {
    give_up(text("fault 0x%lX at %p", fault->ExceptionRecord->ExceptionCode, fault->ExceptionRecord->ExceptionAddress));
}

Thread& new_thread() {
    for (Thread& thread : threads)
        if (!thread.lives) return thread;
    threads.emplace_back();
    Thread& thread = threads.back();
    CloseHandle(CreateThread(nullptr, 0, live_again_and_again, &thread, 0, &thread.id));
    await(thread.is_introduced);
    return thread;
}

}  // namespace

// ---- chance: SplitMix64 -------------------------------------------------------------------------------------------

uint64_t Chance::next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

uint32_t Chance::below(uint32_t bound) {
    return static_cast<uint32_t>(((next() >> 32) * bound) >> 32);
}

Chance& chance() {
    return the_chance;
}

// ---- threads ------------------------------------------------------------------------------------------------------

void begin_world(uint64_t seed, void (*introduce)()) {
    first_seed = seed;
    introduce_thread = introduce;
    the_chance = Chance(seed);
    threads.emplace_back();
    Thread& test = threads.back();
    test.name = "the test";
    test.lives = true;
    test.id = GetCurrentThreadId();
    the_running = &test;
    SetUnhandledExceptionFilter(last_words);
    CloseHandle(CreateThread(nullptr, 0, watch, nullptr, 0, nullptr));
}

void start_thread(const std::string& name, std::function<void()> body) {
    Thread& thread = new_thread();
    thread.name = name;
    thread.body = std::move(body);
    thread.ready = nullptr;
    thread.task = {};
    thread.lives = true;
    ++started_threads[name];
}

Thread* running() {
    return the_running;
}

bool has_turn() {
    return the_running && the_running->id == GetCurrentThreadId();
}

const std::string& name_of(const Thread* thread) {
    return thread->name;
}

size_t alive(const std::string& name) {
    return static_cast<size_t>(std::count_if(threads.begin(), threads.end(), [&](const Thread& thread) {
        return thread.lives && thread.name.compare(0, name.size(), name) == 0;
    }));
}

void point() {
    if (the_chance.below(10000) < habits.stalls) {
        wait(
            "a turn on a busy machine", [] { return false; }, the_chance.below(LONGEST_STALL));
    } else if (!the_chance.percent(habits.stays)) {
        pass_turn();
    }
}

size_t started(const std::string& name) {
    return started_threads[name];
}

bool wait(const std::string& for_what, const std::function<bool()>& ready, Milliseconds at_most) {
    Thread& me = *the_running;
    me.ready = &ready;
    me.deadline = at_most == FOR_EVER ? FOR_EVER : time_now + at_most;
    me.waits_for = for_what;
    pass_turn();
    me.ready = nullptr;
    me.deadline = FOR_EVER;
    return ready();
}

void sleep(Milliseconds time) {
    the_running->on_its_way_from = -1;
    wait(
        "time to pass", [] { return false; }, time);
}

Milliseconds now() {
    return time_now;
}

uint64_t steps() {
    return static_cast<uint64_t>(step_count);
}

const Task& current_task() {
    return the_running->task;
}

Doing::Doing(const std::string& what, const std::string& owner, const std::string& thread)
    : before_(the_running->task) {
    the_running->task = {what, owner, thread, time_now};
}

Doing::~Doing() {
    the_running->task = before_;
}

// ---- an alert on its way ------------------------------------------------------------------------------------------

void on_its_way_from(uint32_t place) {
    the_running->on_its_way_from = static_cast<int>(place);
}

void arrived() {
    the_running->on_its_way_from = -1;
}

void wait_for_those_on_their_way(uint32_t place) {
    const Thread* me = the_running;
    const auto is_on_its_way = [me, place](const Thread& thread) {
        return thread.lives && &thread != me && thread.on_its_way_from == static_cast<int>(place) &&
               !waits_for_lock_of(&thread, me);
    };
    wait("the answer to an alert", [&] { return std::none_of(threads.begin(), threads.end(), is_on_its_way); });
}

// ---- the end of a run ---------------------------------------------------------------------------------------------

void give_up(const std::string& why) {
    std::string report = why + text("\nseed %llu, step %llu, time %llu\n", first_seed, steps(), time_now);
    report += "the journal's end:\n" + harness::whole_journal() + "the threads:\n";
    for (const Thread& thread : threads)
        if (thread.lives) report += "  " + thread.name + ": " + told(thread.task) + wait_of(thread) + "\n";
    report += "the locks that are held:\n" + held_locks();
    report += why + text("\nseed %llu\n", first_seed);
    std::fputs(report.c_str(), stdout);
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 3);
    abort();
}

}  // namespace chaos
