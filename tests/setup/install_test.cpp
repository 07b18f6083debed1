// What an installation puts on a machine, what it leaves alone, and what it refuses.
#include <tapi.h>

#include "setup_fixture.h"
#include "text.h"

using Install = SetupFixture;

namespace {

constexpr char EVENT_SOURCE[] =
    "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Halvorsund Telephony Service Provider";
constexpr char PARAMETERS[] = "SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters";
constexpr char CALDER[] = "programs\\Halvorsund Telephony Service Provider\\calder.exe";
constexpr char CALL_CONFIGURATION[] = "programs\\Halvorsund Telephony Service Provider\\kxcall.cfg";

struct Value {
    DWORD type = REG_NONE;
    std::wstring text;  // of a REG_DWORD its number
};

Value machine_value(const std::string& key, const wchar_t* name) {
    Value value;
    BYTE data[1024] = {};
    DWORD size = sizeof(data) - sizeof(wchar_t);
    HKEY raw = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide(key).c_str(), 0, KEY_READ, &raw) != 0) return value;
    const OwnedKey opened(raw);
    if (RegQueryValueExW(raw, name, nullptr, &value.type, data, &size) != 0) return value;
    value.text =
        value.type == REG_DWORD ? std::to_wstring(*reinterpret_cast<DWORD*>(data)) : reinterpret_cast<wchar_t*>(data);
    return value;
}

void set_machine_value(const std::string& key, const wchar_t* name, const std::wstring& text) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, wide(key).c_str(), name, REG_SZ, text.c_str(),
                    static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

}  // namespace

TEST_F(Install, CopiesTheProviderAndNothingElseByDefault) {
    EXPECT_EQ(SETUP_GOOD, install(false, false).status);
    EXPECT_EQ("qorvtsp|Provider|1", machine.content("system\\qorvtsp.tsp"));
    EXPECT_FALSE(contains(machine.snapshot(), "calddlld.dll"));
    EXPECT_TRUE(machine.services.empty());
}

TEST_F(Install, RegistersTheEventSourceWithItsMessageFile) {
    install(false, false);
    for (const wchar_t* name : {L"EventMessageFile", L"CategoryMessageFile"}) {
        EXPECT_EQ(DWORD{REG_EXPAND_SZ}, machine_value(EVENT_SOURCE, name).type);
        EXPECT_EQ(L"%SystemRoot%\\System32\\qorvtsp.tsp", machine_value(EVENT_SOURCE, name).text);
    }
    EXPECT_EQ(L"5", machine_value(EVENT_SOURCE, L"CategoryCount").text);
    EXPECT_EQ(L"7", machine_value(EVENT_SOURCE, L"TypesSupported").text);
}

TEST_F(Install, AddsTheProviderToTelephonyByItsName) {
    install(false, false);
    EXPECT_EQ(std::vector<std::wstring>{L"qorvtsp.tsp"}, machine.providers);
}

TEST_F(Install, AddsTheProviderToTelephonyLastWhenTheHostServiceRuns) {
    install();
    EXPECT_TRUE(contains(machine.at_adding, "file \\system\\qorvtsp.tsp"));
    EXPECT_TRUE(contains(machine.at_adding, "file \\system\\calddlld.dll"));
    EXPECT_TRUE(contains(machine.at_adding, "service Fax"));
    EXPECT_EQ(SERVICE_RUNNING, static_cast<int>(machine.services[L"calder"].state));
}

TEST_F(Install, PutsTheSoftwareBoardBesideTheProvider) {
    install();
    EXPECT_EQ("calddlld|Software board|1", machine.content("system\\calddlld.dll"));
    EXPECT_EQ("qorvconf|Dialog|1", machine.content("system\\qorvconf.cpl"));
    EXPECT_NE(std::string::npos, machine.content("system\\softboard.ini").find("channels=4"));
}

TEST_F(Install, LetsTheBoardLogWhereServicesMayWrite) {
    install();
    EXPECT_NE(
        std::string::npos,
        machine.content("system\\softboard.ini").find("file=" + utf8(machine.path("data")) + "\\Calder\\calddlld.log"));
}

TEST_F(Install, NamesACallConfigurationFile) {
    install();
    EXPECT_EQ(DWORD{REG_SZ}, machine_value(PARAMETERS, L"kxcall").type);
    EXPECT_EQ(machine.path(CALL_CONFIGURATION), machine_value(PARAMETERS, L"kxcall").text);
    EXPECT_NE("", machine.content(CALL_CONFIGURATION));
}

