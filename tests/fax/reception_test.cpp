// Thread_Receive_Fax: the road of one reception, from the command to the end of the call.
#include "fax_fixture.h"

using namespace harness;

namespace {

class Reception : public IncomingFaxFixture {
  protected:
    void SetUp() override {
        IncomingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }
};

}  // namespace

TEST_F(Reception, ReceivesAPageAndReportsTheEndOfTheCall) {
    receive_fax();
    EXPECT_TRUE(
        reads(of_the_job(story()), joined({{
                                               "DornLineCapCheck(CHAN4, 20)",
                                               "DornFaxSetReceiveFmt(CHAN4, 19)",
                                               "DornFaxSetLocalId(CHAN4, \"+1 555 0100\")",
                                               "DornFaxBeginReceive(CHAN4)",
                                               "DornFaxGetRemoteInfo(CHAN4)",
                                               "[4] Send_CallDevSpecific 3,0,0",
                                               "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)",
                                               "DornFaxWaitForTraining(CHAN4)",
                                               "DornFaxRcvPageTiff(CHAN4, TIFF1, 305:2[11] \"0536870920\\x00\")",
                                               "DornFaxRcvPageTiff(CHAN4, TIFF1)",
                                               "DornFaxEndReception(CHAN4)",
                                               "[4] Thread_Receive_Fax() -> Done, no errors",
                                               "[4] Send_CallDevSpecific 1,0,0",
                                               "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                                               "[4] Thread_Receive_Fax() pLine->dwDeviceID = 7",
                                               "[4] Thread_Receive_Fax() Send_CallDevSpecific KXResult.status = 0x0 "
                                               "(0), KXResult.line_status = 0x0 (0)",
                                           },
                                           call_is_disconnected()})));
}

TEST_F(Reception, StampsOnlyTheFirstPageRequest) {
    driver.channel(4).pages_to_receive = 3;
    receive_fax();
    const char* plain = "DornFaxRcvPageTiff(CHAN4, TIFF1)";
    EXPECT_TRUE(reads(driver_calls().only({"DornFaxRcvPageTiff(<*>"}),
                      {"DornFaxRcvPageTiff(CHAN4, TIFF1, 305:2[11] \"0536870920\\x00\")", plain, plain, plain}));
}

TEST_F(Reception, HandsTheStampOverAsAnExtraTag) {
    driver.on.DornFaxRcvPageTiff = [](DornLine*, DornFaxRecord* record) {
        auto* request = reinterpret_cast<const uint8_t*>(record);
        EXPECT_EQ(value_at<uint32_t>(request, 40), 1u);
        auto* tag = value_at<const uint8_t*>(request, 32);
        EXPECT_EQ(value_at<uint16_t>(tag, 0), 305);
        EXPECT_EQ(value_at<uint16_t>(tag, 2), 2);
        EXPECT_EQ(value_at<uint32_t>(tag, 4), 11u);
        EXPECT_EQ(std::memcmp(value_at<const char*>(tag, 8), "0536870920", 11), 0);
        return 0;
    };
    receive_fax();
    EXPECT_TRUE(holds(driver_calls(), "DornFaxRcvPageTiff(<*>"));
}

TEST_F(Reception, SetsTheReceiveFormatAndTheFileInTheRecords) {
    receive_fax();
    EXPECT_EQ(value_at<uint32_t>(records_of("DornFaxSetReceiveFmt").at(0), 553), 19u);
    for (const std::vector<uint8_t>& record : records_of("DornFaxRcvPageTiff")) {
        ASSERT_EQ(record.size(), 801u);
        EXPECT_EQ(name_of(value_at<const void*>(record, 8)), "TIFF1");
    }
}

TEST_F(Reception, PrintsNoHeader) {
    receive_fax({"HEADER", "ID", 1});
    EXPECT_TRUE(holds_no(driver_calls(), "DornFaxHeader(<*>"));
}

TEST_F(Reception, TellsTheFaxServiceOfTheRemoteStationAndOfTheEndWithoutTheLineLock) {
    note_lock_at_events();
    receive_fax();
    EXPECT_TRUE(reads(all_of(NOTE), {"told without the lock", "told without the lock", "told under the lock",
                                     "told without the lock", "told without the lock"}));
}

TEST_F(Reception, EndsTheSessionOfAnAbortedPage) {
    driver.on.DornFaxRcvPageTiff = [](DornLine* board_line, DornFaxRecord*) { return driver.block(board_line), -1; };
    command(CommandBlock::fax(FAXRECEIVE, {}));
    EXPECT_TRUE(driver.is_blocked(4));
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    fax_thread_ends();
    EXPECT_TRUE(holds(driver_calls(), "DornFaxEndReception(CHAN4)"));
}
