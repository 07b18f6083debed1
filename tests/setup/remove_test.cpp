// What a removal takes away, and what it leaves.
#include <tapi.h>

#include "setup_fixture.h"
#include "text.h"

using Remove = SetupFixture;

TEST_F(Remove, LeavesTheMachineAsItWas) {
    const Lines before = machine.snapshot();
    install();
    EXPECT_NE(before, machine.snapshot());
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Remove, LeavesTheMachineAsItWasAlsoAfterAnUpgrade) {
    const Lines before = machine.snapshot();
    install(false, false);
    make_package(2);
    install();
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Remove, LeavesTheMachineAsItWasAlsoAfterAnUpgradeFromReadOnlyMedia) {
    const Lines before = machine.snapshot();
    const std::wstring source = machine.path("package\\qorvtsp.tsp");
    for (int version : {1, 2}) {
        make_package(version);
        SetFileAttributesW(source.c_str(), FILE_ATTRIBUTE_READONLY);
        EXPECT_EQ(SETUP_GOOD, install(false, false).status);
        EXPECT_FALSE(contains(machine.snapshot(), ".old"));
        SetFileAttributesW(source.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Remove, TakesTheProviderOffTelephonyBeforeItsFilesGo) {
    install();
    const Lines lines = remove().lines;
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("removed qorvtsp.tsp from telephony", lines.front());
    EXPECT_EQ("removed " + utf8(machine.path("system\\qorvtsp.tsp")), lines.back());
}

TEST_F(Remove, LeavesOtherProvidersWithTelephony) {
    machine.providers = {L"unimdm.tsp"};
    install();
    remove();
    EXPECT_EQ(std::vector<std::wstring>{L"unimdm.tsp"}, machine.providers);
}

TEST_F(Remove, PutsValuesBackThatWereThereBefore) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters", L"kxcall",
                    REG_SZ, L"C:\\gone.cfg", 24);
    const Lines before = machine.snapshot();
    install();
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Remove, LeavesAValueThatAnAdministratorHasSetSince) {
    install();
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters", L"kxcall",
                    REG_SZ, L"C:\\own.cfg", 22);
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
    EXPECT_TRUE(contains(machine.snapshot(), "kxcall: type 1 C:\\own.cfg"));
    EXPECT_TRUE(contains(outcome.lines, "Parameters stays: it is not what was installed any more"));
}

TEST_F(Remove, LeavesAValueThatAnAdministratorHasTakenAway) {
    install();
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters", L"kxcall");
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_FALSE(contains(machine.snapshot(), "caldservice"));
}

TEST_F(Remove, LeavesConfigurationThatWasEdited) {
    install();
    machine.write("system\\softboard.ini", "edited");
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_GOOD, outcome.status);
    EXPECT_EQ("edited", machine.content("system\\softboard.ini"));
    EXPECT_TRUE(contains(outcome.lines, "softboard.ini stays: it is not what was installed any more"));
}

TEST_F(Remove, LeavesADriverLibraryThatABoardsMakerHasPutOverOurs) {
    install();
    machine.write("system\\calddlld.dll", "calddlld|Board driver|7");
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_EQ("calddlld|Board driver|7", machine.content("system\\calddlld.dll"));
}

TEST_F(Remove, LeavesAFolderInWhichOthersHaveFiles) {
    install();
    machine.write("programs\\Halvorsund Telephony Service Provider\\notes.txt", "notes");
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_GOOD, outcome.status);
    EXPECT_EQ("notes", machine.content("programs\\Halvorsund Telephony Service Provider\\notes.txt"));
    EXPECT_TRUE(contains(outcome.lines, "Halvorsund Telephony Service Provider stays: it is not empty"));
}

TEST_F(Remove, LeavesLogsAndSaysSo) {
    install();
    CreateDirectoryW(machine.path("data\\Calder").c_str(), nullptr);
    machine.write("data\\Calder\\calder.log", "a fax");
    const SetupOutcome outcome = remove();
    EXPECT_EQ("a fax", machine.content("data\\Calder\\calder.log"));
    EXPECT_TRUE(contains(outcome.lines, "the logs in " + utf8(machine.path("data\\Calder")) + " stay"));
}

TEST_F(Remove, TellsAFileInUseAndTakesItTheNextTime) {
    const Lines before = machine.snapshot();
    install();
    {
        const OwnedHandle in_use =
            owned_file(CreateFileW(machine.path("system\\calddlld.dll").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        const SetupOutcome outcome = remove();
        EXPECT_EQ(SETUP_FAILED, outcome.status);
        EXPECT_EQ(0u, outcome.error.find(utf8(machine.path("system\\calddlld.dll")) + " is in use"));
        EXPECT_EQ("", machine.content("system\\qorvtsp.tsp"));
    }
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Remove, TellsWhenTelephonyDoesNotLetTheProviderGo) {
    install();
    machine.remove_result = static_cast<LONG>(LINEERR_OPERATIONFAILED);
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_EQ("removing qorvtsp.tsp from telephony: LINEERR 0x80000048; then: qorvsetup remove", outcome.error);
    machine.remove_result = 0;
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_TRUE(machine.providers.empty());
}

TEST_F(Remove, WithoutAnInstallationDoesNothing) {
    const Lines before = machine.snapshot();
    const SetupOutcome outcome = remove();
    EXPECT_EQ(SETUP_GOOD, outcome.status);
    EXPECT_EQ(Lines{"nothing is installed by this program"}, outcome.lines);
    EXPECT_TRUE(same(before, machine.snapshot()));
}
