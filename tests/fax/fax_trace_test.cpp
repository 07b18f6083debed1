// The whole road of a job: everything that its thread does, in order, to its good end and to every failure.
#include <memory>

#include "fax_story.h"

using namespace harness;

namespace {

HGLOBAL WINAPI note_and_free(HGLOBAL block) {
    note("the argument block is freed");
    return GlobalFree(block);
}

using Step = std::function<int(DornLine*, DornFaxRecord*)>;

// One driver call of a session: how the journal shows it, what the provider does behind it when it was good, and the
// text that its failure gives.
struct SessionStep {
    std::string call;
    Lines behind;
    std::string failure;
};

// The steps before the one of this number, and that one.
Lines up_to(const std::vector<SessionStep>& steps, size_t number) {
    Lines all;
    for (size_t i = 0; i < number; ++i) all = joined({all, {steps[i].call}, steps[i].behind});
    return joined({all, {steps[number].call}});
}

Lines error_text(const std::string& failure) {
    return {"DornErrorMessage(CHAN4)", "[2] " + failure + ": error text of CHAN4"};
}

class FaxTrace : public FaxFixture {
  protected:
    void SetUp() override {
        FaxFixture::SetUp();
        table_ = std::make_unique<Replacements>(module);
        ASSERT_TRUE(table_->replace("GlobalFree", reinterpret_cast<void*>(&note_and_free)));
    }
    void TearDown() override {
        fax_thread_ends();
        table_.reset();
        FaxFixture::TearDown();
    }

  private:
    std::unique_ptr<Replacements> table_;
};

const Lines kHandlerSlot = {"DornLineIncomingCmdFuncAccess(CHAN4)"};

class TransmissionTrace : public FaxTrace {
  protected:
    void SetUp() override {
        FaxTrace::SetUp();
        place_call(0);
        fax_thread_ends();
        open_file();
        new_chapter();
    }

    static const std::vector<SessionStep>& steps() {
        static const std::vector<SessionStep> all = {
            {"DornFaxBeginSendTiff(CHAN4, TIFF1)", {}, "LumFaxBeginSendTiff"},
            {"DornFaxGetRemoteInfo(CHAN4)", joined({locked({published()}), told_of_progress()}), "LumFaxGetRemoteInfo"},
            {"DornFaxWaitForTraining(CHAN4)", {}, "LumFaxWaitForTraining"},
            {"DornFaxNextPageTiff(CHAN4, TIFF1)", {}, "LumFaxNextPageTiff"},
            {"DornFaxSendPageTiff(CHAN4, TIFF1)", {}, "MyLumFaxSendPageTiff"},
            {"DornFaxNextPageTiff(CHAN4, TIFF1)", {}, "LumFaxNextPageTiff"},
            {"DornFaxEndOfDocument(CHAN4)", {}, "LumFaxEndOfDocument"},
        };
        return all;
    }

    // The thread with this in front of its session, this session and this result of the job.
    static Lines thread(const Lines& header, const Lines& session, uint32_t status, uint32_t line_status) {
        return thread_around(joined({header,
                                     {"DornFaxSetLocalId(CHAN4, \"\")"},
                                     inside("SendStraightTIFF", {{"DornLineCapCheck(CHAN4, 20)"}, session})}),
                             status, line_status);
    }
    static Lines thread_around(const Lines& job, uint32_t status, uint32_t line_status) {
        return inside(
            "Thread_Send_Fax",
            {
                locked({published()}),
                kHandlerSlot,
                job,
                {"the argument block is freed"},
                kHandlerSlot,
                {status ? "[4] Thread_Send_Fax -> Done, errors occurred" : "[4] Thread_Send_Fax -> Done, no errors"},
                told_of_the_end(status, line_status),
                {text("[4] Thread_Send_Fax pLine->dwDeviceID = 7 \nSend_CallDevSpecific res.status = 0x%x (%u), "
                      "res.line_status = 0x%x (%u)",
                      status, status, line_status, line_status)},
                job_is_over(status ? 2 : 1),
            });
    }

