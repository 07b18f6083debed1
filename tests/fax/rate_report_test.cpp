// The rate that a fax session negotiates: the board's report of a DCS frame.
#include "board_report_fixture.h"

using namespace harness;

namespace {

class RateReport : public BoardReportFixture {
  protected:
    void negotiate(uint8_t rate_index) {
        driver.channel(4).dcs[2] = rate_index;
        frame(RECEIVED, {DCS, 0, 0});
    }
};

constexpr DWORD kRates[] = {2400, 4800, 7200, 9600, 7200, 9600, 12000, 14400, 12000, 14400};
const char* const kRateTold = "LINE_CALLINFO(HTLINE1, HTCALL1, RATE, 0x0, 0x0)";

}  // namespace

TEST_F(RateReport, SetsTheCallsRateByTheDriversIndex) {
    EXPECT_EQ(rate(), 2400u);
    for (uint8_t index = 0; index < 10; ++index) {
        negotiate(index);
        EXPECT_EQ(rate(), kRates[index]) << int{index};
    }
}

TEST_F(RateReport, TellsTapiOnceOfANewRate) {
    negotiate(7);
    EXPECT_TRUE(reads(story(), {of_line(4, "Sending LINE_CALLINFO callinfo_state=0x8"), kRateTold}));
    negotiate(7);
    EXPECT_EQ(rate(), 14400u);
    EXPECT_EQ(count(events(), kRateTold), 1u);
}

TEST_F(RateReport, SaysNothingOfTwoIndexesWithTheSameRate) {
    negotiate(2);
    negotiate(4);
    EXPECT_EQ(count(events(), kRateTold), 1u);
}

TEST_F(RateReport, SaysNothingOfTheRateThatTheLineHasAlready) {
    negotiate(0);
    EXPECT_TRUE(reads(events(), {}));
}

TEST_F(RateReport, IgnoresAnIndexBehindTheTable) {
    negotiate(3);
    for (uint8_t index : {10, 11, 15, 16, 255}) negotiate(index);
    EXPECT_EQ(rate(), 9600u);
    EXPECT_EQ(count(events(), kRateTold), 1u);
}

TEST_F(RateReport, ComesFromADcsWithOrWithoutTheXBit) {
    driver.channel(4).dcs[2] = 7;
    frame(SENT, {DCS});
    EXPECT_EQ(rate(), 14400u);
    driver.channel(4).dcs[2] = 3;
    frame(SENT, {DCS + 1});
    EXPECT_EQ(rate(), 9600u);
}

TEST_F(RateReport, ComesFromNoOtherFrame) {
    driver.channel(4).dcs[2] = 7;
    for (int fcf = 0; fcf < 256; ++fcf)
        if (fcf != DCS && fcf != DCS + 1) frame(RECEIVED, {static_cast<uint8_t>(fcf), DCS});
    frame_report({direction_tag(RECEIVED), frame_tag({0xFF, DCS})});
    EXPECT_EQ(rate(), 2400u);
}

TEST_F(RateReport, IsTheCallsRateWhenTapiIsTold) {
    tapi.on_event = [this](const LineEvent&) { note(text("the rate is %lu", rate())); };
    negotiate(7);
    EXPECT_TRUE(reads(all_of(NOTE), {"the rate is 14400"}));
}

TEST_F(RateReport, IsToldUnderTheLineLock) {
    note_lock_at_events();
    negotiate(7);
    EXPECT_TRUE(reads(all_of(NOTE), {"told under the lock"}));
    EXPECT_FALSE(line_is_locked());
}

TEST_F(RateReport, ClearsTheLatchAsEveryOtherFrameDoes) {
    announce_more_pages(RECEIVED);
    negotiate(7);
    EXPECT_EQ(latched(), 0);
    announce_more_pages(SENT);
    negotiate(3);
    EXPECT_EQ(latched(), 2);
}

TEST_F(RateReport, OutlivesTheJob) {
    negotiate(7);
    driver.gate("DornFaxSendPageTiff").open();
    fax_thread_ends();
    EXPECT_EQ(rate(), 14400u);
}
