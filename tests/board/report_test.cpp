// What a line's handler is told during a fax.
#include <algorithm>
#include <map>

#include "pages.h"
#include "support.h"

namespace {

struct SeenReport {
    uint32_t sub_code = 0;
    int32_t direction = -1;
    int32_t continuing = -1;
    std::vector<uint8_t> frame;
    uint8_t rate_index = 0xFF;  // at the time of a DCS

    uint8_t command() const { return frame.size() < 3 ? 0 : frame[2] & 0xFE; }
};

softboard::Mutex seen_lock;
std::map<uint32_t, std::vector<SeenReport>> seen;  // by unit
DWORD handler_thread = 0;

void note_report(DornLine* line, DornReport* report, uint32_t unit) {
    if (report->dwClass != 9 || report->dwType != 8) return;
    SeenReport noted;
    noted.sub_code = report->dwSubCode;
    DornTaggedValue value{};
    while (DornGetTaggedValues(report, &value) == 1) {
        const auto* const bytes = static_cast<const uint8_t*>(value.pValue);
        if (value.dwTag == 14) noted.direction = DornParseTaggedValueInt(&value);
        if (value.dwTag == 15) noted.frame.assign(bytes, bytes + value.cbValue);
        if (value.dwTag == 20) noted.continuing = DornParseTaggedValueInt(&value);
    }
    if (noted.command() == 0x82) noted.rate_index = DornLineDcsGet(line)[2];
    EXPECT_EQ(DornLineUnitGet(line), unit);
    const softboard::Guard guard(seen_lock);
    handler_thread = GetCurrentThreadId();
    seen[unit].push_back(noted);
}

std::vector<SeenReport> seen_on(uint32_t unit) {
    const softboard::Guard guard(seen_lock);
    return seen[unit];
}

std::vector<uint8_t> commands(const std::vector<SeenReport>& reports, int32_t direction) {
    std::vector<uint8_t> result;
    for (const SeenReport& report : reports) {
        if (report.sub_code == 5 && report.direction == direction) result.push_back(report.command());
    }
    return result;
}

size_t page_ends(const std::vector<SeenReport>& reports) {
    return static_cast<size_t>(std::count_if(reports.begin(), reports.end(), [](const SeenReport& report) {
        return report.sub_code == 6 && report.continuing == 0;
    }));
}

constexpr uint8_t TSI = 0x42, DCS = 0x82, DIS = 0x80, CSI = 0x40, CFR = 0x84, MPS = 0x4E, EOP = 0x2E, PPS = 0xBE,
                  MCF = 0x8C, DCN = 0xFA;

class Reports : public testing::Test {
  protected:
    Reports() { seen.clear(); }
};

Transfer fax_with_handlers(const Board& board, const std::vector<Page>& pages) {
    write_file(board.file("out.tif"), pages);
    const ConnectedLines lines(0, 1, "101");
    *DornLineIncomingCmdFuncAccess(lines.caller) = note_report;
    *DornLineIncomingCmdFuncAccess(lines.called) = note_report;
    FaxOptions options;
    options.local_id = "123";
    return transfer(lines, board.file("out.tif"), board.file("in.tif"), options, options);
}

}  // namespace

TEST_F(Reports, EveryFrameReachesBothEndsWithItsDirection) {
    Board board("[module.2]\necm=no\n");
    expect_good(fax_with_handlers(board, {text_page(1, 500), text_page(2, 500)}).sent, 2);
    const std::vector<uint8_t> from_caller = {TSI, DCS, MPS, EOP, DCN};
    const std::vector<uint8_t> from_called = {CSI, DIS, CFR, MCF, MCF};
    EXPECT_EQ(commands(seen_on(0), 1), from_caller);
    EXPECT_EQ(commands(seen_on(0), 0), from_called);
    EXPECT_EQ(commands(seen_on(1), 1), from_called);
    EXPECT_EQ(commands(seen_on(1), 0), from_caller);
    for (const SeenReport& report : seen_on(1)) {
        if (report.sub_code != 5) continue;
        EXPECT_EQ(report.frame[0], 0xFF);
        EXPECT_TRUE(report.frame[1] == 0x03 || report.frame[1] == 0x13);
    }
    EXPECT_NE(handler_thread, GetCurrentThreadId());
}

