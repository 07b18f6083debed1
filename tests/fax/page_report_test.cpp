// The board's reports of page ends: what counts as a page, and how the fax service hears of it.
#include "board_report_fixture.h"

using namespace harness;

namespace {

using PageReport = BoardReportFixture;

const char* const kProgress = "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)";

}  // namespace

TEST_F(PageReport, CountsAPageThatIsFollowedByMore) {
    announce_more_pages();
    new_chapter();
    page_end();
    EXPECT_TRUE(reads(story(), {"[4] End Of Page GotMPS = 2, continuing = 0, pLine = <*>",
                                "[4] Send_CallDevSpecific 3,0,0", kProgress}));
    EXPECT_EQ(pages(), 1u);
    EXPECT_EQ(latched(), 0);
}

TEST_F(PageReport, CountsEveryAnnouncedPageOnce) {
    for (uint32_t page = 1; page <= 3; ++page) {
        announce_more_pages();
        page_end();
        page_end();
        EXPECT_EQ(pages(), page);
    }
    EXPECT_EQ(count(events(), kProgress), 3u);
}

TEST_F(PageReport, CountsAPageOfAReceptionToo) {
    announce_more_pages(RECEIVED);
    page_end();
    EXPECT_EQ(pages(), 1u);
}

TEST_F(PageReport, DoesNotCountAPageThatNothingWasAnnouncedBehind) {
    page_end();
    EXPECT_TRUE(reads(story(), {"[4] End Of Page GotMPS = 0, continuing = 0, pLine = <*>"}));
    EXPECT_EQ(pages(), 0u);
}

TEST_F(PageReport, DoesNotCountAPageThatGoesOn) {
    announce_more_pages();
    new_chapter();
    page_end(1);
    EXPECT_TRUE(reads(story(), {"[4] End Of Page GotMPS = 2, continuing = 1, pLine = <*>"}));
    EXPECT_EQ(pages(), 0u);
    EXPECT_EQ(latched(), 2);
}

TEST_F(PageReport, DoesNotCountAPageThatGoesOnByANegativeNumber) {
    announce_more_pages();
    driver.report(4, 9, 8, 6, {{20, {0xFF, 0xFF, 0xFF, 0xFF}}});
    EXPECT_TRUE(holds(traces(), "[4] End Of Page GotMPS = 2, continuing = -1, pLine = <*>"));
    EXPECT_EQ(pages(), 0u);
}

TEST_F(PageReport, IsReadUntilTheDriverSaysAnythingButOne) {
    driver.on.DornGetTaggedValues = [](DornReport*, DornTaggedValue*) { return 2; };
    page_end();
    EXPECT_EQ(count(all_of(DRIVER_QUERY), "DornGetTaggedValues()"), 1u);
}

TEST_F(PageReport, TakesAPageWithoutTheTagAsEnded) {
    announce_more_pages();
    driver.report(4, 9, 8, 6, {{14, {1}}, {21, {1}}});
    EXPECT_TRUE(holds(traces(), "[4] End Of Page GotMPS = 2, continuing = 0, pLine = <*>"));
    EXPECT_EQ(pages(), 1u);
}

TEST_F(PageReport, IsPublishedBeforeTheFaxServiceIsTold) {
    announce_more_pages();
    tapi.on_event = [this](const LineEvent&) { note(text("told of %u pages", pages())); };
    page_end();
    EXPECT_TRUE(reads(all_of(NOTE), {"told of 1 pages"}));
}

TEST_F(PageReport, IsCountedUnderTheLineLockAndToldWithoutIt) {
    announce_more_pages();
    note_lock_at_events();
    page_end();
    EXPECT_TRUE(reads(all_of(NOTE), {"told without the lock"}));
    EXPECT_TRUE(reads_in_order(windows_calls(), {"WaitForSingleObject(MUTEX1, INFINITE)", "ReleaseMutex(MUTEX1)"}));
}

TEST_F(PageReport, IsNotLatchedAnyMoreWhenItIsPublished) {
    announce_more_pages();
    driver.on.QorvLogLogMsg = [this](uint32_t, int level, const char* line, const char*, uint32_t) {
        if (level == 8 && std::strstr(line, ": UpdateSharedMemory")) note(text("latched is %d", latched()));
    };
    page_end();
    EXPECT_TRUE(reads(all_of(NOTE), {"latched is 0"}));
}

TEST_F(PageReport, WaitsForTheLineLock) {
    announce_more_pages();
    ASSERT_EQ(WaitForSingleObject(line_mutex(), 0), WAIT_OBJECT_0);
    new_chapter();
    Call reporting([this] { return page_end(), 0; });
    EXPECT_TRUE(comes("WaitForSingleObject(MUTEX1, INFINITE)"));
    // This thread has the lock and may publish what there is so far.
    command(CommandBlock(GETSTATUS));
    EXPECT_EQ(pages(), 0u);
    EXPECT_EQ(latched(), 2);
    ReleaseMutex(line_mutex());
    reporting.result();
    EXPECT_EQ(pages(), 1u);
}

TEST_F(PageReport, OfAUnitWithoutAnOpenLineIsOnlyTraced) {
    announce_more_pages();
    driver.channel(4).unit = 99;
    new_chapter();
    page_end();
    EXPECT_TRUE(reads(story(), {"[4] End Of Page GotMPS = <*>, continuing = 0, pLine = 0"}));
    driver.channel(4).unit = 14;
    EXPECT_EQ(pages(), 0u);
    EXPECT_EQ(latched(), 2);
}

TEST_F(PageReport, CountsOnePageFewerThanADocumentHas) {
    driver.channel(4).pages_to_send = 2;
    announce_more_pages();
    page_end();
    driver.gate("DornFaxSendPageTiff").open_once();
    EXPECT_TRUE(driver.gate("DornFaxSendPageTiff").holds_somebody());
    frame(SENT, {0x2E});
    page_end();
    driver.gate("DornFaxSendPageTiff").open();
    fax_thread_ends();
    EXPECT_EQ(pages(), 1u);
}
