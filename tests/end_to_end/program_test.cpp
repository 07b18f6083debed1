// The programs on the whole road: exit statuses, reports, and what a run leaves behind.
#include <windows.h>

#include "end_to_end.h"
#include "run_program.h"
#include "text.h"

class Program : public EndToEnd {
  protected:
    void SetUp() override { SetEnvironmentVariableW(L"QORV_SOFTBOARD", wide(folder.file("softboard.ini")).c_str()); }

    void given_ini(const std::string& ini) {
        write_text(folder.file("softboard.ini"), ini + "\n[log]\nfile = " + folder.file("calddlld.log") + "\n");
    }

    ProgramRun faxhost(const std::string& arguments) { return run_program(FAXHOST, arguments); }

    static bool says(const std::string& output, const std::string& text) {
        return output.find(text) != std::string::npos;
    }
};

TEST_F(Program, ListsTheLines) {
    given_ini("[module.2]\nchannels = 2\nfirst_channel = 20\nfirst_unit = 7\n");
    const ProgramRun run = faxhost("lines");
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    EXPECT_TRUE(says(run.output, "     0  Halvorsund Line #1      0x00010014       20      2400  in service\n"))
        << run.output;
    EXPECT_TRUE(says(run.output, "     1  Halvorsund Line #2      0x00010015       21      2400  in service\n"))
        << run.output;
}

TEST_F(Program, LoopsAFaxBackAndReportsIt) {
    given_ini("");
    const ProgramRun run =
        faxhost("loopback " + three_pages() + " " + folder.file("out.tif") + " --events --header ACME");
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    EXPECT_TRUE(says(run.output, "pages     3 sent, 3 received")) << run.output;
    EXPECT_TRUE(says(run.output, "stamp     0536870920 FS_COMPLETED"));
    EXPECT_TRUE(says(run.output, "identical: page 1, 2, 3"));
    EXPECT_TRUE(says(run.output, "LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE, LINEMEDIAMODE_G3FAX"));
    EXPECT_EQ("", run.errors);
}

TEST_F(Program, LoopsBackManyTimesAndLeavesNothingBehind) {
    given_ini("");
    const ProgramRun run =
        faxhost("loopback " + three_pages() + " " + folder.file("out.tif") + " --repeat 3 --completion event --json");
    EXPECT_EQ(0u, run.exit_status) << run.errors << run.output;
    EXPECT_TRUE(says(run.output, "{\"type\": \"counts\"")) << run.output;
    EXPECT_FALSE(says(run.output, "\"remote_id\": \"\"")) << run.output;
}

TEST_F(Program, ShowsTheProvidersTrace) {
    given_ini("");
    const ProgramRun run = faxhost("lines --trace 14,15");
    EXPECT_TRUE(says(run.output, "TSPI_providerInit(0) Good")) << run.output;
    EXPECT_FALSE(says(run.output, "TSPI_lineOpen"));
    EXPECT_FALSE(says(run.output, "Check if calder is running"));
}

TEST_F(Program, ReceivesIntoAFolder) {
    given_ini("[station.far]\nnumber = 200\ncalls = 101\nfile = " + three_pages() + "\n");
    const TemporaryFolder inbox;
    const ProgramRun run = faxhost("receive --line 1 --dir " + inbox.path);
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    ASSERT_EQ(1u, inbox.files().size());
    expect_pages(drawn_pages(3), inbox.files()[0]);
}

struct Refusal {
    const char* arguments;
    unsigned long exit_status;
    const char* error;
};

TEST_F(Program, EndsInOneLineWhateverGoesWrong) {
    given_ini("[station.far]\nnumber = 200\nbusy = yes\n");
    constexpr Refusal refusals[] = {
        {"send --line 9 --to 101 ", 4, "faxhost: LINEERR_BADDEVICEID: there is no line 9"},
        {"send --line 0 --to 999 ", 1, "faxhost: FS_BAD_ADDRESS: 999: nobody has this number"},
        {"send --line 0 --to 200 ", 1, "faxhost: FS_BUSY: 200: is busy"},
    };
    for (const Refusal& refusal : refusals) {
        const ProgramRun run = faxhost(refusal.arguments + three_pages());
        EXPECT_EQ(refusal.exit_status, run.exit_status);
        EXPECT_EQ(0u, run.errors.find(refusal.error)) << run.errors;
        EXPECT_EQ(run.errors.size() - 1, run.errors.find('\n')) << run.errors;
    }
}

TEST_F(Program, IsKeptOutByAnotherHost) {
    given_board("");
    const ProgramRun run = faxhost("lines");
    EXPECT_EQ(4u, run.exit_status);
    EXPECT_EQ(0u, run.errors.find("faxhost: LINEERR_INUSE: another host is using the provider")) << run.errors;
}