    // The step of this number fails with 2/17.
    void expect_failure_of_step(size_t number, Step& step) {
        step = fax_step(-1, KX_STATUS_ERROR, APIERR_LOCK_FAILED);
        send_fax({"", "", 0});
        EXPECT_TRUE(reads(of_the_job(whole_story()),
                          thread({}, joined({up_to(steps(), number), error_text(steps()[number].failure)}), 2, 17)));
    }
};

const Lines kBeforeTheSession = {"DornLineCapCheck(CHAN4, 20)", "DornFaxSetReceiveFmt(CHAN4, 19)",
                                 "DornFaxSetLocalId(CHAN4, \"+1 555 0100\")"};

class ReceptionTrace : public FaxTrace {
  protected:
    void SetUp() override {
        FaxTrace::SetUp();
        take_call(0, {"5551234", "", "", "", "TO: ME"});
        driver.channel(4).second_id = "77";
        open_file();
        new_chapter();
    }

    static const std::vector<SessionStep>& steps() {
        static const std::vector<SessionStep> all = {
            {"DornFaxBeginReceive(CHAN4)", {}, ""},
            {"DornFaxGetRemoteInfo(CHAN4)", joined({locked({published(), published()}), told_of_progress()}),
             "LumFaxGetRemoteInfo"},
            {"DornFaxWaitForTraining(CHAN4)", {}, "LumFaxWaitForTraining"},
            {"DornFaxRcvPageTiff(CHAN4, TIFF1, 305:2[11] \"0536870920\\x00\", 337:2[7] \"TO: ME\\x00\")",
             {},
             "LumFaxRcvPageTiff"},
            {"DornFaxRcvPageTiff(CHAN4, TIFF1)", {}, "LumFaxRcvPageTiff"},
            {"DornFaxEndReception(CHAN4)", {}, "LumFaxEndReception"},
        };
        return all;
    }

    static Lines thread(const Lines& session, bool failed, uint32_t status, uint32_t line_status) {
        return thread_around(joined({kBeforeTheSession, session}), failed, status, line_status);
    }
    static Lines thread_around(const Lines& job, bool failed, uint32_t status, uint32_t line_status) {
        return inside("Thread_Receive_Fax",
                      {
                          locked({published(), published(), told_of_progress()}),
                          kHandlerSlot,
                          job,
                          {"the argument block is freed"},
                          kHandlerSlot,
                          {failed ? "[4] Thread_Receive_Fax() -> Done, with ERRORS occurred"
                                  : "[4] Thread_Receive_Fax() -> Done, no errors"},
                          told_of_the_end(status, line_status),
                          {"[4] Thread_Receive_Fax() pLine->dwDeviceID = 7",
                           text("[4] Thread_Receive_Fax() Send_CallDevSpecific KXResult.status = 0x%X (%u), "
                                "KXResult.line_status = 0x%X (%u)",
                                status, status, line_status, line_status)},
                          job_is_over(failed ? 2 : 1),
                      });
    }

    // The job ends after the step of this number and these lines with the result 2/17.
    void expect_failure(size_t number, const Lines& ending) {
        receive_fax();
        EXPECT_TRUE(reads(of_the_job(whole_story()), thread(joined({up_to(steps(), number), ending}), true, 2, 17)));
    }
};

const Step kFails = fax_step(-1, KX_STATUS_ERROR, APIERR_LOCK_FAILED);

}  // namespace

TEST_F(TransmissionTrace, ShowsTheWholeThread) {
    send_fax({"HEADER", "", 1});
    EXPECT_TRUE(reads(of_the_job(whole_story()),
                      thread({"DornFaxHeader(CHAN4, 0, 2, \"HEADER        \")"}, up_to(steps(), 6), 0, 0)));
}

TEST_F(TransmissionTrace, OfAHeaderThatDoesNotFitShowsTheComplaintBeforeTheHeaderIsSet) {
    send_fax({"A", "123", 1});
    EXPECT_TRUE(reads_in_order(of_the_job(whole_story()),
                               {"DornLineIncomingCmdFuncAccess(CHAN4)", "[2] Thread_Send_Fax _snprintf#2",
                                "DornFaxHeader(CHAN4, 0, 2, \"A   \")", "DornFaxSetLocalId(CHAN4, \"123\")"}));
}

TEST_F(TransmissionTrace, EndsWithAFailedBeginning) {
    expect_failure_of_step(0, driver.on.DornFaxBeginSendTiff);
}

TEST_F(TransmissionTrace, EndsWithAFailedRemoteInformation) {
    expect_failure_of_step(1, driver.on.DornFaxGetRemoteInfo);
}

TEST_F(TransmissionTrace, EndsWithAFailedTraining) {
    expect_failure_of_step(2, driver.on.DornFaxWaitForTraining);
}

