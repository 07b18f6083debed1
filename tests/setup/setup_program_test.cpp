// qorvsetup.exe itself, on this machine: what an administrator types and reads, from installation to removal.
#include <gtest/gtest.h>
#include <windows.h>

#include "machine.h"
#include "run_program.h"
#include "text.h"

namespace {

ProgramRun qorvsetup(const std::string& arguments) {
    return run_program(QORVSETUP, arguments);
}

bool says(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

class SetupProgram : public testing::Test {
  protected:
    // The host service of other tests may be there.
    void SetUp() override { EXPECT_EQ(0u, run_program(CALDER, "remove").exit_status); }
    void TearDown() override { EXPECT_EQ(0u, qorvsetup("remove").exit_status); }
};

TEST_F(SetupProgram, InstallsATrialThatWorksAndRemovesItAgain) {
    const ProgramRun installed = qorvsetup("install --software-board --fax-stand-in");
    EXPECT_EQ(0u, installed.exit_status) << installed.errors;
    EXPECT_TRUE(says(installed.output, "wrote " + utf8(in_system_folder(L"qorvtsp.tsp"))));
    EXPECT_TRUE(says(installed.output, "started the service calder"));

    const ProgramRun again = qorvsetup("install --software-board --fax-stand-in");
    EXPECT_EQ(0u, again.exit_status) << again.errors;
    EXPECT_TRUE(says(again.output, "everything is in place already"));

    const ProgramRun lines =
        run_program(FAXHOST, "lines --provider \"" + utf8(in_system_folder(L"qorvtsp.tsp")) + "\"");
    EXPECT_EQ(0u, lines.exit_status) << lines.errors;
    EXPECT_TRUE(says(lines.output, "Halvorsund Line #4"));

    const ProgramRun removed = qorvsetup("remove");
    EXPECT_EQ(0u, removed.exit_status) << removed.errors;
    EXPECT_TRUE(says(removed.output, "removed the service calder"));
    for (const wchar_t* name : {L"qorvtsp.tsp", L"calddlld.dll", L"qorvconf.cpl", L"softboard.ini"}) {
        EXPECT_FALSE(is_file(in_system_folder(name))) << utf8(name);
    }
    EXPECT_FALSE(is_folder(programs_folder()));
    EXPECT_FALSE(service_exists(L"calder"));
    EXPECT_FALSE(service_exists(L"Fax"));
}

TEST_F(SetupProgram, WithoutTelephonyInstallsNothingForABoard) {
    const ProgramRun run = qorvsetup("install");
    EXPECT_EQ(3u, run.exit_status);
    EXPECT_EQ(0u, run.errors.find("qorvsetup: this machine has no telephony service"));
    EXPECT_TRUE(says(run.errors, "everything was undone"));
    EXPECT_FALSE(is_file(in_system_folder(L"qorvtsp.tsp")));
}

TEST_F(SetupProgram, TellsItsVersionAndItsHelp) {
    EXPECT_EQ(0u, qorvsetup("--version").output.find("qorvsetup "));
    EXPECT_TRUE(says(qorvsetup("--help").output, "qorvsetup check"));
    const std::string help = qorvsetup("install --help").output;
    EXPECT_TRUE(says(help, "--software-board"));
    EXPECT_FALSE(says(help, "qorvsetup check"));
}

TEST_F(SetupProgram, RefusesWhatItDoesNotKnow) {
    for (const char* arguments :
         {"", "chek", "install --board", "install --json", "remove now", "check --software-board"}) {
        const ProgramRun run = qorvsetup(arguments);
        EXPECT_EQ(2u, run.exit_status) << arguments;
        EXPECT_TRUE(says(run.errors, "; see qorvsetup --help")) << arguments;
    }
}
