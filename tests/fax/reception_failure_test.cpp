// Every step of a reception that can fail, and what becomes of the job.
#include <algorithm>

#include "fax_fixture.h"

using namespace harness;

namespace {

class ReceptionFailure : public IncomingFaxFixture {
  protected:
    void SetUp() override {
        IncomingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }

    // What the job says after the driver's last fax call.
    Lines ending() {
        receive_fax();
        Lines all = lines(
            of_the_job(story()).without({"<*>Sending LINE_<*>", "LINE_LINEDEVSTATE(<*>", "LINE_ADDRESSSTATE(<*>"}));
        auto last_call =
            std::find_if(all.rbegin(), all.rend(), [](const std::string& line) { return matches("DornFax<*>", line); });
        return Lines(last_call.base() - 1, all.end());
    }
};

// The ending of a job with this result; status and line_status below 10.
Lines ending_with(const Lines& first, bool failed, int status, int line_status) {
    Lines all = first;
    all.push_back(failed ? "[4] Thread_Receive_Fax() -> Done, with ERRORS occurred"
                         : "[4] Thread_Receive_Fax() -> Done, no errors");
    all.push_back(text("[4] Send_CallDevSpecific 1,%X,%X", status, line_status));
    all.push_back(text("LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x%X, 0x%X)", status, line_status));
    all.push_back("[4] Thread_Receive_Fax() pLine->dwDeviceID = 7");
    all.push_back(
        text("[4] Thread_Receive_Fax() Send_CallDevSpecific KXResult.status = 0x%X (%d), "
             "KXResult.line_status = 0x%X (%d)",
             status, status, line_status, line_status));
    all.push_back(text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%d, 0x20)", failed ? 2 : 1));
    return all;
}

const auto kFails = fax_step(-1, KX_STATUS_ERROR, APIERR_BUSY);
const bool kWithErrors = true, kWithoutErrors = false;

}  // namespace

TEST_F(ReceptionFailure, AtTheBeginningEndsTheJobWithoutAText) {
    driver.on.DornFaxBeginReceive = kFails;
    EXPECT_EQ(ending(),
              ending_with({"DornFaxBeginReceive(CHAN4)", "[2] LumFaxBeginReceive - ERROR"}, kWithErrors, 2, 9));
    EXPECT_EQ(shared_record(0).status, 2u);
    EXPECT_EQ(shared_record(0).line_status, 9u);
}

TEST_F(ReceptionFailure, AtTheBeginningWithAGoodStatusDisconnectsAsUnknown) {
    driver.on.DornFaxBeginReceive = fax_step(-1, KX_STATUS_OK, 0);
    EXPECT_EQ(ending(),
              ending_with({"DornFaxBeginReceive(CHAN4)", "[2] LumFaxBeginReceive - ERROR"}, kWithErrors, 0, 0));
}

TEST_F(ReceptionFailure, InTheStatusOfTheBeginningIsNotSeen) {
    driver.on.DornFaxBeginReceive = fax_step(0, KX_STATUS_ERROR, 9);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithoutErrors, 0, 0));
}

TEST_F(ReceptionFailure, AtTheRemoteInformationEndsTheJobBeforeAnyProgress) {
    driver.on.DornFaxGetRemoteInfo = fax_step(0, KX_STATUS_ERROR, APIERR_BUSY);
    EXPECT_EQ(ending(), ending_with({"DornFaxGetRemoteInfo(CHAN4)", "DornErrorMessage(CHAN4)",
                                     "[2] LumFaxGetRemoteInfo: error text of CHAN4"},
                                    kWithErrors, 2, 9));
    EXPECT_TRUE(holds_no(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, <*>"));
    EXPECT_TRUE(holds_no(driver_calls(), "DornFaxEndReception(<*>"));
    EXPECT_EQ(shared_record(0).szRemoteId[0], 0);
}

TEST_F(ReceptionFailure, AtTheTrainingEndsTheJob) {
    driver.on.DornFaxWaitForTraining = fax_step(0, KX_STATUS_TIMEOUT, API_TO_SILENCE);
    EXPECT_EQ(ending(), ending_with({"DornFaxWaitForTraining(CHAN4)", "DornErrorMessage(CHAN4)",
                                     "[2] LumFaxWaitForTraining: error text of CHAN4"},
                                    kWithErrors, 6, 1));
    EXPECT_TRUE(holds_no(driver_calls(), "DornFaxEndReception(<*>"));
}

TEST_F(ReceptionFailure, OfAReturnValueIsNotSeenWhereTheStatusCounts) {
    driver.on.DornFaxGetRemoteInfo = driver.on.DornFaxWaitForTraining = fax_step(-1, KX_STATUS_OK, 0);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithoutErrors, 0, 0));
}

