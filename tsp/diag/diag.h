// What every room of the provider uses to make itself heard: the trace log, the Windows event log, and the checks of
// the machine it runs on.
#pragma once

#include <cstdint>

// ---- trace (trace.cpp) --------------------------------------------------------------------------------------------

enum TraceLevel : int {
    TRACE_PANIC = 1,  // caught exceptions, fatal conditions; also written to the panic file
    TRACE_ERROR = 2,
    TRACE_INFO = 4,
    TRACE_FUNCTION_ENTER = 8,
    TRACE_FUNCTION_EXIT = 9,
    TRACE_TUISPI_ENTER = 12,
    TRACE_TUISPI_EXIT = 13,
    TRACE_PROVIDER_ENTER = 14,
    TRACE_PROVIDER_EXIT = 15,
    TRACE_LINE_ENTER = 16,
    TRACE_LINE_EXIT = 17,
};

// Formats a line as the C runtime's printf does, stamps it with process and thread, and logs it when its level is
// wanted. Never throws, never fails, holds no lock while it formats.
void trace(const char* source_file, uint32_t source_line, int32_t level, const char* format, ...);

#define TRACE(level, ...) trace(__FILE__, __LINE__, level, __VA_ARGS__)

// What identifies a line in the trace. Copied while the record is known to live, it can be traced after the line's lock
// has been given up for good.
struct LineRec;
struct LineIdentity {
    const LineRec* hdLine;
    const void* htLine;
    uint32_t dwDeviceID;
    const void* htCall;
};
LineIdentity identity_of(const LineRec* pLine);
inline const LineIdentity& identity_of(const LineIdentity& identity) {
    return identity;
}

// A trace with the identity of a line (a record that is not null, or a LineIdentity) in front.
#define LINE_IDENTITY "hdLine(0x%p), htLine(0x%p), dwDeviceID(0x%x), htCall(0x%p): "
#define TRACE_LINE(level, line, format, ...)                                                               \
    do {                                                                                                   \
        const LineIdentity traced = identity_of(line);                                                     \
        TRACE(level, LINE_IDENTITY format, traced.hdLine, traced.htLine, traced.dwDeviceID, traced.htCall, \
              __VA_ARGS__);                                                                                \
    } while (0)

// Entry and exit of an internal function that has a line at hand.
#define TRACE_ENTER(line, name) TRACE_LINE(TRACE_FUNCTION_ENTER, line, "%s", name)
#define TRACE_EXIT(line, name) TRACE_LINE(TRACE_FUNCTION_EXIT, line, "%s", name)

// The whole trace of a function that was given no line, or none of another argument.
#define TRACE_NULL_LINE(name) trace_null_argument(__FILE__, __LINE__, name, "pLine")
#define TRACE_NULL_ARGUMENT(name, argument) trace_null_argument(__FILE__, __LINE__, name, argument)
void trace_null_argument(const char* source_file, uint32_t source_line, const char* name, const char* argument);

// The body of a function that works on a line, between its entry and exit traces; not run when there is no line.
template <class Body>
void with_line(const char* name, const LineRec* pLine, Body body) {
    if (!pLine) {
        TRACE_NULL_LINE(name);
        return;
    }
    TRACE_ENTER(pLine, name);
    body();
    TRACE_EXIT(pLine, name);
}

// The bracket around every provider-level entry point: starts ACE and the driver library unless the trace is in use.
// Returns whether they were in use already.
bool library_use_begin();
// Stops them again if the trace is in use.
void library_use_end();

// Formats to the debugger's output, for where the trace cannot be used.
void debug_print(const char* format, ...);

// ---- Windows event log (event_log.cpp) ----------------------------------------------------------------------------

enum EventCategory : uint16_t {
    EVENT_HARDWARE_FAILURE = 1,
    EVENT_SYSTEM_FAILURE = 3,
    EVENT_NOT_CLASSIFIED = 5,
};

// Event IDs as they are reported. Each is the ID that administrators' tools know for the condition; the text that the
// message table has for it does not always describe it.
enum EventID : uint32_t {
    EVENT_UNKNOWN_DEVSPECIFIC = 0x80000011,
    EVENT_MUTEX_NOT_CREATED = 0xC0000006,
    EVENT_EVENT_NOT_CREATED = 0xC0000007,
    EVENT_NO_MEMORY = 0xC0000008,
    EVENT_ATTACH_FAILURE = 0xC000000D,
    EVENT_HOST_SERVICE_DOWN = 0xC000000E,
};

// Writes one entry under the provider's event source, strings becoming %2 and %3 of its text. 0 = written, -1 = not
// written, -2 = source not opened. strings may be null when num_strings is 0.
int32_t report_event(uint16_t category, uint32_t event_id, uint16_t num_strings, const wchar_t** strings);
// The same with one number as %2, in hexadecimal. 0, -2 or -3.
int32_t report_event_num(uint16_t category, uint32_t event_id, uint32_t number);
// The same with two numbers as %2 and %3. 0, -1, -2 or -3.
int32_t report_event_num2(uint16_t category, uint32_t event_id, uint32_t number1, uint32_t number2);
// Reports that memory ran out; a failure to report is traced as "<caller> called report_event with error".
void report_no_memory(const char* caller);

// ---- the machine (host_checks.cpp) --------------------------------------------------------------------------------

enum OsVersion : int32_t {
    OS_VERSION_QUERY_FAILED = -2,
    OS_VERSION_UNSUPPORTED = -1,
    OS_VERSION_2000 = 2,
    OS_VERSION_XP = 3,
    OS_VERSION_NETSERVER = 4,
    OS_VERSION_FUTURE = 5,
};

// Whether the board's host service runs or is starting. Asks the service manager each time.
bool QORV_IsRunning();
// Which Windows this is.
int32_t os_recognition();
// Whether the Windows fax service is installed; not looked for on systems older than XP.
bool IsFaxServicePresent();
