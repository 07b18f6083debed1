// Commands of the fax service while a job stands in the middle of a page.
#include <cstddef>
#include <cstring>

#include "fax_fixture.h"

using namespace harness;

namespace {

class FaxCommandRace : public OutgoingFaxFixture, public testing::WithParamInterface<Command> {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        driver.gate(page()).close();
        EXPECT_EQ(command(CommandBlock::fax(GetParam(), {})), 0u);
        EXPECT_TRUE(driver.gate(page()).holds_somebody());
        EXPECT_FALSE(line_is_locked());
        new_chapter();
    }
    void finish_the_job() {
        driver.gate(page()).open();
        fax_thread_ends();
        EXPECT_EQ(outcome(), (Lines{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                                    "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)"}));
    }

    static const char* page() { return GetParam() == FAXSEND ? "DornFaxSendPageTiff" : "DornFaxRcvPageTiff"; }
    static const char* next_page() { return GetParam() == FAXSEND ? "DornFaxNextPageTiff" : "DornFaxRcvPageTiff"; }
};

INSTANTIATE_TEST_SUITE_P(DuringAPage, FaxCommandRace, testing::Values(FAXSEND, FAXRECEIVE), [](const auto& job) {
    return std::string(job.param == FAXSEND ? "OfATransmission" : "OfAReception");
});

}  // namespace

TEST_P(FaxCommandRace, PublishesTheStatusAsTheJobHasItSoFar) {
    std::memset(shared_record(0).szRemoteId, 'x', sizeof(SharedRecord::szRemoteId));
    shared_record(0).dwPageCount = 77;
    EXPECT_EQ(command(CommandBlock(GETSTATUS)), 0u);
    EXPECT_STREQ(shared_record(0).szRemoteId, "REMOTE STATION");
    EXPECT_EQ(shared_record(0).dwPageCount, 0u);
    EXPECT_TRUE(reads(driver_calls(), {}));
    EXPECT_TRUE(reads(events(), {}));
    finish_the_job();
}

// The job goes on with the handle that the driver has, and asks for the next page without one.
TEST_P(FaxCommandRace, ClosesTheFileUnderTheJobWhichGoesOnWithoutIt) {
    before(driver.on.DornTiffClose, [this] { note_lock("closed"); });
    EXPECT_EQ(close_file(), 0u);
    EXPECT_TRUE(reads(all_of(DRIVER | NOTE), {"DornTiffClose(TIFF1)", "closed under the lock"}));
    EXPECT_EQ(close_file(), 1u);
    EXPECT_EQ(command(CommandBlock::fax(GetParam(), {})), 1u);
    new_chapter();
    finish_the_job();
    const auto records = records_of(next_page());
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(value_at<const DornTiff*>(records[0], offsetof(DornFaxRecord, hTiff)), nullptr);
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffClose(<*>"));
}