TEST_F(ReceptionFailure, OfAPageClosesTheSessionAndKeepsThePagesResult) {
    driver.channel(4).pages_to_receive = 3;
    driver.on.DornFaxRcvPageTiff = [](DornLine* line, DornFaxRecord* record) {
        return driver.channel_of(line).pages_done < 2 ? ScriptedDriver::usual().DornFaxRcvPageTiff(line, record)
                                                      : kFails(line, record);
    };
    driver.on.DornFaxEndReception = fax_step(0, KX_STATUS_ERROR_HANGUP, 3);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithErrors, 2, 9));
    EXPECT_TRUE(reads_in_order(
        story(), {"DornFaxRcvPageTiff(CHAN4, TIFF1)", "DornFaxRcvPageTiff(CHAN4, TIFF1)", "DornErrorMessage(CHAN4)",
                  "[2] LumFaxRcvPageTiff: error text of CHAN4", "DornFaxEndReception(CHAN4)"}));
}

TEST_F(ReceptionFailure, OfAPageAndOfTheSessionsEndGivesBothTexts) {
    driver.on.DornFaxRcvPageTiff = kFails;
    driver.on.DornFaxEndReception = fax_step(-1, KX_STATUS_ERROR_HANGUP, 3);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)", "DornErrorMessage(CHAN4)",
                                     "[2] LumFaxEndReception: error text of CHAN4"},
                                    kWithErrors, 2, 9));
    EXPECT_TRUE(holds(traces(), "[2] LumFaxRcvPageTiff: error text of CHAN4"));
}

TEST_F(ReceptionFailure, OfAPageWithAGoodStatusDisconnectsAsUnknown) {
    driver.on.DornFaxRcvPageTiff = fax_step(-1, KX_STATUS_OK, 0);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithErrors, 0, 0));
}

TEST_F(ReceptionFailure, InTheStatusOfThePagesEndIsReplacedByTheSessionsEnd) {
    driver.on.DornFaxRcvPageTiff = fax_step(0, KX_STATUS_ERROR, 9);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithoutErrors, 0, 0));
}

TEST_F(ReceptionFailure, AtTheSessionsEndGivesItsText) {
    driver.on.DornFaxEndReception = fax_step(-1, KX_STATUS_ERROR_HANGUP, 3);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)", "DornErrorMessage(CHAN4)",
                                     "[2] LumFaxEndReception: error text of CHAN4"},
                                    kWithErrors, 4, 3));
    EXPECT_TRUE(holds_no(traces(), "[2] LumFaxRcvPageTiff<*>"));
}

TEST_F(ReceptionFailure, InTheStatusOfTheSessionsEndIsReportedButDisconnectsAsNormal) {
    driver.on.DornFaxEndReception = fax_step(0, KX_STATUS_ERROR_HANGUP, 3);
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithoutErrors, 4, 3));
}

TEST_F(ReceptionFailure, OfTheFormatOrTheLocalIdIsNotSeen) {
    driver.on.DornFaxSetReceiveFmt = driver.on.DornFaxSetLocalId = kFails;
    EXPECT_EQ(ending(), ending_with({"DornFaxEndReception(CHAN4)"}, kWithoutErrors, 0, 0));
}

TEST_F(ReceptionFailure, IsTracedInHexadecimalAndSigned) {
    driver.on.DornFaxEndReception = fax_step(0, 0xAB, 0xFFFFFFFE);
    receive_fax();
    EXPECT_TRUE(holds(traces(), "[4] Send_CallDevSpecific 1,AB,FFFFFFFE"));
    EXPECT_TRUE(holds(traces(), "<*>KXResult.status = 0xAB (171), KXResult.line_status = 0xFFFFFFFE (-2)"));
}
