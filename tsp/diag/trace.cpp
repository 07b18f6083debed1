// The trace log: every function of the provider writes its lines here. The driver library's log decides which levels
// are wanted and where they go; panic lines are kept in a file of their own as well.
#include <windows.h>
// ACE's headers want windows.h included as they know it, and come before the C runtime's.
#include <ace/ACE.h>
#include <ace/Guard_T.h>
#include <ace/Init_ACE.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "calddlld.h"
#include "diag/diag.h"
#include "fault_guard.h"
#include "provider.h"
#include "qorvlog.h"

namespace {

constexpr char COMPONENT[] = "MSF_TSP";
constexpr char PANIC_FOLDER[] = "\\temp";
constexpr char PANIC_FILE[] = "QorvTspPanic.txt";
constexpr size_t LINE_LENGTH = 8192;

struct LevelSetting {
    int level;
    const char* name;
    int on;
};
constexpr LevelSetting LEVEL_SETTINGS[] = {
    {1, "FILTER_PANIC", 1},
    {2, "FILTER_ERROR", 1},
    {3, "FILTER_WARNING", 1},
    {4, "FILTER_INFO", 0},
    {5, "FILTER_UNPROCESSED_EVENT", 1},
    {8, "FILTER_FUNCTION_ENTER", 0},
    {9, "FILTER_FUNCTION_EXIT", 0},
    {10, "FILTER_STATUS", 0},
    {11, "FILTER_STATE_CHANGE", 0},
    {12, "FILTER_TUISPI_LINE_FUNCTION_ENTER", 1},
    {13, "FILTER_TUISPI_LINE_FUNCTION_EXIT", 1},
    {14, "FILTER_TSPI_PROVIDER_FUNCTION_ENTER", 1},
    {15, "FILTER_TSPI_PROVIDER_FUNCTION_EXIT", 1},
    {16, "FILTER_TSPI_LINE_FUNCTION_ENTER", 1},
    {17, "FILTER_TSPI_LINE_FUNCTION_EXIT", 1},
};

// 1 once the filter is registered; says as well that ACE and the driver library are in use.
std::atomic<uint32_t> trace_ready{0};
// Serialises the registration of the filter only.
ACE_Thread_Mutex trace_lock("Qorv_TSP_Trace_Mutex");
// Key of the filter and of every line; an address of this module is unique in the process.
const uint32_t trace_client = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&trace_ready));

void announce_interface_version() {
    _dorn_api_ver_compiled = DORN_API_VER_COMPILED;
    _dorn_api_ver_bld_comp = DORN_API_VER_BLD_COMP;
    _dorn_api_ver_auto_comp = DORN_API_VER_AUTO_COMP;
}

void register_filter() {
    QorvLogFilter* filter = QorvLogFilterNew(COMPONENT, COMPONENT, 1, 0, 0, 0);
    if (!filter) return;
    for (const LevelSetting& setting : LEVEL_SETTINGS)
        QorvLogFilterAddSetting(filter, setting.level, setting.name, setting.on);
    QorvLogAddFilter(trace_client, filter);
    QorvLogFilterDelete(filter);
}

// Not inlined: every line would pay for it.
[[gnu::noinline]] bool register_filter_once() {
    ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, trace_lock, false);
    if (!trace_ready) {
        with_faults_as_exceptions([] {
            announce_interface_version();
            if (QorvLogInitialized() == 0) QorvLogInit(COMPONENT, nullptr, 0, 1);
            register_filter();
        });
        trace_ready = 1;
    }
    return trace_ready != 0;
}

// Registers the filter once; returns whether the trace is ready.
bool trace_setup() {
    return trace_ready || register_filter_once();
}

// Writes text as a format of its own: a percent sign in a panic line is taken as a conversion. Readers of the panic
// file have always had it so.
void write_as_format(FILE* file, const char* text) {
#ifdef __MINGW32__
    __ms_fprintf(file, text);
#else
    fprintf(file, text);
#endif
}

