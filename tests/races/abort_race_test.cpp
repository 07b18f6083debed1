// An abort before, in and after every driver call of a fax job.
#include "fax_fixture.h"
#include "holding.h"

using namespace harness;

namespace {

using Handler = std::function<int(DornLine*, DornFaxRecord*)>;

// How the job ends by the moment of the abort: the board keeps an alert from the begin of its session to the end, and
// there is nobody to hear it outside. In a call whose result nobody looks at it is lost as well.
constexpr uint32_t LOST = KX_STATUS_OK, HEARD = KX_STATUS_ALERT;

struct Step {
    Command job;
    const char* function;
    Handler ScriptedDriver::Handlers::*handler;
    uint32_t before, during, after;
};
#define STEP(job, function, ...)                                         \
    Step {                                                               \
        job, #function, &ScriptedDriver::Handlers::function, __VA_ARGS__ \
    }
const Step kSteps[] = {
    STEP(FAXSEND, DornFaxHeader, LOST, LOST, LOST),
    STEP(FAXSEND, DornFaxSetLocalId, LOST, LOST, LOST),
    STEP(FAXSEND, DornFaxBeginSendTiff, LOST, HEARD, HEARD),
    STEP(FAXSEND, DornFaxGetRemoteInfo, HEARD, HEARD, HEARD),
    STEP(FAXSEND, DornFaxWaitForTraining, HEARD, HEARD, HEARD),
    STEP(FAXSEND, DornFaxNextPageTiff, HEARD, HEARD, HEARD),
    STEP(FAXSEND, DornFaxSendPageTiff, HEARD, HEARD, HEARD),
    STEP(FAXSEND, DornFaxEndOfDocument, HEARD, HEARD, LOST),
    STEP(FAXRECEIVE, DornFaxSetReceiveFmt, LOST, LOST, LOST),
    STEP(FAXRECEIVE, DornFaxSetLocalId, LOST, LOST, LOST),
    STEP(FAXRECEIVE, DornFaxBeginReceive, LOST, HEARD, HEARD),
    STEP(FAXRECEIVE, DornFaxGetRemoteInfo, HEARD, HEARD, HEARD),
    STEP(FAXRECEIVE, DornFaxWaitForTraining, HEARD, HEARD, HEARD),
    STEP(FAXRECEIVE, DornFaxRcvPageTiff, HEARD, HEARD, HEARD),
    STEP(FAXRECEIVE, DornFaxEndReception, HEARD, HEARD, LOST),
};

class AbortRace : public OutgoingFaxFixture, public testing::WithParamInterface<Step> {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        driver.on.DornLineAlert = [this](DornAlertRecord* record) {
            note_lock("alerted");
            return ScriptedDriver::usual().DornLineAlert(record);
        };
    }

    // A job whose driver call behaves so, aborted as soon as it stands there.
    void abort_a_job(const Handler& step) {
        new_chapter();
        held.close();
        driver.on.*GetParam().handler = step;
        EXPECT_EQ(command(CommandBlock::fax(GetParam().job, {"HEADER", "ID", 1})), 0u);
        EXPECT_TRUE(wait_until([this] { return held.holds_somebody(0) || driver.is_blocked(4, 0); }));
        EXPECT_FALSE(line_is_locked());
        EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
        held.open();
        fax_thread_ends();
    }

    void expect_one_alert_and_one_end(uint32_t status) {
        EXPECT_TRUE(reads(all_of(DRIVER | NOTE).only({"DornLineAlert(<*>", "alerted <*>"}),
                          {"DornLineAlert(unit=14)", "alerted under the lock"}));
        EXPECT_TRUE(reads(events().only({"LINE_CALLDEVSPECIFIC(<*>, 0x1, <*>"}),
                          {text("LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x%X, 0x0)", status)}));
        EXPECT_EQ(shared_record(0).status, status);
        EXPECT_EQ(driver.channel(4).handler, nullptr);
        EXPECT_FALSE(line_is_locked());
    }

    Gate held;
};

INSTANTIATE_TEST_SUITE_P(At, AbortRace, testing::ValuesIn(kSteps), [](const auto& step) {
    return std::string(step.param.function) + (step.param.job == FAXSEND ? "OfATransmission" : "OfAReception");
});

}  // namespace

TEST_P(AbortRace, BeforeTheCallEndsTheJobOnceWithOneAlert) {
    abort_a_job([this](DornLine* line, DornFaxRecord* record) {
        held.pass();
        return (ScriptedDriver::usual().*GetParam().handler)(line, record);
    });
    expect_one_alert_and_one_end(GetParam().before);
}

TEST_P(AbortRace, InTheCallEndsTheJobOnceWithOneAlert) {
    abort_a_job([](DornLine* line, DornFaxRecord* record) {
        EXPECT_TRUE(driver.block(line));
        driver.channel_of(line).fax_session = false;
        record->status = KX_STATUS_ALERT;
        return -1;
    });
    expect_one_alert_and_one_end(GetParam().during);
}

TEST_P(AbortRace, AfterTheCallEndsTheJobOnceWithOneAlert) {
    abort_a_job([this](DornLine* line, DornFaxRecord* record) {
        const int result = (ScriptedDriver::usual().*GetParam().handler)(line, record);
        held.pass();
        return result;
    });
    expect_one_alert_and_one_end(GetParam().after);
}
