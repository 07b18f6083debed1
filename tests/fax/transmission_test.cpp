// Thread_Send_Fax: the road of one transmission, from the command to the end of the call.
#include "fax_fixture.h"

using namespace harness;

namespace {

class Transmission : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }
};

}  // namespace

TEST_F(Transmission, SendsAPageAndReportsTheEndOfTheCall) {
    send_fax();
    EXPECT_TRUE(
        reads(of_the_job(story()),
              joined({{
                          "DornFaxSetLocalId(CHAN4, \"+1 555 0100\")",
                          "DornLineCapCheck(CHAN4, 20)",
                          "DornFaxBeginSendTiff(CHAN4, TIFF1)",
                          "DornFaxGetRemoteInfo(CHAN4)",
                          "[4] Send_CallDevSpecific 3,0,0",
                          "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)",
                          "DornFaxWaitForTraining(CHAN4)",
                          "DornFaxNextPageTiff(CHAN4, TIFF1)",
                          "DornFaxSendPageTiff(CHAN4, TIFF1)",
                          "DornFaxNextPageTiff(CHAN4, TIFF1)",
                          "DornFaxEndOfDocument(CHAN4)",
                          "[4] Thread_Send_Fax -> Done, no errors",
                          "[4] Send_CallDevSpecific 1,0,0",
                          "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                          "[4] Thread_Send_Fax pLine->dwDeviceID = 7 \nSend_CallDevSpecific res.status = 0x0 (0), "
                          "res.line_status = 0x0 (0)",
                      },
                      call_is_disconnected()})));
}

TEST_F(Transmission, SendsEveryPageOfTheFile) {
    driver.channel(4).pages_to_send = 3;
    send_fax();
    const char *next = "DornFaxNextPageTiff(CHAN4, TIFF1)", *send = "DornFaxSendPageTiff(CHAN4, TIFF1)";
    EXPECT_TRUE(reads(driver_calls().only({"<*>PageTiff(<*>"}), {next, send, next, send, next, send, next}));
}

TEST_F(Transmission, SendsNoPageOfAnEmptyFile) {
    driver.channel(4).pages_to_send = 0;
    send_fax();
    EXPECT_TRUE(holds_no(driver_calls(), "DornFaxSendPageTiff(<*>"));
    EXPECT_TRUE(holds(driver_calls(), "DornFaxEndOfDocument(CHAN4)"));
}

TEST_F(Transmission, SendsOnTheBlocksCopyOfTheTexts) {
    driver.gate("DornLineIncomingCmdFuncAccess").close();
    CommandBlock block = CommandBlock::fax(FAXSEND, {"HEADER", "LOCAL ID", 1});
    request(block);
    block.put_text(32, "another header").put_text(82, "another id").put(132, 0u);
    driver.gate("DornLineIncomingCmdFuncAccess").open();
    fax_thread_ends();
    EXPECT_TRUE(reads_in_order(
        driver_calls(), {"DornFaxHeader(CHAN4, 0, 2, \"HEADER<*>\")", "DornFaxSetLocalId(CHAN4, \"LOCAL ID\")"}));
}

TEST_F(Transmission, TellsTheFaxServiceWithoutTheLineLock) {
    note_lock_at_events();
    send_fax();
    EXPECT_TRUE(reads(all_of(EVENT | NOTE), {
                                                "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)",
                                                "told without the lock",
                                                "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                                                "told without the lock",
                                                "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)",
                                                "told under the lock",
                                                "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                "told without the lock",
                                                "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                "told without the lock",
                                            }));
}

TEST_F(Transmission, GivesTheDriverTheFileByItsOffset) {
    send_fax();
    for (const char* step : {"DornFaxBeginSendTiff", "DornFaxNextPageTiff", "DornFaxSendPageTiff"})
        for (const std::vector<uint8_t>& record : records_of(step)) {
            ASSERT_EQ(record.size(), 801u);
            EXPECT_EQ(name_of(value_at<const void*>(record, 8)), "TIFF1");
        }
    EXPECT_EQ(records_of("DornFaxEndOfDocument").at(0), std::vector<uint8_t>(801));
}

TEST_F(Transmission, KeepsTwentyBytesOfTheRemoteIdentifier) {
    driver.on.DornFaxGetRemoteInfo = [](DornLine*, DornFaxRecord* record) {
        std::memcpy(reinterpret_cast<uint8_t*>(record) + 200, "01234567890123456789WHAT FOLLOWS", 32);
        return 0;
    };
    send_fax();
    EXPECT_STREQ(shared_record(0).szRemoteId, "01234567890123456789");
    EXPECT_EQ(shared_record(0).padding0, 0);
}

TEST_F(Transmission, HasTheRemoteIdentifierPublishedWhenItTellsOfIt) {
    tapi.on_event = [this](const LineEvent& event) {
        if (event.message == LINE_CALLDEVSPECIFIC) note(shared_record(0).szRemoteId);
    };
    send_fax();
    EXPECT_TRUE(reads(all_of(NOTE), {"REMOTE STATION", "REMOTE STATION"}));
}
