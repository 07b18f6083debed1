// Handle check and line lock: what every operation on a line does first.
#include <algorithm>
#include <iterator>

#include "diag/diag.h"
#include "provider.h"

namespace {

struct NamedWaitResult {
    DWORD result;
    const wchar_t* name;
};
constexpr NamedWaitResult WAIT_RESULTS[] = {
    {WAIT_FAILED, L"WAIT_FAILED"},
    {WAIT_ABANDONED, L"WAIT_ABANDONED"},
    {WAIT_OBJECT_0, L"WAIT_OBJECT_0"},
    {WAIT_TIMEOUT, L"WAIT_TIMEOUT"},
};

// What a thread holds through LineLock, oldest first. No code holds two lines, but it may hold one several times over;
// what does not fit is not given back after a fault.
constexpr size_t MAX_HELD_LOCKS = 16;
thread_local LineRec* held_lines[MAX_HELD_LOCKS];
thread_local size_t held_count = 0;

}  // namespace

void LineLock::lock() {
    lock_line(pLine);
    held = true;
    if (held_count < MAX_HELD_LOCKS) held_lines[held_count] = pLine;
    ++held_count;
}

void LineLock::unlock() {
    held = false;
    --held_count;
    unlock_line(pLine);
}

size_t LineLock::held_by_this_thread() {
    return held_count;
}

void LineLock::release_since(size_t count) {
    while (held_count > count) {
        --held_count;
        if (held_count < MAX_HELD_LOCKS) unlock_line(held_lines[held_count]);
    }
}

const wchar_t* wait_result_name(DWORD result) {
    for (const NamedWaitResult& named : WAIT_RESULTS)
        if (named.result == result) return named.name;
    return L"Unknown!";
}

bool IsValidLine(LineRec* pLine) {
    constexpr char name[] = "IsValidLine";
    if (!pLine) {
        TRACE(TRACE_FUNCTION_ENTER, name);
        TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, 0);
        return false;
    }
    TRACE_ENTER(pLine, name);
    const auto& open_lines = globals.gpLineByUnit;
    const bool valid = std::find(std::begin(open_lines), std::end(open_lines), pLine) != std::end(open_lines);
    TRACE_LINE(TRACE_FUNCTION_EXIT, pLine, "%s(%d)", name, valid ? 1 : 0);
    return valid;
}

void lock_line(LineRec* pLine) {
    if (!pLine) {
        TRACE(TRACE_FUNCTION_ENTER, "lock_line");
        TRACE(TRACE_ERROR, "lock_line() pLine=NULL");
        TRACE(TRACE_FUNCTION_EXIT, "lock_line");
        return;
    }
    TRACE_ENTER(pLine, "lock_line");
    const DWORD result = WaitForSingleObject(pLine->line_mutex, INFINITE);
    pLine->line_mutex_WaitOn_InThreadId = GetCurrentThreadId();
    TRACE(TRACE_INFO, "lock_line() WaitForSingleObject( pLine->line_mutex= 0x%p )  thread= 0x%X", pLine->line_mutex,
          GetCurrentThreadId());
    TRACE(TRACE_INFO, "lock_line() WaitForSingleObject() result= (%ls)", wait_result_name(result));
    TRACE_EXIT(pLine, "lock_line");
}

void unlock_line(LineRec* pLine) {
    if (!pLine) {
        TRACE(TRACE_FUNCTION_ENTER, "unlock_line");
        TRACE(TRACE_ERROR, "unlock_line() pLine=NULL");
        TRACE(TRACE_FUNCTION_EXIT, "unlock_line");
        return;
    }
    TRACE_ENTER(pLine, "unlock_line");
    // Once the mutex is released, whoever waited for it may close the line: the record is not read any more.
    const LineIdentity identity = identity_of(pLine);
    const HANDLE mutex = pLine->line_mutex;
    const uint32_t created_in = pLine->line_mutex_CreatedInThreadId;
    const uint32_t waited_in = pLine->line_mutex_WaitOn_InThreadId;
    if (!ReleaseMutex(mutex)) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "unlock_line() ReleaseMutex() failed ############################# lastErr= 0x%X", error);
    }
    TRACE(TRACE_INFO, "unlock_line()        ReleaseMutex( pLine->line_mutex= 0x%p )  thread= 0x%X", mutex,
          GetCurrentThreadId());
    TRACE(TRACE_INFO, "unlock_line() pLine->line_mutex_CreatedInThreadId= 0x%X", created_in);
    TRACE(TRACE_INFO, "unlock_line() pLine->line_mutex_WaitOn_InThreadId= 0x%X", waited_in);
    TRACE_EXIT(identity, "unlock_line");
}