TEST_F(Install, LeavesACallConfigurationThatAnAdministratorHasNamed) {
    machine.write("data\\own.cfg", "own");
    set_machine_value(PARAMETERS, L"kxcall", machine.path("data\\own.cfg"));
    install();
    EXPECT_EQ(machine.path("data\\own.cfg"), machine_value(PARAMETERS, L"kxcall").text);
    EXPECT_EQ("", machine.content(CALL_CONFIGURATION));
}

TEST_F(Install, NamesACallConfigurationWhenTheNamedOneIsGone) {
    set_machine_value(PARAMETERS, L"kxcall", machine.path("data\\gone.cfg"));
    install();
    EXPECT_EQ(machine.path(CALL_CONFIGURATION), machine_value(PARAMETERS, L"kxcall").text);
}

TEST_F(Install, RegistersTheHostServiceWithAnAccountOfItsOwnAndRestartsIt) {
    install();
    const PretendedService& calder = machine.services[L"calder"];
    EXPECT_EQ(L"\"" + machine.path(CALDER) + L"\" service", calder.command);
    EXPECT_EQ(L"NT SERVICE\\calder", calder.account);
    EXPECT_EQ(DWORD{SERVICE_AUTO_START}, calder.start_type);
    EXPECT_TRUE(calder.restarts_on_failure);
    EXPECT_EQ("calder|Host service|1", machine.content(CALDER));
}

TEST_F(Install, RegistersADisabledStandInForTheFaxServiceOnlyWhenAsked) {
    install(true, false);
    EXPECT_EQ(0u, machine.services.count(L"Fax"));
    install(true, true);
    EXPECT_EQ(L"\"" + machine.path(CALDER) + L"\" fax-stand-in", machine.services[L"Fax"].command);
    EXPECT_EQ(DWORD{SERVICE_DISABLED}, machine.services[L"Fax"].start_type);
}

TEST_F(Install, LeavesServicesOfOthersAsTheyAre) {
    machine.services[L"calder"] = {L"C:\\maker\\calder.exe", L"LocalSystem", SERVICE_AUTO_START, SERVICE_RUNNING, true};
    machine.services[L"Fax"] = {L"C:\\windows\\fxssvc.exe", L"NetworkService", SERVICE_AUTO_START, SERVICE_STOPPED,
                                true};
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_GOOD, outcome.status);
    EXPECT_TRUE(contains(outcome.lines, "there is a service calder; it stays as it is"));
    EXPECT_EQ(L"C:\\maker\\calder.exe", machine.services[L"calder"].command);
    EXPECT_EQ(SETUP_GOOD, remove().status);
    EXPECT_EQ(2u, machine.services.size());
}

TEST_F(Install, ASecondTimeChangesNothing) {
    install();
    const Lines installed = machine.snapshot();
    let_fail(1, 1000);
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error << machine.failed_call;
    EXPECT_EQ(Lines{"everything is in place already"}, outcome.lines);
    EXPECT_TRUE(same(installed, machine.snapshot()));
}

TEST_F(Install, OverAnOlderVersionReplacesWhatDiffers) {
    install();
    make_package(2);
    const SetupOutcome outcome = install(false, false);
    EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
    EXPECT_EQ("qorvtsp|Provider|2", machine.content("system\\qorvtsp.tsp"));
    EXPECT_EQ("calder|Host service|2", machine.content(CALDER));
    EXPECT_FALSE(contains(machine.snapshot(), ".old"));
    EXPECT_EQ(1u, machine.providers.size());
}

TEST_F(Install, OverAnOlderVersionTakesTheSoftwareBoardAlong) {
    install();
    make_package(2);
    install(false, false);
    EXPECT_EQ("calddlld|Software board|2", machine.content("system\\calddlld.dll"));
}

TEST_F(Install, OverAnOlderVersionRestartsTheHostServiceWithItsNewProgram) {
    install();
    make_package(2);
    const SetupOutcome outcome = install();
    EXPECT_TRUE(contains(outcome.lines, "started the service calder"));
    EXPECT_EQ(DWORD{SERVICE_RUNNING}, machine.services[L"calder"].state);
}

TEST_F(Install, OverAnOlderVersionKeepsWhatAnAdministratorHasEdited) {
    install();
    machine.write("system\\softboard.ini", "[board]\r\npace=realtime\r\n");
    make_package(2);
    install();
    EXPECT_EQ("[board]\r\npace=realtime\r\n", machine.content("system\\softboard.ini"));
}

TEST_F(Install, OverANewerVersionIsRefused) {
    make_package(2);
    install();
    make_package(1);
    const Lines installed = machine.snapshot();
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_EQ("version 2.0.0.0 is installed, this is 1.0.0.0: remove the newer one first if you mean it",
              outcome.error);
    EXPECT_TRUE(same(installed, machine.snapshot()));
}