TEST_F(TransmissionTrace, EndsWithAFailedNextPage) {
    expect_failure_of_step(3, driver.on.DornFaxNextPageTiff);
}

TEST_F(TransmissionTrace, EndsWithAFailedPage) {
    expect_failure_of_step(4, driver.on.DornFaxSendPageTiff);
}

TEST_F(TransmissionTrace, EndsWithAFailedEndOfTheDocument) {
    expect_failure_of_step(6, driver.on.DornFaxEndOfDocument);
}

TEST_F(TransmissionTrace, EndsWithAnException) {
    driver.on.DornFaxSetLocalId = [](DornLine*, DornFaxRecord*) -> int { throw 1; };
    send_fax({"", "", 0});
    EXPECT_TRUE(
        reads(of_the_job(whole_story()),
              thread_around({"DornFaxSetLocalId(CHAN4, \"\")", "[1] Thread_Send_Fax: Exception"}, KX_STATUS_ERROR, 0)));
    EXPECT_EQ(shared_record(0).status, KX_STATUS_ERROR);
}

TEST_F(ReceptionTrace, EndsWithAnException) {
    driver.on.DornFaxBeginReceive = [](DornLine*, DornFaxRecord*) -> int { throw 1; };
    receive_fax();
    EXPECT_TRUE(reads(
        of_the_job(whole_story()),
        thread_around(joined({kBeforeTheSession, {"DornFaxBeginReceive(CHAN4)", "[1] Thread_Receive_Fax: Exception"}}),
                      true, KX_STATUS_ERROR, 0)));
    EXPECT_EQ(shared_record(0).status, KX_STATUS_ERROR);
}

TEST_F(ReceptionTrace, ShowsTheWholeThread) {
    receive_fax();
    EXPECT_TRUE(reads(of_the_job(whole_story()), thread(up_to(steps(), 5), false, 0, 0)));
}

TEST_F(ReceptionTrace, EndsWithAFailedBeginning) {
    driver.on.DornFaxBeginReceive = kFails;
    expect_failure(0, {"[2] LumFaxBeginReceive - ERROR"});
}

TEST_F(ReceptionTrace, EndsWithAFailedRemoteInformation) {
    driver.on.DornFaxGetRemoteInfo = kFails;
    expect_failure(1, error_text("LumFaxGetRemoteInfo"));
}

TEST_F(ReceptionTrace, EndsWithAFailedTraining) {
    driver.on.DornFaxWaitForTraining = kFails;
    expect_failure(2, error_text("LumFaxWaitForTraining"));
}

TEST_F(ReceptionTrace, EndsWithAFailedFirstPageAndTheEndOfTheSession) {
    driver.on.DornFaxRcvPageTiff = kFails;
    expect_failure(3, joined({error_text("LumFaxRcvPageTiff"), {"DornFaxEndReception(CHAN4)"}}));
}

TEST_F(ReceptionTrace, EndsWithAFailedSecondPageAndAFailedEndOfTheSession) {
    driver.on.DornFaxRcvPageTiff = [](DornLine* line, DornFaxRecord* record) {
        return record->dwExtraTagCount ? 1 : kFails(line, record);
    };
    driver.on.DornFaxEndReception = fax_step(-1, KX_STATUS_ERROR_HANGUP, 3);
    expect_failure(
        4, joined({error_text("LumFaxRcvPageTiff"), {"DornFaxEndReception(CHAN4)"}, error_text("LumFaxEndReception")}));
}

TEST_F(ReceptionTrace, EndsWithAFailedEndOfTheSession) {
    driver.on.DornFaxEndReception = kFails;
    expect_failure(5, error_text("LumFaxEndReception"));
}

TEST_F(FaxTrace, OfAReceptionWithoutNumbersShowsNoNotificationUnderTheLock) {
    take_call(0);
    open_file();
    new_chapter();
    receive_fax();
    const Lines beginning = joined(
        {{of_line(8, "Thread_Receive_Fax")}, locked({published()}), kHandlerSlot, {"DornLineCapCheck(CHAN4, 20)"}});
    Lines whole = lines(of_the_job(whole_story()));
    ASSERT_GT(whole.size(), beginning.size());
    whole.resize(beginning.size());
    EXPECT_EQ(whole, beginning);
    EXPECT_TRUE(reads_in_order(of_the_job(whole_story()),
                               joined({{"DornFaxGetRemoteInfo(CHAN4)"}, locked({published()}), told_of_progress()})));
}
