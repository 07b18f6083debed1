// faxhost.exe and calder.exe as their users see them where no provider is needed: refusals, help, exit statuses.
#include <gtest/gtest.h>

#include "fax_pages.h"
#include "run_program.h"
#include "temporary_folder.h"

// One line on standard error and nothing else.
static void expect_one_line(const ProgramRun& run, unsigned long exit_status, const std::string& text) {
    EXPECT_EQ(exit_status, run.exit_status);
    EXPECT_NE(std::string::npos, run.errors.find(text)) << run.errors;
    EXPECT_EQ(run.errors.size() - 1, run.errors.find('\n')) << run.errors;
    EXPECT_EQ("", run.output);
}

TEST(CommandLine, RefusesWrongArguments) {
    expect_one_line(run_program(FAXHOST, ""), 2, "no command given");
    expect_one_line(run_program(FAXHOST, "send --line x"), 2, "\"x\" is no value for --line");
    expect_one_line(run_program(CALDER, "install --everything"), 2, "what is --everything?");
    expect_one_line(run_program(CALDER, ""), 2, "no command given");
}

TEST(CommandLine, PrintsItsHelp) {
    EXPECT_EQ(0u, run_program(FAXHOST, "--help").exit_status);
    EXPECT_NE(std::string::npos, run_program(FAXHOST, "loopback --help").output.find("--repeat N"));
    EXPECT_NE(std::string::npos, run_program(CALDER, "--help").output.find("--fax-stand-in"));
}

// A provider that does not exist would be noticed next, so these come before anything is loaded.
TEST(CommandLine, RefusesFilesBeforeAnythingIsLoaded) {
    const TemporaryFolder folder;
    const std::string none = " --provider " + folder.file("none.tsp");
    const std::string good = folder.file("good.tif");
    const std::string empty = folder.file("empty.tif");
    write_fax(good, drawn_pages(1));
    write_text(empty, "");
    expect_one_line(run_program(FAXHOST, "send --line 0 --to 1 " + folder.file("no.tif") + none), 3, "APIERR_FILEIO");
    expect_one_line(run_program(FAXHOST, "send --line 0 --to 1 " + empty + none), 3, "APIERR_FILEFORMAT");
    expect_one_line(run_program(FAXHOST, "loopback " + good + " " + folder.file("no\\a.tif") + none), 3,
                    "APIERR_FILEIO");
    expect_one_line(run_program(FAXHOST, "receive --line 0 --dir " + folder.file("no") + none), 3, "APIERR_FILEIO");
    expect_one_line(run_program(FAXHOST, "send --line 0 --to 1 " + good + none), 4, "LINEERR_NODRIVER");
}

TEST(CommandLine, TellsFailuresToProgramsAsWell) {
    const ProgramRun run = run_program(FAXHOST, "lines --json --provider Z:\\none.tsp");
    EXPECT_EQ(4u, run.exit_status);
    EXPECT_EQ(0u, run.output.find("{\"type\": \"error\", \"name\": \"LINEERR_NODRIVER\"")) << run.output;
}

TEST(CommandLine, RefusesAModuleThatIsNoProvider) {
    expect_one_line(run_program(FAXHOST, "lines --provider C:\\windows\\system32\\kernel32.dll"), 4,
                    "has no TSPI_lineNegotiateTSPIVersion");
}
