// The board that the benchmarks put under the provider: as many channels as wanted, which do nothing but what a
// measurement needs, and that at once. Its calddlld.dll exports `bench_board` beside the driver interface.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

constexpr uint32_t BENCH_CHANNELS = 4048;

// The time of the performance counter, and how long so many of its ticks are.
inline int64_t ticks_now() {
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return ticks.QuadPart;
}
inline double nanoseconds(int64_t ticks) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1e9 * static_cast<double>(ticks) / static_cast<double>(frequency.QuadPart);
}

// Times of one page's end.
struct PageEndTicks {
    int64_t frame;  // before the frame that announces the next page
    int64_t end;    // before the end of the page
};

struct BenchBoard {
    uint32_t channels = 0;        // on module 2; channel, unit and line index are one number
    uint32_t reset_duration = 0;  // milliseconds

    // Parties of the calls that ring.
    const char* called = "";
    const char* caller = "";
    const char* caller_name = "";

    // Makes the channels, with what the system needs for them.
    void (*make_channels)(uint32_t count);
    // One ring of a channel whose line waits for a call. Returns the time right before it.
    int64_t (*ring)(uint32_t channel);
    // Whether the channel is in a fax session, which lasts until it is alerted.
    bool (*in_session)(uint32_t channel);
    // Reports the end of a page that another one follows; returns when the provider's handler has.
    PageEndTicks (*end_page)(uint32_t channel);

    // Of the log: the key under which the provider has registered its filter, and, when not null, what is called for
    // every question whether a level is wanted.
    uint32_t log_client = 0;
    std::atomic<void (*)(int level)> on_question{nullptr};
};

using BenchBoardAccess = BenchBoard* (*)();
