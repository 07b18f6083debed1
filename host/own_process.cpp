// Thread start and process counts.
#include "own_process.h"

#include <process.h>
#include <tlhelp32.h>

#include <memory>

static constexpr ULONG_PTR HIGHEST_HANDLE = 0x4000;
static constexpr DWORD SETTLING_TIME = 1000;  // milliseconds

static unsigned __stdcall run_body(void* argument) {
    const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
    (*body)();
    return 0;
}

OwnedThread thread_start(std::function<void()> body) {
    auto argument = std::make_unique<std::function<void()>>(std::move(body));
    OwnedThread thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, run_body, argument.get(), 0, nullptr)));
    if (thread) static_cast<void>(argument.release());  // the thread has it
    return thread;
}

static DWORD thread_count() {
    const OwnedHandle snapshot = owned_file(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 thread = {};
    thread.dwSize = sizeof(thread);
    DWORD count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &thread); more; more = Thread32Next(snapshot.get(), &thread)) {
        if (thread.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    return count;
}

// Wine's GetProcessHandleCount always says 0; handles are small multiples of 4 there as on Windows.
static DWORD count_valid_handles() {
    DWORD count = 0;
    for (ULONG_PTR value = 4; value < HIGHEST_HANDLE; value += 4) {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
    }
    return count;
}

ProcessCounts process_counts() {
    ProcessCounts counts;
    GetProcessHandleCount(GetCurrentProcess(), &counts.handles);
    if (counts.handles == 0) counts.handles = count_valid_handles();
    counts.threads = thread_count();
    return counts;
}

bool wait_for_threads(DWORD count, DWORD timeout) {
    const ULONGLONG deadline = GetTickCount64() + timeout;
    while (thread_count() > count) {
        if (GetTickCount64() >= deadline) return false;
        Sleep(10);
    }
    return true;
}

ProcessCounts settled_counts(DWORD threads) {
    wait_for_threads(threads, SETTLING_TIME);
    return process_counts();
}
