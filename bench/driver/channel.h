// A channel of the benchmarks' board, for the two rooms that work on it: lines and calls, fax sessions.
#pragma once

#include <windows.h>

#include <cstdint>

#include "bench_board.h"
#include "calddlld.h"

struct BenchChannel {
    DornLine head = {};
    uint32_t unit = 0;
    uint32_t state = 0;
    DornIncomingCmdFunc handler = nullptr;

    SRWLOCK lock = SRWLOCK_INIT;  // over the three below
    bool waiting = false;         // in a blocking call
    bool rung = false;
    bool alerted = false;
    HANDLE wake = nullptr;  // auto-reset: one of the two has become true

    volatile bool in_session = false;
};

extern BenchBoard gBoard;
extern BenchChannel gChannels[BENCH_CHANNELS];

inline BenchChannel& channel_of(DornLine* line) {
    return *reinterpret_cast<BenchChannel*>(line);
}

// Blocks until the channel rings or is alerted, at most so many milliseconds. Returns the call's status.
uint32_t wait_on(BenchChannel& channel, DWORD timeout);

// What the interface calls page end and frame reports, for BenchBoard.
bool in_session(uint32_t channel);
PageEndTicks end_page(uint32_t channel);
