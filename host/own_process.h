// Threads of the host's own, and the counts by which one sees whether anything was left behind.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>

#include "owned.h"

// A thread that is waited for when its owner goes. Started with the C runtime, because a detached std::thread now and
// then never runs with this tool chain under Wine.
struct ThreadJoiner {
    using pointer = HANDLE;
    void operator()(HANDLE thread) const {
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
    }
};
using OwnedThread = std::unique_ptr<void, ThreadJoiner>;

OwnedThread thread_start(std::function<void()> body);

// Kernel handles and threads of this process.
struct ProcessCounts {
    DWORD handles = 0;
    DWORD threads = 0;
};

ProcessCounts process_counts();

// The same, once there are no more than `threads` left or a second has passed: a thread that is done takes a moment to
// go.
ProcessCounts settled_counts(DWORD threads);

// Waits until the process has at most `count` threads; false when `timeout` milliseconds passed first.
bool wait_for_threads(DWORD count, DWORD timeout);
