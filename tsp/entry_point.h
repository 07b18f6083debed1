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

// When a provider-level function stops the libraries that it has started.
enum class LibraryEnd { UnlessOpenedBefore, OnFailure, Always };

// A TSPI_provider* or TUISPI_* function: its work between the start and the stop of ACE and the driver library.
// trace_enter() writes the entry trace; work() returns 0 or a LINEERR_* code.
template <class TraceEnter, class Work>
LONG provider_entry(const char* name, TraceLevel exit_level, LibraryEnd end, TraceEnter trace_enter, Work work) {
    return catch_all(name, [&] {
        const bool opened_before = library_use_begin();
        trace_enter();
        const LONG result = work();
        TRACE(exit_level, "%s(%d) %s", name, result, result == 0 ? "Good" : "Failed");
        const bool ends = end == LibraryEnd::Always || (end == LibraryEnd::OnFailure && result != 0) ||
                          (end == LibraryEnd::UnlessOpenedBefore && !opened_before);
        if (ends) library_use_end();
        return result;
    });
}

// What a TSPI_line* body may change about its exit trace: `line` set to null when the record is gone or not to be
// named.
struct LineEntry {
    const char* name;
    LineRec* line;
    LineIdentity last_seen = {};
    bool is_left = false;

    // The body gives the line's lock up for good, and others may free the record: the exit trace names the line as it
    // is now. Lock held.
    void leave_line() {
        last_seen = identity_of(line);
        is_left = true;
    }
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
        TRACE_LINE(TRACE_LINE_EXIT, entry.is_left ? entry.last_seen : identity_of(entry.line), "%s(%d) %s", entry.name,
                   result, verdict);
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