TEST_F(Install, OverAnOlderVersionInUseTellsThatItIsUsedUntilRestarted) {
    install(false, false);
    make_package(2);
    machine.failing_name = "DeleteFileW";
    const SetupOutcome outcome = install(false, false);
    EXPECT_EQ(SETUP_GOOD, outcome.status);
    EXPECT_TRUE(contains(outcome.lines, "qorvtsp.tsp is still in use: what uses it goes on with it until restarted"));
    EXPECT_EQ("qorvtsp|Provider|2", machine.content("system\\qorvtsp.tsp"));
    EXPECT_EQ("qorvtsp|Provider|1", machine.content("system\\qorvtsp.tsp.old"));
}

TEST_F(Install, OverAnOlderVersionLeavesFilesAloneThatAreCalledLikeItsBackups) {
    install(false, false);
    make_package(2);
    machine.write("system\\qorvtsp.tsp.old", "somebody's");
    EXPECT_EQ(SETUP_GOOD, install(false, false).status);
    EXPECT_EQ("somebody's", machine.content("system\\qorvtsp.tsp.old"));
    EXPECT_FALSE(contains(machine.snapshot(), ".old2"));
}

TEST_F(Install, OverAForeignDriverLibraryIsRefused) {
    machine.write("system\\calddlld.dll", "calddlld|Board driver|7");
    const Lines before = machine.snapshot();
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_NE(std::string::npos, outcome.error.find("is not the software board")) << outcome.error;
    EXPECT_TRUE(same(before, machine.snapshot()));
    EXPECT_EQ(SETUP_GOOD, install(false, false).status);
}

TEST_F(Install, FromAnIncompletePackageIsRefused) {
    DeleteFileW(machine.path("package\\qorvconf.cpl").c_str());
    const Lines before = machine.snapshot();
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_NE(std::string::npos, outcome.error.find("lacks qorvconf.cpl: unpack the whole package"));
    EXPECT_TRUE(same(before, machine.snapshot()));
    EXPECT_EQ(SETUP_GOOD, install(false, false).status);
}

TEST_F(Install, WithoutAnAdministratorsRightsTouchesNothing) {
    machine.administrator = false;
    let_fail(1, 1000);
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_NO_RIGHTS, outcome.status);
    EXPECT_NE(std::string::npos, outcome.error.find("Run as administrator"));
    EXPECT_EQ(0, machine.changes);
    EXPECT_EQ(SETUP_NO_RIGHTS, remove().status);
    EXPECT_EQ(0, machine.changes);
}

TEST_F(Install, ThatTelephonyRefusesIsUndone) {
    const Lines before = machine.snapshot();
    machine.add_result = static_cast<LONG>(LINEERR_OPERATIONFAILED);
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_EQ(
        "telephony did not take the provider: LINEERR 0x80000048; the application event log may tell why; everything "
        "was undone",
        outcome.error);
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Install, WhoseHostServiceDoesNotStartIsUndone) {
    const Lines before = machine.snapshot();
    machine.services_start = false;
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_EQ(0u, outcome.error.find("the service calder does not start"));
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Install, ForATrialGoesOnWithoutATelephonyService) {
    machine.has_telephony = false;
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_GOOD, outcome.status);
    EXPECT_TRUE(contains(outcome.lines, "no telephony service: only faxhost can use the provider"));
    EXPECT_EQ(SETUP_GOOD, remove().status);
}

TEST_F(Install, ForABoardNeedsATelephonyService) {
    machine.has_telephony = false;
    const Lines before = machine.snapshot();
    const SetupOutcome outcome = install(false, false);
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_EQ(0u, outcome.error.find("this machine has no telephony service"));
    EXPECT_TRUE(same(before, machine.snapshot()));
}

TEST_F(Install, AsksATelephonyServiceThatIsThereEvenIfItDoesNotAnswer) {
    machine.has_telephony = false;
    machine.services[L"TapiSrv"] = {L"svchost.exe", L"NetworkService", SERVICE_DEMAND_START, SERVICE_STOPPED, true};
    const SetupOutcome outcome = install();
    EXPECT_EQ(SETUP_FAILED, outcome.status);
    EXPECT_EQ(0u, outcome.error.find("asking telephony for its providers: LINEERR 0x80000048"));
}

TEST_F(Install, DoesNotAddAProviderThatTelephonyHas) {
    machine.providers = {L"unimdm.tsp", L"C:\\Windows\\System32\\QORVTSP.TSP"};
    EXPECT_EQ(SETUP_GOOD, install().status);
    EXPECT_EQ(2u, machine.providers.size());
}
