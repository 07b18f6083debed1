// Events: how long one takes from the board to who waits for it, against the bare hand-over of an event between two
// threads, measured in turn.
#include <atomic>
#include <cstring>

#include "command_block.h"
#include "own_process.h"
#include "provider_under_test.h"
#include "results.h"
#include "segment.h"
#include "text.h"

namespace {

double microseconds(int64_t ticks) {
    return nanoseconds(ticks) / 1e3;
}

OwnedHandle auto_reset_event() {
    return OwnedHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
}

// ---- the floor -----------------------------------------------------------------------------------------------------

// Two threads; one hands an event to the other.
class HandOver {
  public:
    HandOver()
        : thread_(thread_start([this] {
              while (WaitForSingleObject(go_.get(), INFINITE) == WAIT_OBJECT_0) {
                  arrived_ = ticks_now();
                  SetEvent(back_.get());
              }
          })) {}

    double sample() {
        const int64_t before = ticks_now();
        SetEvent(go_.get());
        WaitForSingleObject(back_.get(), INFINITE);
        return microseconds(arrived_ - before);
    }

  private:
    OwnedHandle go_ = auto_reset_event();
    OwnedHandle back_ = auto_reset_event();
    std::atomic<int64_t> arrived_{0};
    OwnedThread thread_;
};

HandOver* gHandOver;  // to the end of the process

// Median and 99th percentile of a figure against those of the floor.
void add_rows(const Results& results, const std::string& name, const std::vector<double>& figure,
              const std::vector<double>& floor) {
    const std::string note = format("%zu samples", figure.size());
    results.add({name + ", median", "us", median(figure), median(floor), std::nullopt, note});
    results.add({name + ", 99th percentile", "us", quantile(figure, 0.99), quantile(floor, 0.99), std::nullopt, note});
}

// ---- ring to OFFERING ----------------------------------------------------------------------------------------------

ProviderUnderTest gProvider;
HANDLE gOffered;  // auto-reset
std::atomic<int64_t> gOfferedAt{0};

void CALLBACK on_event(HTAPILINE htLine, HTAPICALL, DWORD dwMsg, DWORD_PTR dwParam1, DWORD_PTR dwParam2, DWORD_PTR) {
    take_new_call(htLine, dwMsg, dwParam2);
    if (dwMsg != LINE_CALLSTATE || dwParam1 != LINECALLSTATE_OFFERING) return;
    gOfferedAt = ticks_now();
    SetEvent(gOffered);
}

double ring(uint32_t index) {
    const int64_t rung = gProvider.board->ring(index);
    WaitForSingleObject(gOffered, INFINITE);
    return microseconds(gOfferedAt - rung);
}

void must_be_taken(LONG request, LONG result, const char* function) {
    if (result != request) give_up(format("%s returned 0x%lX", function, static_cast<unsigned long>(result)));
}

void end_call(HDRVLINE hdLine) {
    constexpr LONG REQUEST = 1;
    must_be_taken(REQUEST, gProvider.tspi->lineDrop(REQUEST, call_on(hdLine), nullptr, 0), "TSPI_lineDrop");
    must_be_taken(0, gProvider.tspi->lineCloseCall(call_on(hdLine)), "TSPI_lineCloseCall");
}

// A line that has told TAPI of a ring pauses for 6 seconds, so every call comes on a line of its own.
void measure_rings(const Results& results, const std::vector<HDRVLINE>& lines) {
    std::vector<double> figure;
    std::vector<double> floor;
    for (uint32_t index = 0; index < lines.size(); ++index) {
        floor.push_back(gHandOver->sample());
        figure.push_back(ring(index));
        end_call(lines[index]);
    }
    add_rows(results, "a ring to LINECALLSTATE_OFFERING", figure, floor);
}

// ---- report to shared segment --------------------------------------------------------------------------------------

FaxSegment gSegment;
uint32_t gUnit = 0;
std::atomic<uint32_t> gPagesBefore{0};
std::atomic<int64_t> gChangedAt{0};

uint32_t page_count() {
    return gSegment.records[gUnit].dwPageCount;
}

// The provider asks about a trace line right behind its write to the record.
void watch_record(int) {
    int64_t never = 0;
    if (page_count() != gPagesBefore) gChangedAt.compare_exchange_strong(never, ticks_now());
}

void send_command(HDRVLINE hdLine, TspCmdBlock& block) {
    constexpr LONG REQUEST = 1;
    must_be_taken(REQUEST, gProvider.tspi->lineDevSpecific(REQUEST, hdLine, 0, call_on(hdLine), &block, sizeof block),
                  "TSPI_lineDevSpecific");
    if (block.dwResult != 0) give_up(format("fax command %d has failed", static_cast<int>(block.dwCommand)));
}

// Answers a call and begins a reception, in which the board then stays.
void begin_reception(HDRVLINE hdLine, uint32_t index) {
    constexpr LONG REQUEST = 1;
    ring(index);
    must_be_taken(REQUEST, gProvider.tspi->lineAnswer(REQUEST, call_on(hdLine), nullptr, 0), "TSPI_lineAnswer");
    TspCmdBlock open{};
    open.dwCommand = eTspCmd_TIFFOPEN;
    strcpy(open.open.szFile, "bench.tif");
    strcpy(open.open.szMode, "w+");
    send_command(hdLine, open);
    TspCmdBlock receive{};
    receive.dwCommand = eTspCmd_FAXRECEIVE;
    send_command(hdLine, receive);
    while (!gProvider.board->in_session(index)) SwitchToThread();
}

void measure_reports(const Results& results, HDRVLINE hdLine, uint32_t index, unsigned samples) {
    if (const uint32_t error = fax_segment_open(gSegment))
        give_up("the shared segment cannot be read, " + windows_error(error));
    gUnit = index;
    begin_reception(hdLine, index);

    std::vector<double> from_frame;
    std::vector<double> from_page_end;
    std::vector<double> floor;
    for (unsigned sample = 0; sample < samples; ++sample) {
        floor.push_back(gHandOver->sample());
        gPagesBefore = page_count();
        gChangedAt = 0;
        gProvider.board->on_question = watch_record;
        const PageEndTicks reported = gProvider.board->end_page(index);
        gProvider.board->on_question = nullptr;
        if (gChangedAt == 0) give_up("a page's end has not reached the shared segment");
        from_frame.push_back(microseconds(gChangedAt - reported.frame));
        from_page_end.push_back(microseconds(gChangedAt - reported.end));
    }
    add_rows(results, "the report of a page's end to the shared segment", from_page_end, floor);
    add_rows(results, "the same from the frame report before it", from_frame, floor);
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "events");
    const unsigned samples = arguments.take_number("--samples", 1000);
    gProvider = load_provider(samples + 1);
    gOffered = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    gHandOver = new HandOver;
    gProvider.board->called = "5551234";
    gProvider.board->caller = "5550100";
    start_provider(gProvider);
    std::vector<HDRVLINE> lines;
    while (lines.size() < samples) lines.push_back(open_line(gProvider, static_cast<uint32_t>(lines.size()), on_event));
    measure_rings(results, lines);
    measure_reports(results, open_line(gProvider, samples, on_event), samples, samples);
    ExitProcess(0);  // the lines end with it
}
