// The close of a line whose fax job stands in a page. Nobody waits for the job; each test says who comes first.
#include "fax_fixture.h"
#include "holding.h"

using namespace harness;

namespace {

const Lines kJobEnded = {"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x7, 0x0)",
                         "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x2, 0x20)",
                         "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                         "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)"};
class FaxCloseRace : public OutgoingFaxFixture, public testing::WithParamInterface<Command> {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        auto& page = GetParam() == FAXSEND ? driver.on.DornFaxSendPageTiff : driver.on.DornFaxRcvPageTiff;
        page = [this](DornLine* board_line, DornFaxRecord* record) {
            if (driver.block(board_line)) record->status = KX_STATUS_ALERT;
            held.pass();
            return -1;
        };
        EXPECT_EQ(command(CommandBlock::fax(GetParam(), {})), 0u);
        EXPECT_TRUE(driver.is_blocked(4));
        objects = windows.objects.open.size();
        new_chapter();
    }
    static void job_ends() { EXPECT_TRUE(comes("[9] <*>: Thread_<*>_Fax")); }
    void expect_everything_given_back(Call& closing, const Lines& events_in_order) {
        EXPECT_EQ(closing.result(), 0);
        note("closed");
        EXPECT_TRUE(windows.all_threads_end(kPatience));
        EXPECT_TRUE(reads(all_of(EVENT | NOTE), joined({events_in_order, {"closed"}})));
        EXPECT_TRUE(reads(driver_calls().on_thread(closing.thread()).only({"DornTiffClose(<*>", "DornLineReset(<*>"}),
                          {"DornTiffClose(TIFF1)", "DornLineReset(CHAN4, <*>"}));
        EXPECT_TRUE(reads_in_order(driver_calls(), {"DornTiffClose(TIFF1)", "DornLineAlert(unit=14)",
                                                    "DornLineReset(CHAN4, <*>", "DornSessionDetach(CHAN4)"}));
        EXPECT_EQ(driver.attached(), 0u);
        EXPECT_EQ(windows.objects.open.size(), objects - 4);
    }

    Gate held;
    size_t objects = 0;
};

INSTANTIATE_TEST_SUITE_P(InAPage, FaxCloseRace, testing::Values(FAXSEND, FAXRECEIVE), [](const auto& job) {
    return std::string(job.param == FAXSEND ? "OfATransmission" : "OfAReception");
});

}  // namespace

TEST_P(FaxCloseRace, LetsAJobThatIsFasterReportItsAbortBeforeTheCallIsIdle) {
    HoldAfterTheAlert after_the_alert("MUTEX1");
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(after_the_alert.holds_somebody());
    job_ends();
    EXPECT_TRUE(reads(events(), kJobEnded));
    after_the_alert.open();
    expect_everything_given_back(closing, joined({kJobEnded, kCallIsOver}));
    EXPECT_EQ(driver.channel(4).handler, nullptr);
}

TEST_P(FaxCloseRace, LetsAJobThatIsSlowerReportItsAbortOfACallThatIsIdle) {
    const DornIncomingCmdFunc handler = driver.channel(4).handler;
    EXPECT_NE(handler, nullptr);
    held.close();
    driver.gate("DornLineReset").close();
    windows.objects.longest_wait = 20;
    Call closing([this] { return close_line(0); });
    EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());
    EXPECT_TRUE(held.holds_somebody());
    EXPECT_FALSE(is_held("MUTEX1"));
    EXPECT_TRUE(reads(events(), kCallIsOver));
    held.open();
    job_ends();
    driver.gate("DornLineReset").open();
    expect_everything_given_back(closing, joined({kCallIsOver, kJobEnded}));
    // The reset puts back the report handler that it found, although the job has taken it away meanwhile.
    EXPECT_EQ(driver.channel(4).handler, handler);
}