TEST_F(Reports, EachPageEndFollowsItsPostMessageCommand) {
    Board board("[module.2]\necm=no\n");
    fax_with_handlers(board, {text_page(1, 500), text_page(2, 500)});
    for (const uint32_t unit : {0u, 1u}) {
        std::vector<uint8_t> order;
        for (const SeenReport& report : seen_on(unit)) {
            if (report.sub_code == 6) order.push_back(6);
            if (report.command() == MPS || report.command() == EOP) order.push_back(report.command());
        }
        EXPECT_EQ(order, (std::vector<uint8_t>{MPS, 6, EOP, 6})) << unit;
    }
}

TEST_F(Reports, WithEcmThePpsCarriesTheCommandAndPartialPagesContinue) {
    Board board;
    fax_with_handlers(board, {halftone_page(2000), text_page(1, 500)});
    for (const uint32_t unit : {0u, 1u}) {
        size_t continuing = 0;
        std::vector<uint8_t> wrapped;
        for (const SeenReport& report : seen_on(unit)) {
            if (report.sub_code == 6 && report.continuing != 0) ++continuing;
            if (report.command() == PPS) wrapped.push_back(report.frame[3] & 0xFE);
        }
        EXPECT_GE(continuing, 1u);
        EXPECT_EQ(page_ends(seen_on(unit)), 2u);
        EXPECT_EQ(wrapped.size(), continuing + 2);
        EXPECT_EQ(wrapped[wrapped.size() - 2], MPS);
        EXPECT_EQ(wrapped.back(), EOP);
    }
}

TEST_F(Reports, AtEachDcsTheRateIsThatOfTheFrame) {
    Board board("[module.2]\nmax_rate=9600\n[channel.0]\nmax_rate=7200\n");
    fax_with_handlers(board, {text_page(1, 300)});
    std::vector<uint8_t> rates;
    for (const SeenReport& report : seen_on(1)) {
        if (report.command() == DCS) rates.push_back(report.rate_index);
    }
    EXPECT_EQ(rates, (std::vector<uint8_t>{3, 2}));
}

TEST_F(Reports, AreAllDeliveredBeforeTheSessionsLastCallReturns) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1, 500)});
    const ConnectedLines lines(0, 1, "101");
    *DornLineIncomingCmdFuncAccess(lines.caller) = note_report;
    FaxOptions sending;
    sending.after_page = [](uint32_t pages) { EXPECT_EQ(page_ends(seen_on(0)), pages); };
    transfer(lines, board.file("out.tif"), board.file("in.tif"), sending);
    const std::vector<uint8_t> sent = commands(seen_on(0), 1);
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent.back(), DCN);
}

TEST_F(Reports, AreValidOnlyWhileTheyAreDelivered) {
    DornReport report{9, 8, 5};
    DornTaggedValue value{};
    EXPECT_EQ(DornGetTaggedValues(&report, &value), 0);
    EXPECT_EQ(DornGetTaggedValues(nullptr, &value), 0);
    EXPECT_EQ(DornGetTaggedValues(&report, nullptr), 0);
}

TEST_F(Reports, NumbersAreReadInTheirWidth) {
    const uint8_t bytes[] = {0xFE, 0xFF, 0xFF, 0xFF};
    DornTaggedValue value{};
    value.pValue = bytes;
    value.cbValue = 1;
    EXPECT_EQ(DornParseTaggedValueInt(&value), 0xFE);
    value.cbValue = 2;
    EXPECT_EQ(DornParseTaggedValueInt(&value), 0xFFFE);
    value.cbValue = 4;
    EXPECT_EQ(DornParseTaggedValueInt(&value), -2);
    value.cbValue = 3;
    EXPECT_EQ(DornParseTaggedValueInt(&value), 0);
    EXPECT_EQ(DornParseTaggedValueInt(nullptr), 0);
}
