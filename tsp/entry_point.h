// The frame that the exported functions share: entry and exit traces, and the catch-all, said once.
#pragma once

#include "diag/diag.h"
#include "fault_guard.h"
#include "provider.h"

constexpr DWORD LAST_ERROR_EXCEPTION = ERROR_EXCEPTION_IN_SERVICE;
static_assert(LAST_ERROR_EXCEPTION == 1064, "TAPI's clients look for this number");

// What every exported function makes of an exception or a fault inside it.
inline LONG exception_result(const char* name) {
    TRACE(TRACE_PANIC, "%s: Exception", name);
    SetLastError(LAST_ERROR_EXCEPTION);
    return LINEERR_OPERATIONFAILED;
}

template <class Body>
LONG catch_all(const char* name, Body body) {
    LONG result = 0;
    return completes([&] { result = body(); }) ? result : exception_result(name);
}

// What a TSPI_line* body may change about its exit trace: `line` set to null when the record is gone or not to be
// named.
struct LineEntry {
    const char* name;
    LineRec* line;
};

inline void trace_line_enter(const LineEntry& entry) {
    if (entry.line)
        TRACE_LINE(TRACE_LINE_ENTER, entry.line, "%s", entry.name);
    else
        TRACE(TRACE_LINE_ENTER, "%s", entry.name);
}

inline LONG trace_line_exit(const LineEntry& entry, LONG result, LONG good) {
    const char* verdict = result == good ? "Good" : "Failed";
    if (entry.line)
        TRACE_LINE(TRACE_LINE_EXIT, entry.line, "%s(%d) %s", entry.name, result, verdict);
    else
        TRACE(TRACE_LINE_EXIT, "%s(%d) %s", entry.name, result, verdict);
    return result;
}

// A TSPI_line* function on a line or call handle (null allowed): body(LineEntry&) returns 0 or a LINEERR_* code.
template <class Body>
LONG line_entry(const char* name, LineRec* pLine, Body body) {
    return catch_all(name, [&] {
        LineEntry entry{name, pLine};
        trace_line_enter(entry);
        const LONG result = body(entry);
        return trace_line_exit(entry, result, 0);
    });
}

// The same for an asynchronous function: body returns the request ID or a LINEERR_* code.
template <class Body>
LONG async_line_entry(const char* name, LineRec* pLine, DRV_REQUESTID dwRequestID, Body body) {
    return catch_all(name, [&] {
        LineEntry entry{name, pLine};
        trace_line_enter(entry);
        const LONG result = body(entry);
        return trace_line_exit(entry, result, static_cast<LONG>(dwRequestID));
    });
}

// The whole of a query that was given no line; its exit trace has a level of its own.
inline LONG null_line_query(const char* name) {
    return catch_all(name, [&] {
        TRACE(TRACE_LINE_ENTER, "%s", name);
        TRACE(TRACE_ERROR, "%s pLine=NULL", name);
        TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, LINEERR_INVALLINEHANDLE);
        return static_cast<LONG>(LINEERR_INVALLINEHANDLE);
    });
}