// Appends a finished line to the panic file; does nothing when its folder is not there. Not inlined: every written line
// would carry its buffers on the stack.
[[gnu::noinline]] void append_to_panic_file(const char* source_file, uint32_t source_line, const char* line) {
    char path[260 + 1] = {};
    _snprintf(path, 260, "%s\\%s", PANIC_FOLDER, PANIC_FILE);

    FILE* file = fopen(path, "a");
    if (!file) return;

    char time_stamp[LINE_LENGTH] = {};
    ACE::timestamp(time_stamp, sizeof time_stamp);
    char record[LINE_LENGTH + 1];
    _snprintf(record, LINE_LENGTH, "%s%sFILTER_PANIC%s%s Line %d%s%s\n", time_stamp, "\t", "\t", source_file,
              static_cast<int>(source_line), "\t", line);
    record[LINE_LENGTH] = '\0';
    write_as_format(file, record);
    fclose(file);
}

void format_line(char (&line)[LINE_LENGTH + 1], const char* format, va_list arguments) {
    const int prefix = _snprintf(line, LINE_LENGTH, "P-0x%06X:T-0x%06X: ", static_cast<unsigned>(GetCurrentProcessId()),
                                 static_cast<unsigned>(GetCurrentThreadId()));
    _vsnprintf(line + prefix, LINE_LENGTH - prefix, format, arguments);
    line[LINE_LENGTH] = '\0';
}

int ask_log(void*, int level) {
    return QorvLogIsInterested(trace_client, level);
}

// Whether somebody wants lines of the level: 0 = no; FAULTED = the question went wrong.
int interest(int32_t level) try {
    return trace_setup() ? call_with_fault_frame(ask_log, nullptr, level) : 0;
} catch (...) {
    return FAULTED;
}

void write_line(const char* source_file, uint32_t source_line, int32_t level, const char* format, va_list arguments) {
    char line[LINE_LENGTH + 1];
    format_line(line, format, arguments);
    if (level == TRACE_PANIC) append_to_panic_file(source_file, source_line, line);
    if (QorvLogIsInterested(trace_client, level) != 0)
        QorvLogLogMsg(trace_client, level, line, source_file, source_line);
}

// Writes a line that is wanted, and returns whether nothing went wrong. Not inlined: one that nobody wants would pay
// for the buffer.
[[gnu::noinline]] bool is_written(const char* source_file, uint32_t source_line, int32_t level, const char* format,
                                  va_list arguments) {
    return completes_without_locks([=] { write_line(source_file, source_line, level, format, arguments); });
}

}  // namespace

void trace(const char* source_file, uint32_t source_line, int32_t level, const char* format, ...) {
    const int wanted = level == TRACE_PANIC ? 1 : interest(level);
    if (wanted == 0) return;
    va_list arguments;
    va_start(arguments, format);
    if (wanted == FAULTED || !is_written(source_file, source_line, level, format, arguments))
        OutputDebugStringW(L"!!!!Exception in logging TSP");
    va_end(arguments);
}

LineIdentity identity_of(const LineRec* pLine) {
    return {pLine, pLine->htLine, pLine->dwDeviceID, pLine->htCall};
}

void trace_null_argument(const char* source_file, uint32_t source_line, const char* name, const char* argument) {
    trace(source_file, source_line, TRACE_FUNCTION_ENTER, name);
    trace(source_file, source_line, TRACE_ERROR, "%s %s=NULL", name, argument);
    trace(source_file, source_line, TRACE_FUNCTION_EXIT, name);
}

bool library_use_begin() {
    if (trace_ready) return true;
    ACE::init();
    DornInitialize();
    return false;
}

void library_use_end() {
    if (!trace_ready) return;
    DornShutdown();
    trace_ready = 0;
    ACE::fini();
}

void debug_print(const char* format, ...) {
    char text[LINE_LENGTH + 1];
    va_list arguments;
    va_start(arguments, format);
    _vsnprintf(text, LINE_LENGTH, format, arguments);
    va_end(arguments);
    text[LINE_LENGTH] = '\0';
    OutputDebugStringA(text);
}
