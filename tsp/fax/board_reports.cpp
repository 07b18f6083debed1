// The board's reports during a fax session: T.30 frames and page ends. They come on the driver's thread and keep the
// line's page count and rate.
#include <algorithm>
#include <iterator>

#include "diag/diag.h"
#include "fault_guard.h"
#include "fax/qorv_fax.h"

namespace {

constexpr char NAME[] = "InterruptFromLUM";

constexpr uint32_t SESSION_CLASS = 9;
constexpr uint32_t SESSION_TYPE = 8;
constexpr uint32_t FRAME_REPORT = 5;
constexpr uint32_t PAGE_END_REPORT = 6;

constexpr uint32_t TAG_FRAME_DIRECTION = 14;
constexpr uint32_t TAG_FRAME_BYTES = 15;
constexpr uint32_t TAG_CONTINUING = 20;

// T.30 facsimile control fields, bits reversed, each without and with the X bit.
constexpr uint8_t X_BIT = 0x01;
constexpr uint8_t FCF_DCS = 0x82;
constexpr uint8_t FCF_MORE_PAGES[] = {0x4E, 0x5E, 0x8E, 0x9E};  // MPS, PRI-MPS, EOM, PRI-EOM
constexpr uint8_t FCF_WRAPPERS[] = {0xBE, 0xCE};                // PPS, EOR: the next byte holds the command

constexpr uint32_t RATES[] = {2400, 4800, 7200, 9600, 7200, 9600, 12000, 14400, 12000, 14400};  // bit/s by DCS index
constexpr size_t DCS_RATE_BYTE = 2;

template <size_t N>
bool is_one_of(uint8_t fcf, const uint8_t (&fields)[N]) {
    const auto command = static_cast<uint8_t>(fcf & ~X_BIT);
    return std::find(std::begin(fields), std::end(fields), command) != std::end(fields);
}

struct Frame {
    int32_t fsk_dir = 0;
    uint32_t candidate = 0;  // what dwGotMPS becomes if more pages follow: 1 or 2 by direction, 0 = direction unknown
    const uint8_t* fifo = nullptr;
    uint32_t length = 0;

    uint8_t byte(uint32_t index) const { return index < length ? fifo[index] : 0; }
};

Frame read_frame(DornReport* packet) {
    Frame frame;
    DornTaggedValue value{};
    while (DornGetTaggedValues(packet, &value) == 1) {
        if (value.dwTag == TAG_FRAME_DIRECTION) {
            frame.fsk_dir = DornParseTaggedValueInt(&value);
            frame.candidate = frame.fsk_dir != 0 ? 2 : 1;
        } else if (value.dwTag == TAG_FRAME_BYTES) {
            frame.fifo = static_cast<const uint8_t*>(value.pValue);
            frame.length = value.cbValue;
        }
    }
    return frame;
}

int32_t read_continuing(DornReport* packet) {
    int32_t continuing = 0;
    DornTaggedValue value{};
    while (DornGetTaggedValues(packet, &value) == 1)
        if (value.dwTag == TAG_CONTINUING) continuing = DornParseTaggedValueInt(&value);
    return continuing;
}

bool announces_more_pages(const Frame& frame) {
    if (frame.length < 3) return false;
    if (is_one_of(frame.byte(2), FCF_MORE_PAGES)) return true;
    return is_one_of(frame.byte(2), FCF_WRAPPERS) && is_one_of(frame.byte(3), FCF_MORE_PAGES);
}

bool is_dcs(const Frame& frame) {
    return frame.length >= 3 && (frame.byte(2) & ~X_BIT) == FCF_DCS;
}

// Line lock held, also while TAPI is told.
void follow_rate(LineRec* pLine, DornLine* boardLine) {
    const uint8_t index = DornLineDcsGet(boardLine)[DCS_RATE_BYTE];
    if (index >= std::size(RATES) || RATES[index] == pLine->dwRate) return;
    pLine->dwRate = RATES[index];
    send_linecallinfo(pLine, LINECALLINFOSTATE_RATE);
}

void handle_frame(DornLine* boardLine, DornReport* packet, LineRec* pLine) {
    if (!pLine) return;
    const Frame frame = read_frame(packet);
    const LineLock lock(pLine);
    if (announces_more_pages(frame)) {
        TRACE(TRACE_INFO, "setting fsk_dir = %d, GotMPS = %d, fifo[2] = %d, fifo[3] = %d", frame.fsk_dir,
              frame.candidate, frame.byte(2), frame.byte(3));
        pLine->dwGotMPS = frame.candidate;
    } else if (pLine->dwGotMPS != 0 && pLine->dwGotMPS == frame.candidate) {
        pLine->dwGotMPS = 0;
    }
    if (is_dcs(frame)) follow_rate(pLine, boardLine);
}

// Only a page that a command announcing more pages has ended is counted: a finished job shows one page fewer than it
// has, and the fax service knows that.
void handle_page_end(DornReport* packet, LineRec* pLine) {
    const int32_t continuing = read_continuing(packet);
    const uint32_t got_mps = pLine ? pLine->dwGotMPS : 0;
    TRACE(TRACE_INFO, "End Of Page GotMPS = %d, continuing = %d, pLine = %d", got_mps, continuing,
          static_cast<int>(reinterpret_cast<intptr_t>(pLine)));
    if (continuing != 0 || got_mps == 0) return;
    {
        const LineLock lock(pLine);
        pLine->FaxStatus.dwPageCount += 1;
        pLine->dwGotMPS = 0;
        UpdateSharedMemory(pLine);
    }
    Send_CallDevSpecific(pLine, NOTIFY_PROGRESS, 0, 0);
}

void handle_report(DornLine* boardLine, DornReport* packet) {
    if (packet->dwClass != SESSION_CLASS || packet->dwType != SESSION_TYPE) return;
    if (packet->dwSubCode != FRAME_REPORT && packet->dwSubCode != PAGE_END_REPORT) return;
    LineRec* pLine = line_by_unit(DornLineUnitGet(boardLine));
    if (packet->dwSubCode == FRAME_REPORT)
        handle_frame(boardLine, packet, pLine);
    else
        handle_page_end(packet, pLine);
}

}  // namespace

void InterruptFromLUM(DornLine* boardLine, DornReport* packet, uint32_t) {
    TRACE(TRACE_FUNCTION_ENTER, NAME);
    completes_or_traces(NAME, [&] { handle_report(boardLine, packet); });
    TRACE(TRACE_FUNCTION_EXIT, NAME);
}
