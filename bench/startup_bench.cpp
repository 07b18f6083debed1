// Start-up with every channel that there can be, against one reset and the threads that make the resets; what a started
// and an open line hold; and whether anything stays behind a shutdown.
#include <windows.h>
// psapi.h wants windows.h first.
#include <process.h>
#include <psapi.h>

#include <algorithm>
#include <atomic>

#include "calddlld.h"
#include "own_process.h"
#include "provider_under_test.h"
#include "results.h"
#include "text.h"

namespace {

constexpr double GOAL = 1.2;
constexpr unsigned THREAD_STACK_SIZE = 16384;  // as the provider's
constexpr DWORD THREAD_END_TIMEOUT = 60000;    // milliseconds
constexpr double KEPT_KILOBYTES = 3.52;  // a line's record, which the thread of each reset leaves behind on purpose
constexpr double GROWN = 1.1;            // times that; what Windows makes once, somewhere in the rounds, is no growth
constexpr double GROWN_HANDLES = 0.1;
constexpr uint32_t RESET_DURATIONS[] = {0, 50, 500};

double milliseconds_since(int64_t ticks) {
    return nanoseconds(ticks_now() - ticks) / 1e6;
}

// ---- time ----------------------------------------------------------------------------------------------------------

double start_up_time(const ProviderUnderTest& provider) {
    const int64_t before = ticks_now();
    start_provider(provider);
    return milliseconds_since(before);
}

double reset_time(const ProviderUnderTest& provider) {
    DornAttachRecord attach{};
    DornResetRecord reset{};
    DornLine* line = find_function<decltype(&::DornLineAttach)>(provider.board_module, "DornLineAttach")(&attach);
    const int64_t before = ticks_now();
    find_function<decltype(&::DornLineReset)>(provider.board_module, "DornLineReset")(line, &reset);
    return milliseconds_since(before);
}

struct IdleThreads {
    std::atomic<uint32_t> left;
    OwnedHandle done{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

void __cdecl idle_thread(void* argument) {
    auto& threads = *static_cast<IdleThreads*>(argument);
    if (--threads.left == 0) SetEvent(threads.done.get());
}

// Threads that do nothing, started one after another and waited for as the provider waits for its resets.
double idle_threads_time(uint32_t count) {
    static IdleThreads threads;
    threads.left = count;
    ResetEvent(threads.done.get());
    const int64_t before = ticks_now();
    for (uint32_t i = 0; i < count; ++i) _beginthread(idle_thread, THREAD_STACK_SIZE, &threads);
    WaitForSingleObject(threads.done.get(), INFINITE);
    return milliseconds_since(before);
}

// A thread says that it is done a moment before it is gone.
void wait_for_own_threads(DWORD count) {
    if (!wait_for_threads(count, THREAD_END_TIMEOUT)) give_up("threads of the provider stay behind");
}

void measure_time(const ProviderUnderTest& provider, const Results& results, unsigned repetitions) {
    const DWORD threads = process_counts().threads;
    std::vector<double> start_up[std::size(RESET_DURATIONS)];
    std::vector<double> reset[std::size(RESET_DURATIONS)];
    std::vector<double> idle_threads;
    const uint32_t lines = provider.board->channels;
    for (unsigned repetition = 0; repetition < repetitions; ++repetition) {
        for (size_t i = 0; i < std::size(RESET_DURATIONS); ++i) {
            provider.board->reset_duration = RESET_DURATIONS[i];
            start_up[i].push_back(start_up_time(provider));
            shut_provider_down(provider);
            wait_for_own_threads(threads);
            reset[i].push_back(reset_time(provider));
            idle_threads.push_back(idle_threads_time(lines));
            wait_for_own_threads(threads);
        }
    }
    for (size_t i = 0; i < std::size(RESET_DURATIONS); ++i) {
        const double one_reset = median(reset[i]);
        const double all_threads = median(idle_threads);
        results.add({format("start-up with %u lines, a reset of %u ms", lines, RESET_DURATIONS[i]), "ms",
                     median(start_up[i]), std::max(one_reset, all_threads), GOAL,
                     one_reset > all_threads ? "floor: one reset" : "floor: threads that do nothing"});
    }
    provider.board->reset_duration = 0;
}

// ---- memory and handles --------------------------------------------------------------------------------------------

struct Holdings {
    double resident;   // KB
    double committed;  // KB, private: what the heaps have taken; comes back to the byte when nothing is left behind
    double handles;
};

// Region by region: Wine's GetProcessMemoryInfo has no figure for it.
size_t committed_bytes() {
    size_t bytes = 0;
    const uint8_t* address = nullptr;
    MEMORY_BASIC_INFORMATION region;
    while (VirtualQuery(address, &region, sizeof region) != 0) {
        if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) bytes += region.RegionSize;
        address = static_cast<const uint8_t*>(region.BaseAddress) + region.RegionSize;
    }
    return bytes;
}

// One by one: Wine's GetProcessHandleCount tells the size of the table, which never shrinks.
size_t open_handles() {
    constexpr uintptr_t HIGHEST = 0x40000;
    size_t count = 0;
    for (uintptr_t value = 4; value <= HIGHEST; value += 4) {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
    }
    return count;
}

Holdings holdings() {
    PROCESS_MEMORY_COUNTERS counters{};
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters))
        give_up("GetProcessMemoryInfo has failed, " + windows_error(GetLastError()));
    return {static_cast<double>(counters.WorkingSetSize) / 1024, static_cast<double>(committed_bytes()) / 1024,
            static_cast<double>(open_handles())};
}

