// Fax sessions of the benchmarks' board: a reception begins and blocks until it is alerted. Pages end when a benchmark
// says so, on a thread of the board. A TIFF file is a handle and no more.
#include <cstring>

#include "channel.h"

namespace {

// A report with the tagged values that the interface puts behind its head.
struct BenchReport {
    DornReport head;
    uint32_t count;
    struct {
        uint32_t tag;
        uint32_t size;
        const void* value;
    } values[2];
};

constexpr uint32_t SESSION_CLASS = 9;
constexpr uint32_t SESSION_TYPE = 8;
constexpr uint32_t FRAME_REPORT = 5;
constexpr uint32_t PAGE_END_REPORT = 6;
constexpr uint32_t TAG_FRAME_DIRECTION = 14;
constexpr uint32_t TAG_FRAME_BYTES = 15;
constexpr uint32_t TAG_CONTINUING = 20;

constexpr uint32_t RECEIVED = 0;
constexpr uint32_t NOT_CONTINUING = 0;
constexpr uint8_t MPS_FRAME[] = {0xFF, 0x13, 0x4E};  // T.30: address, control, multi-page signal

void send(BenchChannel& channel, BenchReport report) {
    if (channel.handler) channel.handler(&channel.head, &report.head, channel.unit);
}

// The board's own thread, which lives from the first report to the end of the process.
struct Reporter {
    HANDLE go = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE done = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    BenchChannel* channel = nullptr;
    PageEndTicks ticks = {};
};

PageEndTicks report_page_end(BenchChannel& channel) {
    PageEndTicks ticks = {};
    ticks.frame = ticks_now();
    send(channel,
         {{SESSION_CLASS, SESSION_TYPE, FRAME_REPORT},
          2,
          {{TAG_FRAME_DIRECTION, sizeof RECEIVED, &RECEIVED}, {TAG_FRAME_BYTES, sizeof MPS_FRAME, MPS_FRAME}}});
    ticks.end = ticks_now();
    send(channel, {{SESSION_CLASS, SESSION_TYPE, PAGE_END_REPORT},
                   1,
                   {{TAG_CONTINUING, sizeof NOT_CONTINUING, &NOT_CONTINUING}, {}}});
    return ticks;
}

DWORD WINAPI run_reporter(void* argument) {
    auto& reporter = *static_cast<Reporter*>(argument);
    while (WaitForSingleObject(reporter.go, INFINITE) == WAIT_OBJECT_0) {
        reporter.ticks = report_page_end(*reporter.channel);
        SetEvent(reporter.done);
    }
    return 0;
}

Reporter& the_reporter() {
    static Reporter* const reporter = [] {
        auto* created = new Reporter;
        CloseHandle(CreateThread(nullptr, 0, run_reporter, created, 0, nullptr));
        return created;
    }();
    return *reporter;
}

}  // namespace

bool in_session(uint32_t channel) {
    return gChannels[channel].in_session;
}

PageEndTicks end_page(uint32_t channel) {
    Reporter& reporter = the_reporter();
    reporter.channel = &gChannels[channel];
    SetEvent(reporter.go);
    WaitForSingleObject(reporter.done, INFINITE);
    return reporter.ticks;
}

extern "C" {

int DornGetTaggedValues(DornReport* report, DornTaggedValue* value) {
    const auto& own = *reinterpret_cast<const BenchReport*>(report);
    if (value->dwCursor >= own.count) return 0;
    const auto& next = own.values[value->dwCursor++];
    value->dwTag = next.tag;
    value->cbValue = next.size;
    value->pValue = next.value;
    return 1;
}

int32_t DornParseTaggedValueInt(const DornTaggedValue* value) {
    int32_t number = 0;
    memcpy(&number, value->pValue, value->cbValue);
    return number;
}

int DornFaxHeader(DornLine*, DornFaxRecord*) {
    return 0;
}

int DornFaxSetLocalId(DornLine*, DornFaxRecord*) {
    return 0;
}

int DornFaxSetReceiveFmt(DornLine*, DornFaxRecord*) {
    return 0;
}

int DornFaxBeginReceive(DornLine* line, DornFaxRecord* record) {
    BenchChannel& channel = channel_of(line);
    channel.in_session = true;
    record->status = wait_on(channel, INFINITE);
    channel.in_session = false;
    return -1;
}

// A session never gets this far.
int DornFaxEndReception(DornLine*, DornFaxRecord*) {
    return -1;
}

int DornFaxRcvPageTiff(DornLine*, DornFaxRecord*) {
    return -1;
}

int DornFaxBeginSendTiff(DornLine*, DornFaxRecord* record) {
    record->status = KX_STATUS_ERROR;
    return 0;
}

int DornFaxGetRemoteInfo(DornLine*, DornFaxRecord* record) {
    record->status = KX_STATUS_ERROR;
    return 0;
}

int DornFaxWaitForTraining(DornLine*, DornFaxRecord* record) {
    record->status = KX_STATUS_ERROR;
    return 0;
}

int DornFaxSendPageTiff(DornLine*, DornFaxRecord* record) {
    record->status = KX_STATUS_ERROR;
    return 0;
}

int DornFaxNextPageTiff(DornLine*, DornFaxRecord*) {
    return -1;
}

int DornFaxEndOfDocument(DornLine*, DornFaxRecord*) {
    return -1;
}

DornTiff* DornTiffOpen(DornTiffRecord*) {
    static DornTiff tiff = {};
    return &tiff;
}

int DornTiffClose(DornTiffRecord*) {
    return 0;
}

int DornTiffReadIFD(DornTiffRecord*) {
    return 0;
}

int DornTiffWriteImage(DornTiffRecord*) {
    return 0;
}

int DornTiffWriteRes(DornTiffRecord*) {
    return 0;
}

int DornTiffWriteIFD(DornTiffRecord*) {
    return 0;
}

int _mdll_fseek(void*, long, int) {
    return 0;
}

long _mdll_ftell(void*) {
    return 0;
}

size_t _mdll_fwrite(const void*, size_t, size_t count, void*) {
    return count;
}
}
