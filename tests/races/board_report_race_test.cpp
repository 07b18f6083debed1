// Reports of the board that arrive while their line is being closed. The job is over; the board had its handler in its
// hands before that.
#include "board_report_fixture.h"
#include "holding.h"

using namespace harness;

namespace {

class BoardReportRace : public BoardReportFixture {
  protected:
    void SetUp() override {
        BoardReportFixture::SetUp();
        announce_more_pages();
        DornIncomingCmdFunc handler = driver.channel(4).handler;
        ASSERT_NE(handler, nullptr);
        driver.gate("DornFaxSendPageTiff").open();
        fax_thread_ends();
        driver.channel(4).handler = handler;
        new_chapter();
    }
};

}  // namespace

TEST_F(BoardReportRace, WaitsForTheLockOfACloseAndIsForgottenWithTheCall) {
    HoldAfterTheAlert after_the_alert("MUTEX1");
    driver.gate("DornLineAlert").close();
    Call closing([this] { return tsp.TSPI_lineCloseCall(call(0)); });
    EXPECT_TRUE(driver.gate("DornLineAlert").holds_somebody());
    EXPECT_TRUE(line_is_locked());
    Call reporting([this] {
        page_end();
        return 0;
    });
    EXPECT_TRUE(comes("[4] End Of Page GotMPS = 2, continuing = 0, pLine = <*>"));
    EXPECT_TRUE(comes("WaitForSingleObject(MUTEX1, INFINITE)", 2));
    EXPECT_EQ(pages(), 0u);
    driver.gate("DornLineAlert").open();
    EXPECT_TRUE(after_the_alert.holds_somebody());
    reporting.result();
    EXPECT_EQ(pages(), 1u);
    after_the_alert.open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_EQ(pages(), 0u);
    EXPECT_TRUE(reads(events(), joined({{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)"}, kCallIsOver})));
}

// The line is still known by its unit while its close waits for its thread, and the announcement outlives the call.
TEST_F(BoardReportRace, IsCountedForALineWithoutACallWhileItsThreadIsAwaited) {
    bool reported = false;
    windows.objects.on_wait = [&](HANDLE object, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 1000) return std::nullopt;
        if (!reported) {
            reported = true;
            EXPECT_FALSE(line_is_locked());
            page_end();
        }
        return WaitForSingleObject(object, 20);
    };
    EXPECT_EQ(close_line(0), 0);
    EXPECT_TRUE(reads(events(), joined({kCallIsOver, {"LINE_CALLDEVSPECIFIC(HTLINE1, 0, 0x3, 0x0, 0x0)"}})));
    EXPECT_EQ(driver.attached(), 0u);
}

TEST_F(BoardReportRace, FindsNoLineOnceItIsBeingDetachedAndDoesNotWaitForItsLock) {
    driver.gate("DornSessionDetach").close();
    windows.objects.longest_wait = 20;
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(driver.gate("DornSessionDetach").holds_somebody());
    EXPECT_TRUE(line_is_locked());
    new_chapter();
    page_end();
    announce_more_pages();
    EXPECT_TRUE(reads(story(), {"[4] End Of Page GotMPS = 0, continuing = 0, pLine = 0"}));
    EXPECT_TRUE(reads(windows_calls(), {}));
    driver.gate("DornSessionDetach").open();
    EXPECT_EQ(closing.result(), 0);
    EXPECT_EQ(driver.attached(), 0u);
}
