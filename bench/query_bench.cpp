// Queries: what TAPI asks about a call, against what each is made of: a mutex, a search and questions to the log.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "pairs.h"
#include "provider_under_test.h"
#include "qorvlog.h"
#include "text.h"

namespace {

constexpr double GOAL = 1.1;
constexpr int ENTER_LEVEL = 16;  // of a line function, and the next: both are written by default
constexpr int EXIT_LEVEL = 17;

ProviderUnderTest gProvider;
HANDLE gOffered;  // auto-reset

void CALLBACK on_event(HTAPILINE htLine, HTAPICALL, DWORD dwMsg, DWORD_PTR dwParam1, DWORD_PTR dwParam2, DWORD_PTR) {
    take_new_call(htLine, dwMsg, dwParam2);
    if (dwMsg == LINE_CALLSTATE && dwParam1 == LINECALLSTATE_OFFERING) SetEvent(gOffered);
}

// A line with a call in progress, which has all three parties.
HDRVCALL call_on_line(HDRVLINE hdLine, uint32_t index) {
    gProvider.board->ring(index);
    WaitForSingleObject(gOffered, INFINITE);
    constexpr LONG REQUEST = 1;
    if (gProvider.tspi->lineAnswer(REQUEST, call_on(hdLine), nullptr, 0) != REQUEST) give_up("a call is not answered");
    return call_on(hdLine);
}

// ---- the queries ---------------------------------------------------------------------------------------------------

struct CallInfo {
    LINECALLINFO record;
    char strings[1024];
};

void get_call_status(HDRVCALL hdCall) {
    LINECALLSTATUS status;
    status.dwTotalSize = LINECALLSTATUS_SIZE;
    if (gProvider.tspi->lineGetCallStatus(hdCall, &status) != 0) give_up("TSPI_lineGetCallStatus has failed");
}

void get_call_info(HDRVCALL hdCall) {
    CallInfo info;
    info.record.dwTotalSize = sizeof info;
    info.record.dwUsedSize = LINECALLINFO_SIZE;
    if (gProvider.tspi->lineGetCallInfo(hdCall, &info.record) != 0) give_up("TSPI_lineGetCallInfo has failed");
    if (info.record.dwCallerIDNameSize == 0) give_up("the call has lost its parties");
}

struct Query {
    const char* name;
    void (*ask)(HDRVCALL hdCall);
};
constexpr Query QUERIES[] = {
    {"TSPI_lineGetCallStatus", get_call_status},
    {"TSPI_lineGetCallInfo", get_call_info},
};

// ---- what they are made of -----------------------------------------------------------------------------------------

std::vector<int> gRecorded;
DWORD gRecordedThread;

void record(int level) {
    if (GetCurrentThreadId() == gRecordedThread) gRecorded.push_back(level);
}

// The levels that the query asks the log about.
std::vector<int> questions_of(const Query& query, HDRVCALL hdCall) {
    gRecorded.clear();
    gRecordedThread = GetCurrentThreadId();
    gProvider.board->on_question = record;
    query.ask(hdCall);
    gProvider.board->on_question = nullptr;
    return gRecorded;
}

struct Floor {
    std::vector<int> questions;
    OwnedHandle mutex;
    const void* slot;  // what the search looks for
    std::array<const void*, BENCH_CHANNELS> table;
    decltype(&::QorvLogIsInterested) QorvLogIsInterested;
    decltype(&::QorvLogLogMsg) QorvLogLogMsg;
    uint32_t client;

    void run() const {
        for (const int level : questions) benchmark::DoNotOptimize(QorvLogIsInterested(client, level));
        benchmark::DoNotOptimize(std::find(table.begin(), table.end(), slot));
        WaitForSingleObject(mutex.get(), INFINITE);
        ReleaseMutex(mutex.get());
    }

    // One line that is written, as the provider formats it.
    void write_line(int level, const char* text) const {
        char line[8192 + 1];
        const int prefix =
            _snprintf(line, sizeof line - 1, "P-0x%06X:T-0x%06X: ", static_cast<unsigned>(GetCurrentProcessId()),
                      static_cast<unsigned>(GetCurrentThreadId()));
        _snprintf(line + prefix, sizeof line - 1 - prefix,
                  "hdLine(0x%p), htLine(0x%p), dwDeviceID(0x%x), htCall(0x%p): %s", this, slot, client, slot, text);
        line[sizeof line - 1] = '\0';
        QorvLogLogMsg(client, level, line, __FILE__, __LINE__);
    }

    void write_lines() const {
        write_line(ENTER_LEVEL, "TSPI_lineGetCallStatus");
        write_line(EXIT_LEVEL, "TSPI_lineGetCallStatus(0) Good");
    }
};

Floor make_floor(std::vector<int> questions, uint32_t index) {
    Floor floor{};
    floor.questions = std::move(questions);
    floor.mutex.reset(CreateMutexW(nullptr, FALSE, nullptr));
    floor.slot = &gProvider;  // any address will do
    floor.table[index] = floor.slot;
    floor.QorvLogIsInterested =
        find_function<decltype(&::QorvLogIsInterested)>(gProvider.board_module, "QorvLogIsInterested");
    floor.QorvLogLogMsg = find_function<decltype(&::QorvLogLogMsg)>(gProvider.board_module, "QorvLogLogMsg");
    floor.client = gProvider.board->log_client;
    return floor;
}

void measure(const Results& results, HDRVCALL hdCall, uint32_t index, const std::string& where) {
    for (const Query& query : QUERIES) {
        const Floor floor = make_floor(questions_of(query, hdCall), index);
        const std::string note = format("%zu questions to the log", floor.questions.size());
        measure_in_turn(
            results, {query.name + (", " + where), GOAL, note}, [&] { query.ask(hdCall); }, [&] { floor.run(); });
    }
}

// What the floor has no part for: the two lines that every query writes by default.
void measure_written_lines(const Results& results, HDRVCALL hdCall) {
    const Query& query = QUERIES[0];
    const Floor floor = make_floor(questions_of(query, hdCall), 0);
    measure_in_turn(
        results,
        {query.name + std::string(": its two written lines alone"), std::nullopt, "formatted and logged by hand"},
        [&] { floor.write_lines(); }, [&] { floor.run(); });
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "query");
    const uint32_t lines = arguments.take_number("--lines", BENCH_CHANNELS);
    gProvider = load_provider(lines);
    gProvider.board->called = "5551234";
    gProvider.board->caller = "5550100";
    gProvider.board->caller_name = "HEAD OFFICE";
    gOffered = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    start_provider(gProvider);

    std::vector<HDRVLINE> open = {open_line(gProvider, 0, on_event)};
    const HDRVCALL first = call_on_line(open[0], 0);
    measure(results, first, 0, "the only line");
    measure_written_lines(results, first);

    while (open.size() < lines) open.push_back(open_line(gProvider, static_cast<uint32_t>(open.size()), on_event));
    const uint32_t middle = lines / 2;
    const uint32_t last = lines - 1;
    const HDRVCALL middle_call = call_on_line(open[middle], middle);
    const HDRVCALL last_call = call_on_line(open[last], last);
    const std::string of = format(" of %u lines", lines);
    measure(results, first, 0, "the first" + of);
    measure(results, middle_call, middle, "a middle one" + of);
    measure(results, last_call, last, "the last" + of);
    ExitProcess(0);  // the lines end with it
}
