// Faxes from a line of the provider to fax machines of all kinds.
#include "end_to_end.h"
#include "text.h"

class Sending : public EndToEnd {
  protected:
    void TearDown() override {
        line.reset();
        EndToEnd::TearDown();
    }

    // A fax machine "far" with number 200 that stores what it gets.
    void given_machine(const std::string& traits, const std::string& pace = "fast") {
        given_board("[board]\npace = " + pace +
                    "\n[station.far]\nnumber = 200\nident = FAR END\nfolder = " + folder.path + "\n" + traits);
        line = open_line(0);
    }

    Fax send_three_pages() { return send(*line, "200", three_pages()); }

    std::unique_ptr<Line> line;
};

struct MachineAndRate {
    const char* name;
    const char* traits;
    DWORD dwRate;
};

void PrintTo(const MachineAndRate& machine, std::ostream* out) {
    *out << machine.name;
}

class SendingTo : public Sending, public testing::WithParamInterface<MachineAndRate> {};

TEST_P(SendingTo, BringsThreePagesThereAsTheyAre) {
    given_machine(GetParam().traits);
    const Fax fax = send_three_pages();
    EXPECT_FALSE(fax.failure) << failure_line(fax.failure);
    EXPECT_EQ("KX_STATUS_OK", kx_result_text(fax.result.status, fax.result.line_status));
    EXPECT_EQ(3u, fax.result.progress.pages);
    EXPECT_EQ("FAR END", fax.result.progress.remote_id);
    EXPECT_EQ(GetParam().dwRate, fax.result.progress.dwRate);
    expect_pages(drawn_pages(3), file_of_station("far"));
}

INSTANTIATE_TEST_SUITE_P(Machines, SendingTo,
                         testing::Values(MachineAndRate{"Ecm14400", "", 14400},
                                         MachineAndRate{"Ecm9600", "max_rate = 9600\n", 9600},
                                         MachineAndRate{"Ecm2400", "max_rate = 2400\n", 2400},
                                         MachineAndRate{"NoEcm14400", "ecm = no\n", 14400},
                                         MachineAndRate{"NoEcm9600", "ecm = no\nmax_rate = 9600\n", 9600},
                                         MachineAndRate{"NoEcm2400", "ecm = no\nmax_rate = 2400\n", 2400}),
                         [](const auto& info) { return info.param.name; });

TEST_F(Sending, TellsOfEveryPageOnce) {
    given_machine("");
    const Fax fax = send_three_pages();
    ASSERT_FALSE(fax.told_pages.empty());
    EXPECT_EQ(3u, fax.told_pages.back());
    for (size_t i = 1; i < fax.told_pages.size(); ++i) EXPECT_GE(fax.told_pages[i], fax.told_pages[i - 1]);
}

TEST_F(Sending, IsCompletedByNamedEventsAsWell) {
    completion = Completion::event;
    given_machine("");
    const Fax fax = send_three_pages();
    EXPECT_FALSE(fax.failure) << failure_line(fax.failure);
    EXPECT_EQ(3u, fax.result.progress.pages);
}

TEST_F(Sending, DrawsAHeaderLineOverTheFirstRowsOnly) {
    header = "ACME";
    given_machine("");
    EXPECT_EQ(0u, send_three_pages().result.status);
    std::vector<FaxPage> received;
    ASSERT_FALSE(fax_file_read(file_of_station("far"), received));
    for (const PageComparison& page : fax_pages_compare(drawn_pages(3), received, true)) EXPECT_TRUE(page.identical);
    for (const PageComparison& page : fax_pages_compare(drawn_pages(3), received, false)) EXPECT_FALSE(page.identical);
}

TEST_F(Sending, TwiceOnOneLineNeedsNoNewOpening) {
    given_machine("");
    EXPECT_EQ(3u, send_three_pages().result.progress.pages);
    EXPECT_EQ(3u, send_three_pages().result.progress.pages);
}

TEST_F(Sending, ToAMachineThatHangsUpDuringPageTwoEndsWithAHangup) {
    given_machine("hangup_page = 2\n");
    const Fax fax = send_three_pages();
    EXPECT_FALSE(fax.failure) << failure_line(fax.failure);
    EXPECT_EQ("KX_STATUS_ERROR_HANGUP", kx_result_text(fax.result.status, 0));
    EXPECT_EQ(1u, fax.result.progress.pages);
}

TEST_F(Sending, ToAMachineThatDoesNotTrainFails) {
    given_machine("trains = no\n");
    const Fax fax = send_three_pages();
    EXPECT_FALSE(fax.failure) << failure_line(fax.failure);
    EXPECT_NE(0u, fax.result.status);
    EXPECT_EQ(0u, fax.result.progress.pages);
}

TEST_F(Sending, IsAbortedInTheMiddleOfPageTwo) {
    given_machine("", "40");
    write_fax(folder.file("long.tif"), {drawn_page(1, 2200), drawn_page(2, 2200), drawn_page(3, 2200)});
    on_page = [this](uint32_t pages) {
        if (pages == 1) SetEvent(stop.get());
    };
    const Fax fax = send(*line, "200", folder.file("long.tif"));
    EXPECT_FALSE(fax.failure) << failure_line(fax.failure);
    EXPECT_EQ("KX_STATUS_ALERT", kx_result_text(fax.result.status, 0));
    EXPECT_EQ(1u, fax.result.progress.pages);
}
