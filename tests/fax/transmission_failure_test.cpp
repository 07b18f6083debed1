// Every step of a transmission that can fail, and what becomes of the job.
#include "fax_fixture.h"

using namespace harness;

namespace {

class TransmissionFailure : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }

    // The job from its last driver call on ends with this text and result, and with no more driver calls.
    void expect_failure(const std::string& last_call, const std::string& trace) {
        send_fax();
        EXPECT_TRUE(reads_in_order(of_the_job(story()), {
                                                            last_call,
                                                            "DornErrorMessage(CHAN4)",
                                                            "[2] " + trace + ": error text of CHAN4",
                                                            "[4] Thread_Send_Fax -> Done, errors occurred",
                                                            "[4] Send_CallDevSpecific 1,2,11",
                                                            "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x2, 0x11)",
                                                            "[4] Thread_Send_Fax pLine->dwDeviceID = 7 \nSend_Call"
                                                            "DevSpecific res.status = 0x2 (2), res.line_status = 0x11 "
                                                            "(17)",
                                                            "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x2, 0x20)",
                                                        }));
        Lines calls = lines(of_the_job(driver_calls()));
        ASSERT_GE(calls.size(), 2u);
        EXPECT_EQ(calls[calls.size() - 2], last_call);
        EXPECT_EQ(calls.back(), "DornErrorMessage(CHAN4)");
        EXPECT_EQ(shared_record(0).status, 2u);
        EXPECT_EQ(shared_record(0).line_status, 17u);
    }

    // The job ends well although a call returned an error.
    void expect_success() {
        send_fax();
        EXPECT_TRUE(holds_no(driver_calls(), "DornErrorMessage(<*>"));
        EXPECT_TRUE(holds(driver_calls(), "DornFaxEndOfDocument(CHAN4)"));
        EXPECT_EQ(outcome(), (Lines{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                                    "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)"}));
    }
};

const auto kFails = fax_step(0, KX_STATUS_ERROR, APIERR_LOCK_FAILED);

}  // namespace