void CALLBACK on_event(HTAPILINE htLine, HTAPICALL, DWORD dwMsg, DWORD_PTR, DWORD_PTR dwParam2, DWORD_PTR) {
    take_new_call(htLine, dwMsg, dwParam2);
}

// What a line is made of: a thread that waits, a mutex and three events.
struct BareLine {
    OwnedHandle mutex{CreateMutexW(nullptr, FALSE, nullptr)};
    OwnedHandle events[3] = {OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
                             OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
                             OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr))};
};

void __cdecl waiting_thread(void* end) {
    WaitForSingleObject(end, INFINITE);
}

Holdings bare_lines(uint32_t count) {
    const DWORD threads = process_counts().threads;
    const OwnedHandle end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Holdings before = holdings();
    const std::vector<BareLine> lines(count);
    for (uint32_t i = 0; i < count; ++i) _beginthread(waiting_thread, THREAD_STACK_SIZE, end.get());
    const Holdings after = holdings();
    SetEvent(end.get());
    wait_for_own_threads(threads);
    return {after.resident - before.resident, after.committed - before.committed, after.handles - before.handles};
}

// Leaves the provider shut down.
void measure_lines(const ProviderUnderTest& provider, const Results& results, uint32_t open_lines) {
    const DWORD threads = process_counts().threads;
    const Holdings bare = bare_lines(open_lines);
    const Holdings before = holdings();
    start_provider(provider);
    wait_for_own_threads(threads);
    const Holdings started = holdings();
    std::vector<HDRVLINE> lines;
    while (lines.size() < open_lines)
        lines.push_back(open_line(provider, static_cast<uint32_t>(lines.size()), on_event));
    const Holdings open = holdings();
    for (HDRVLINE line : lines)
        if (provider.tspi->lineClose(line) != 0) give_up("a line cannot be closed");
    wait_for_own_threads(threads);
    shut_provider_down(provider);

    const uint32_t started_lines = provider.board->channels;
    const std::string of_started = format("over %u lines", started_lines);
    const std::string of_open = format("over %u lines; floor: a thread, a mutex and three events", open_lines);
    results.add({"memory of a started line", "KB", (started.resident - before.resident) / started_lines, std::nullopt,
                 std::nullopt, of_started});
    results.add({"handles of a started line", "handles", (started.handles - before.handles) / started_lines,
                 std::nullopt, std::nullopt, of_started});
    results.add({"memory of an open line", "KB", (open.resident - started.resident) / open_lines,
                 bare.resident / open_lines, std::nullopt, of_open});
    results.add({"handles of an open line", "handles", (open.handles - started.handles) / open_lines,
                 bare.handles / open_lines, std::nullopt, of_open});
}

// ---- rounds --------------------------------------------------------------------------------------------------------

void measure_rounds(const ProviderUnderTest& provider, const Results& results, uint32_t lines) {
    constexpr int SETTLED = 10;
    constexpr int ROUNDS = 100;
    provider.board->make_channels(lines);
    const DWORD threads = process_counts().threads;
    Holdings settled{};
    for (int round = 1; round <= ROUNDS; ++round) {
        start_provider(provider);
        wait_for_own_threads(threads);
        shut_provider_down(provider);
        if (round == SETTLED) settled = holdings();
    }
    const Holdings end = holdings();
    constexpr double COUNTED = ROUNDS - SETTLED;
    const std::string note =
        format("over the rounds %d to %d of start-up and shutdown, %u lines", SETTLED + 1, ROUNDS, lines);
    results.add({"memory grown by a round", "KB", (end.committed - settled.committed) / COUNTED, KEPT_KILOBYTES * lines,
                 GROWN, note + "; floor: the record that each reset leaves"});
    results.add({"handles grown by a round", "handles", (end.handles - settled.handles) / COUNTED, std::nullopt,
                 GROWN_HANDLES, note});
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "startup");
    const uint32_t lines = arguments.take_number("--lines", BENCH_CHANNELS);
    const unsigned repetitions = arguments.take_number("--repetitions", 7);
    const ProviderUnderTest provider = load_provider(lines);
    measure_time(provider, results, repetitions);
    measure_lines(provider, results, std::min(lines, arguments.take_number("--open-lines", 1024)));
    measure_rounds(provider, results, std::min(lines, 64u));
    ExitProcess(0);
}
