// Trace lines: one that nobody wants against the bare question, one that is written against the formatting and the call
// of the log by hand; and whether either takes memory from the heap.
#include <atomic>
#include <cstdio>

#include "own_process.h"
#include "pairs.h"
#include "provider_under_test.h"
#include "qorvlog.h"
#include "tests/harness/import_table.h"

namespace {

constexpr double GOAL = 1.2;
constexpr int FILTERED_LEVEL = 4;  // off by default
constexpr int WRITTEN_LEVEL = 16;  // on by default

using Trace = void (*)(const char* source_file, uint32_t source_line, int32_t level, const char* format, ...);

struct Log {
    decltype(&::QorvLogIsInterested) QorvLogIsInterested;
    decltype(&::QorvLogLogMsg) QorvLogLogMsg;
};

Trace gTrace;
Log gLog;

// ---- what is replaced in the provider's import table ----------------------------------------------------------------

uint32_t gClient;  // the key of the provider's filter
decltype(&::QorvLogAddFilter) gAddFilter;

void add_filter(uint32_t client, QorvLogFilter* filter) {
    gClient = client;
    gAddFilter(client, filter);
}

std::atomic<int> gAllocations{0};
decltype(&::malloc) gMalloc;
decltype(&::calloc) gCalloc;
decltype(&::realloc) gRealloc;
decltype(&::HeapAlloc) gHeapAlloc;

void* counted_malloc(size_t size) {
    ++gAllocations;
    return gMalloc(size);
}

void* counted_calloc(size_t count, size_t size) {
    ++gAllocations;
    return gCalloc(count, size);
}

void* counted_realloc(void* block, size_t size) {
    ++gAllocations;
    return gRealloc(block, size);
}

void* WINAPI counted_heap_alloc(HANDLE heap, DWORD flags, size_t size) {
    ++gAllocations;
    return gHeapAlloc(heap, flags, size);
}

// ---- the lines -----------------------------------------------------------------------------------------------------

// A line as most of the provider's are.
#define IDENTIFIED_LINE \
    "hdLine(0x%p), htLine(0x%p), dwDeviceID(0x%x), htCall(0x%p): %s", &gLog, &gTrace, 7u, &gClient, "IsValidLine"

void trace_line(int level) {
    gTrace(__FILE__, __LINE__, level, IDENTIFIED_LINE);
}

void ask() {
    benchmark::DoNotOptimize(gLog.QorvLogIsInterested(gClient, FILTERED_LEVEL));
}

void write_by_hand() {
    char line[8192 + 1];
    const int prefix =
        _snprintf(line, sizeof line - 1, "P-0x%06X:T-0x%06X: ", static_cast<unsigned>(GetCurrentProcessId()),
                  static_cast<unsigned>(GetCurrentThreadId()));
    _snprintf(line + prefix, sizeof line - 1 - prefix, IDENTIFIED_LINE);
    line[sizeof line - 1] = '\0';
    gLog.QorvLogLogMsg(gClient, WRITTEN_LEVEL, line, __FILE__, __LINE__);
}

int allocations_of(int level) {
    gAllocations = 0;
    trace_line(level);
    return gAllocations;
}

// On a thread of its own, which has ended when this returns.
int allocations_of_first(int level) {
    int count = 0;
    thread_start([&] { count = allocations_of(level); });
    return count;
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "trace");
    const bool software_board = arguments.take("--board") == "software";
    const std::string over = software_board ? ", software board" : ", board without a log";

    const HMODULE board = load_board(software_board ? L"..\\..\\bin" : L"driver");
    const HMODULE provider = load_beside_board(L"traced\\qorvtsp.tsp");
    gTrace = find_function<Trace (*)()>(provider, "bench_trace")();
    gLog = {find_function<decltype(&::QorvLogIsInterested)>(board, "QorvLogIsInterested"),
            find_function<decltype(&::QorvLogLogMsg)>(board, "QorvLogLogMsg")};
    find_function<int (*)()>(board, "DornInitialize")();

    harness::Replacements table(provider);
    table.replace("QorvLogAddFilter", gAddFilter, add_filter);
    // Not every one of these is imported by every build of the provider.
    table.replace("malloc", gMalloc, counted_malloc);
    table.replace("calloc", gCalloc, counted_calloc);
    table.replace("realloc", gRealloc, counted_realloc);
    table.replace("HeapAlloc", gHeapAlloc, counted_heap_alloc);
    trace_line(FILTERED_LEVEL);
    if (gLog.QorvLogIsInterested(gClient, FILTERED_LEVEL) || !gLog.QorvLogIsInterested(gClient, WRITTEN_LEVEL))
        give_up("the trace levels are not what they are by default");

    constexpr double NONE = 0;
    for (const auto& [level, name] :
         {std::pair{FILTERED_LEVEL, "a line nobody wants"}, {WRITTEN_LEVEL, "a written line"}}) {
        results.add({name + (", allocations" + over), "", double(allocations_of(level)), std::nullopt, NONE});
        results.add({name + (", allocations as a thread's first" + over), "", double(allocations_of_first(level)),
                     std::nullopt, NONE});
    }
    table.restore();

    add_pair(
        {"a line nobody wants" + over, GOAL}, [] { trace_line(FILTERED_LEVEL); }, ask);
    add_pair(
        {"a written line" + over, GOAL}, [] { trace_line(WRITTEN_LEVEL); }, write_by_hand);
    run_pairs(results, arguments.words);
    ExitProcess(0);
}