TEST_F(TransmissionFailure, AtTheBeginningEndsTheJob) {
    driver.on.DornFaxBeginSendTiff = kFails;
    expect_failure("DornFaxBeginSendTiff(CHAN4, TIFF1)", "LumFaxBeginSendTiff");
    EXPECT_TRUE(holds_no(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)"));
}

TEST_F(TransmissionFailure, AtTheRemoteInformationEndsTheJobBeforeAnyProgress) {
    driver.on.DornFaxGetRemoteInfo = kFails;
    expect_failure("DornFaxGetRemoteInfo(CHAN4)", "LumFaxGetRemoteInfo");
    EXPECT_TRUE(holds_no(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)"));
    EXPECT_EQ(shared_record(0).szRemoteId[0], 0);
}

TEST_F(TransmissionFailure, AtTheTrainingEndsTheJob) {
    driver.on.DornFaxWaitForTraining = kFails;
    expect_failure("DornFaxWaitForTraining(CHAN4)", "LumFaxWaitForTraining");
}

TEST_F(TransmissionFailure, OfAPageEndsTheJob) {
    driver.on.DornFaxSendPageTiff = kFails;
    expect_failure("DornFaxSendPageTiff(CHAN4, TIFF1)", "MyLumFaxSendPageTiff");
}

TEST_F(TransmissionFailure, OfTheSecondPageEndsTheJob) {
    driver.channel(4).pages_to_send = 3;
    driver.on.DornFaxSendPageTiff = [](DornLine* line, DornFaxRecord* record) {
        return driver.channel_of(line).pages_done < 2 ? 0 : kFails(line, record);
    };
    expect_failure("DornFaxSendPageTiff(CHAN4, TIFF1)", "MyLumFaxSendPageTiff");
    EXPECT_EQ(count(driver_calls(), "DornFaxSendPageTiff(CHAN4, TIFF1)"), 2u);
}

TEST_F(TransmissionFailure, AtTheNextPageEndsTheJob) {
    for (int result : {0, -1}) {
        new_chapter();
        driver.on.DornFaxNextPageTiff = fax_step(result, KX_STATUS_ERROR, APIERR_LOCK_FAILED);
        send_fax();
        EXPECT_TRUE(reads_in_order(of_the_job(story()),
                                   {"DornErrorMessage(CHAN4)", "[2] LumFaxNextPageTiff: error text of CHAN4",
                                    "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x2, 0x11)"}));
        EXPECT_TRUE(holds_no(driver_calls(), "DornFaxEndOfDocument(<*>"));
    }
}

TEST_F(TransmissionFailure, AtTheEndOfTheDocumentIsTheReturnValue) {
    driver.on.DornFaxEndOfDocument = fax_step(-1, KX_STATUS_ERROR, APIERR_LOCK_FAILED);
    expect_failure("DornFaxEndOfDocument(CHAN4)", "LumFaxEndOfDocument");
}

TEST_F(TransmissionFailure, AtTheEndOfTheDocumentWithAGoodStatusIsReportedAsGood) {
    driver.on.DornFaxEndOfDocument = fax_step(-1, KX_STATUS_OK, 0);
    send_fax();
    EXPECT_TRUE(reads_in_order(
        of_the_job(story()), {"[2] LumFaxEndOfDocument: error text of CHAN4", "[4] Thread_Send_Fax -> Done, no errors",
                              "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                              "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)"}));
}

TEST_F(TransmissionFailure, InTheStatusOfTheEndOfTheDocumentBecomesTheResultWithoutAText) {
    driver.on.DornFaxEndOfDocument = fax_step(0, KX_STATUS_ERROR_HANGUP, 9);
    send_fax();
    EXPECT_TRUE(holds_no(driver_calls(), "DornErrorMessage(<*>"));
    EXPECT_TRUE(holds(traces(), "[4] Thread_Send_Fax -> Done, errors occurred"));
    EXPECT_EQ(outcome(), (Lines{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x4, 0x9)",
                                "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x2, 0x20)"}));
}

TEST_F(TransmissionFailure, IsJudgedByTheStatusAlone) {
    driver.on.DornFaxBeginSendTiff = driver.on.DornFaxGetRemoteInfo = driver.on.DornFaxWaitForTraining =
        driver.on.DornFaxSendPageTiff = fax_step(-1, KX_STATUS_OK, 5);
    expect_success();
    EXPECT_TRUE(holds(driver_calls(), "DornFaxSendPageTiff(CHAN4, TIFF1)"));
}

TEST_F(TransmissionFailure, OfTheNextPagesReturnValueOnlyEndsThePages) {
    driver.on.DornFaxNextPageTiff = fax_step(-1, KX_STATUS_OK, 0);
    expect_success();
}

TEST_F(TransmissionFailure, OfTheNextPagesStatusIsNotSeenWhileItReturnsAPage) {
    driver.on.DornFaxNextPageTiff = [](DornLine* line, DornFaxRecord* record) {
        int result = ScriptedDriver::usual().DornFaxNextPageTiff(line, record);
        if (result > 0) put_value(record, 0, KX_STATUS_ERROR);
        return result;
    };
    expect_success();
    EXPECT_TRUE(holds(driver_calls(), "DornFaxSendPageTiff(CHAN4, TIFF1)"));
}

TEST_F(TransmissionFailure, OfTheHeaderOrTheLocalIdIsNotSeen) {
    driver.on.DornFaxHeader = driver.on.DornFaxSetLocalId = fax_step(-1, KX_STATUS_ERROR, 1);
    send_fax({"HEADER", "ID", 1});
    EXPECT_EQ(outcome().at(0), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)");
}

TEST_F(TransmissionFailure, IsTracedInHexadecimalAndSigned) {
    driver.on.DornFaxEndOfDocument = fax_step(0, 0xAB, 0xFFFFFFFE);
    send_fax();
    EXPECT_TRUE(holds(traces(), "[4] Send_CallDevSpecific 1,AB,FFFFFFFE"));
    EXPECT_TRUE(holds(traces(), "<*>res.status = 0xab (171), res.line_status = 0xfffffffe (-2)"));
    EXPECT_TRUE(holds(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0xAB, 0xFFFFFFFE)"));
}

TEST_F(TransmissionFailure, HasTheDriversTextAsItIs) {
    driver.channel(4).error_text = "50% of %s lost: %n";
    driver.on.DornFaxWaitForTraining = kFails;
    send_fax();
    EXPECT_TRUE(holds(traces(), "[2] LumFaxWaitForTraining: 50% of %s lost: %n"));
}
