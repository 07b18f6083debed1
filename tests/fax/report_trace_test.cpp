// The whole handling of a board's report: what is asked of the driver, what is done under the line's lock, who is told.
#include "board_report_fixture.h"
#include "fax_story.h"

using namespace harness;

namespace {

using ReportTrace = BoardReportFixture;

// The report handler does not know the line when it is called.
Lines inside_report(const std::vector<Lines>& parts) {
    return joined({{"[8] InterruptFromLUM"}, joined(parts), {"[9] InterruptFromLUM"}});
}

// The line is found, and the direction and the bytes of a frame are read.
const Lines kFrameIsRead = {"DornLineUnitGet(CHAN4)", "DornGetTaggedValues()", "DornParseTaggedValueInt(tag=14)",
                            "DornGetTaggedValues()", "DornGetTaggedValues()"};
const Lines kPageEndIsRead = {"DornLineUnitGet(CHAN4)", "DornGetTaggedValues()", "DornParseTaggedValueInt(tag=20)",
                              "DornGetTaggedValues()"};

}  // namespace

TEST_F(ReportTrace, OfAFrameThatAnnouncesMorePages) {
    announce_more_pages();
    EXPECT_TRUE(reads(
        whole_story(),
        inside_report({kFrameIsRead, locked({{"[4] setting fsk_dir = 1, GotMPS = 2, fifo[2] = 78, fifo[3] = 0"}})})));
}

TEST_F(ReportTrace, OfAnotherFrame) {
    frame(RECEIVED, {0x2E});
    EXPECT_TRUE(reads(whole_story(), inside_report({kFrameIsRead, locked({})})));
}

TEST_F(ReportTrace, OfANewRate) {
    driver.channel(4).dcs[2] = 7;
    frame(RECEIVED, {DCS});
    EXPECT_TRUE(reads(
        whole_story(),
        inside_report({kFrameIsRead,
                       locked({{"DornLineDcsGet(CHAN4)"},
                               inside("send_linecallinfo", {{of_line(4, "Sending LINE_CALLINFO callinfo_state=0x8"),
                                                             "LINE_CALLINFO(HTLINE1, HTCALL1, RATE, 0x0, 0x0)"}})})})));
}

TEST_F(ReportTrace, OfTheRateThatTheLineHasAlready) {
    frame(RECEIVED, {DCS});
    EXPECT_TRUE(reads(whole_story(), inside_report({kFrameIsRead, locked({{"DornLineDcsGet(CHAN4)"}})})));
}

TEST_F(ReportTrace, OfAPageThatIsCounted) {
    announce_more_pages();
    new_chapter();
    page_end();
    EXPECT_TRUE(reads(whole_story(), inside_report({kPageEndIsRead,
                                                    {"[4] End Of Page GotMPS = 2, continuing = 0, pLine = <*>"},
                                                    locked({published()}),
                                                    told_of_progress()})));
}

TEST_F(ReportTrace, OfAPageThatIsNotCounted) {
    page_end();
    EXPECT_TRUE(reads(whole_story(),
                      inside_report({kPageEndIsRead, {"[4] End Of Page GotMPS = 0, continuing = 0, pLine = <*>"}})));
}

TEST_F(ReportTrace, OfAPageThatGoesOn) {
    announce_more_pages();
    new_chapter();
    page_end(1);
    EXPECT_TRUE(reads(whole_story(),
                      inside_report({kPageEndIsRead, {"[4] End Of Page GotMPS = 2, continuing = 1, pLine = <*>"}})));
}

TEST_F(ReportTrace, OfAnotherClassShowsNothing) {
    driver.report(4, 8, 8, 5, {direction_tag(SENT), frame_tag({0xFF, 0xC8, MPS})});
    EXPECT_TRUE(reads(whole_story().without({"DornLineUnitGet(<*>"}), inside_report({})));
}

TEST_F(ReportTrace, OfAFrameOfAnUnknownLineTakesNoLock) {
    driver.channel(4).unit = 99;
    announce_more_pages();
    EXPECT_TRUE(reads(whole_story(), inside_report({{"DornLineUnitGet(CHAN4)"}})));
    driver.channel(4).unit = 14;
}
