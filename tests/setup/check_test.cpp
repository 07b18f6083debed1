// What check tells of Windows' side of the provider: each thing in order, missing and wrong in turn.
#include <windows.h>
// sddl.h wants windows.h first.
#include <sddl.h>

#include "exit_status.h"
#include "fax_status.h"
#include "machine.h"
#include "machine_in_order.h"
#include "run_program.h"
#include "text.h"

using Check = MachineInOrder;

namespace {

SC_HANDLE WINAPI refuse_service(SC_HANDLE, const wchar_t*, DWORD) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

SC_HANDLE WINAPI fail_service(SC_HANDLE, const wchar_t*, DWORD) {
    SetLastError(ERROR_INVALID_NAME);
    return nullptr;
}

LSTATUS WINAPI refuse_key(HKEY, const wchar_t*, DWORD, REGSAM, HKEY*) {
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI fail_key(HKEY, const wchar_t*, DWORD, REGSAM, HKEY*) {
    return ERROR_BADKEY;
}

BOOL WINAPI say_paused(SC_HANDLE, SERVICE_STATUS* status) {
    status->dwCurrentState = SERVICE_PAUSED;
    return TRUE;
}

BOOL WINAPI say_starting(SC_HANDLE, SERVICE_STATUS* status) {
    status->dwCurrentState = SERVICE_START_PENDING;
    return TRUE;
}

}  // namespace

// ---- the whole ----------------------------------------------------------------------------------------------------

TEST_F(Check, FindsEverythingInOrder) {
    start_host_service();
    const std::vector<CheckResult> results = check_machine();
    EXPECT_EQ(
        "ok         provider: qorvtsp.tsp 1.0.0.0 is in C:\\windows\\system32\n"
        "ok         telephony: qorvtsp.tsp is TAPI's provider 3\n"
        "ok         host service: calder is running\n"
        "ok         fax service: Fax is installed\n"
        "ok         configuration key: HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters\n"
        "ok         configuration file: kxcall names " +
            configuration_path() +
            "\n"
            "ok         driver library: C:\\windows\\system32\\calddlld.dll, Software board, version 1.0.0.0\n"
            "ok         event source: registered, its texts are in qorvtsp.tsp\n"
            "ok         shared segment: HalvorsundMSFTSPSharedMemory can be read\n"
            "ok         panic file: C:\\temp\\QorvTspPanic.txt can be written\n"
            "ok         fax devices: line 0x00050000 2 rings\n"
            "ok         channels: 4 attach and reset",
        check_lines(results, false));
    EXPECT_EQ(SETUP_GOOD, check_status(results));
}

TEST_F(Check, LeavesTheCurrentFolderAlone) {
    wchar_t before[MAX_PATH] = L"";
    wchar_t after[MAX_PATH] = L"";
    GetCurrentDirectoryW(MAX_PATH, before);
    check_machine();
    GetCurrentDirectoryW(MAX_PATH, after);
    EXPECT_STREQ(before, after);
}

TEST_F(Check, IsTheProgramsAnswerInLines) {
    const ProgramRun run = run_program(QORVSETUP, "check");
    EXPECT_EQ(DWORD{SETUP_FAILED}, run.exit_status);
    EXPECT_NE(std::string::npos, run.output.find("wrong      host service: calder is stopped\n"
                                                 "           net start calder\n"))
        << run.output;
    EXPECT_EQ("", run.errors);
}

TEST_F(Check, IsTheProgramsAnswerInJson) {
    start_host_service();
    const ProgramRun run = run_program(QORVSETUP, "check --json");
    EXPECT_EQ(DWORD{SETUP_ATTENTION}, run.exit_status);
    EXPECT_EQ(0u, run.output.find(R"({"status": "attention", "checks": [{"name": "provider", "status": "ok", )"))
        << run.output;
    EXPECT_NE(std::string::npos, run.output.find(R"("text": "this machine has no telephony service; )"));
    EXPECT_EQ("", run.errors);
}

// ---- provider and telephony ---------------------------------------------------------------------------------------

TEST_F(Check, TellsThatTheProviderIsMissing) {
    drop_file(PROVIDER_FILE);
    EXPECT_EQ(
        "wrong      provider: qorvtsp.tsp is not in C:\\windows\\system32\n"
        "           qorvsetup install",
        told("provider"));
}

TEST_F(Check, TellsThatTheProvidersFileIsSomethingElse) {
    write_text("C:\\windows\\system32\\qorvtsp.tsp", "nothing");
    EXPECT_EQ(
        "wrong      provider: C:\\windows\\system32\\qorvtsp.tsp has no version: it is damaged, or another file\n"
        "           qorvsetup install",
        told("provider"));
}

TEST_F(Check, TellsThatTapiDoesNotKnowTheProvider) {
    replaced->tapi.providers = {{1, L"unimdm.tsp"}};
    EXPECT_EQ(
        "wrong      telephony: qorvtsp.tsp is not on TAPI's list of providers\n"
        "           qorvsetup install",
        told("telephony"));
}

TEST_F(Check, TellsThatTheMachineHasNoTelephonyService) {
    replaced->tapi.error = static_cast<LONG>(0x80000048);
    EXPECT_EQ("attention  telephony: this machine has no telephony service; only faxhost can use the provider",
              told("telephony"));
}

TEST_F(Check, TellsThatTheTelephonyServiceDoesNotAnswer) {
    replaced->tapi.error = static_cast<LONG>(0x80000048);
    add_service(L"TapiSrv");
    EXPECT_EQ(
        "wrong      telephony: TAPI does not tell its providers: LINEERR 0x80000048\n"
        "           see that the service TapiSrv is not disabled: sc qc tapisrv",
        told("telephony"));
}

// ---- services -----------------------------------------------------------------------------------------------------

TEST_F(Check, TellsThatTheHostServiceIsMissing) {
    drop_service(L"calder");
    EXPECT_EQ(
        "wrong      host service: there is no service calder\n"
        "           qorvsetup install --software-board, or the board maker's software",
        told("host service"));
}

TEST_F(Check, TellsThatTheHostServiceIsStopped) {
    EXPECT_EQ(
        "wrong      host service: calder is stopped\n"
        "           net start calder",
        told("host service"));
}

TEST_F(Check, TakesAHostServiceThatStartsForRunning) {
    replaced->imported("QueryServiceStatus", reinterpret_cast<void*>(&say_starting));
    EXPECT_EQ("ok         host service: calder is starting", told("host service"));
}

TEST_F(Check, TakesNoOtherStateOfTheHostServiceForRunning) {
    replaced->imported("QueryServiceStatus", reinterpret_cast<void*>(&say_paused));
    EXPECT_EQ(
        "wrong      host service: calder is paused\n"
        "           net start calder",
        told("host service"));
}

TEST_F(Check, TellsThatTheFaxServiceIsMissing) {
    drop_service(L"Fax");
    EXPECT_EQ(
        "wrong      fax service: there is no service Fax\n"
        "           add the Windows feature \"Windows Fax and Scan\" (on a server the role \"Fax Server\"), or for a "
        "trial: qorvsetup install --fax-stand-in",
        told("fax service"));
}

TEST_F(Check, DoesNotJudgeServicesThatThisAccountMustNotSee) {
    replaced->imported("OpenServiceW", reinterpret_cast<void*>(&refuse_service));
    EXPECT_EQ(
        "not tried  host service: the service calder cannot be seen by this account\n"
        "           run it as administrator",
        told("host service"));
    EXPECT_EQ(
        "not tried  fax service: the service Fax cannot be seen by this account\n"
        "           run it as administrator",
        told("fax service"));
}

TEST_F(Check, TellsWhyServicesCannotBeAsked) {
    replaced->imported("OpenServiceW", reinterpret_cast<void*>(&fail_service));
    const std::string why = windows_error(ERROR_INVALID_NAME);
    EXPECT_EQ("wrong      host service: the service calder cannot be asked: " + why, told("host service"));
    EXPECT_EQ("wrong      fax service: the service Fax cannot be asked: " + why, told("fax service"));
}

// ---- the shared segment -------------------------------------------------------------------------------------------

TEST_F(Check, TellsThatTheSegmentDoesNotExist) {
    EXPECT_EQ(
        "attention  shared segment: HalvorsundMSFTSPSharedMemory does not exist; calder creates it\n"
        "           net start calder",
        told("shared segment"));
}

TEST_F(Check, TellsThatTheSegmentsCreatorKeepsReadersOut) {
    void* descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"O:NSG:NSD:(A;;GR;;;NS)", SDDL_REVISION_1,
                                                                     &descriptor, nullptr));
    const OwnedLocal<void> owner(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor, FALSE};
    const OwnedHandle segment(
        CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0, FAX_SEGMENT_SIZE, FAX_SEGMENT_NAME));
    ASSERT_TRUE(segment);
    EXPECT_EQ(
        "attention  shared segment: HalvorsundMSFTSPSharedMemory exists, but its creator keeps readers out\n"
        "           let calder create it: net stop tapisrv, net stop calder, net start calder, net start tapisrv",
        told("shared segment"));
}

TEST_F(Check, TellsWhyTheSegmentCannotBeRead) {
    const OwnedHandle other(CreateEventW(nullptr, TRUE, FALSE, FAX_SEGMENT_NAME));
    EXPECT_EQ("attention  shared segment: HalvorsundMSFTSPSharedMemory cannot be read: " +
                  windows_error(ERROR_INVALID_HANDLE),
              told("shared segment"));
}

// ---- the event source ---------------------------------------------------------------------------------------------

TEST_F(Check, TellsThatTheEventSourceIsNotRegistered) {
    drop_key(EVENT_SOURCE_KEY);
    EXPECT_EQ(
        "attention  event source: it is not registered: event log entries come without their text\n"
        "           qorvsetup install",
        told("event source"));
}

TEST_F(Check, TellsTheEventSourcesMissingValues) {
    drop_value(EVENT_SOURCE_KEY, L"CategoryMessageFile");
    drop_value(EVENT_SOURCE_KEY, L"TypesSupported");
    EXPECT_EQ(
        "attention  event source: it has no CategoryMessageFile, it has no TypesSupported\n"
        "           qorvsetup install",
        told("event source"));
}

TEST_F(Check, TellsTheEventSourcesWrongValues) {
    set_text(EVENT_SOURCE_KEY, L"EventMessageFile", L"%SystemRoot%\\other.dll", REG_EXPAND_SZ);
    set_text(EVENT_SOURCE_KEY, L"CategoryMessageFile", L"%SystemRoot%\\System32\\qorvtsp.tsp");
    set_number(EVENT_SOURCE_KEY, L"CategoryCount", 4);
    EXPECT_EQ(
        "attention  event source: its EventMessageFile is %SystemRoot%\\other.dll, its CategoryMessageFile is "
        "%SystemRoot%\\System32\\qorvtsp.tsp, its CategoryCount is 4, not 5\n"
        "           qorvsetup install",
        told("event source"));
}

TEST_F(Check, TellsThatTheEventSourcesTextsAreMissing) {
    drop_file(PROVIDER_FILE);
    EXPECT_EQ(
        "attention  event source: the file with its texts is missing\n"
        "           qorvsetup install",
        told("event source"));
}

// ---- panic file and fax devices -----------------------------------------------------------------------------------

TEST_F(Check, TellsThatThePanicFilesFolderIsMissing) {
    RemoveDirectoryW(L"C:\\temp");
    const std::string missing =
        "attention  panic file: there is no folder C:\\temp: the provider writes no panic file\n"
        "           mkdir C:\\temp";
    EXPECT_EQ(missing, told("panic file"));
    write_text("C:\\temp", "a file is no folder");
    EXPECT_EQ(missing, told("panic file"));
    EXPECT_TRUE(DeleteFileW(L"C:\\temp"));
}

TEST_F(Check, TellsThatTheFaxServiceKnowsNoDevice) {
    drop_key(FAX_DEVICES_KEY);
    EXPECT_EQ(
        "attention  fax devices: the fax service knows none: every line rings once\n"
        "           start the fax service once telephony has the provider: net start fax",
        told("fax devices"));
}

TEST_F(Check, TellsTheRingsOfEachDeviceAsTheProviderReadsThem) {
    const std::wstring devices = FAX_DEVICES_KEY;
    set_number(devices + L"\\0002\\A", L"TAPI Permanent Lineid", 0xABCDE001);
    set_number(devices + L"\\0002\\A", L"Rings", 1);
    set_number(devices + L"\\0002\\B", L"TAPI Permanent Lineid", 0x99);
    set_number(devices + L"\\0003\\without rings", L"TAPI Permanent Lineid", 0x50002);
    set_number(devices + L"\\0004\\without line", L"Rings", 5);
    set_number(devices + L"\\0005", L"TAPI Permanent Lineid", 0x50005);
    EXPECT_EQ("ok         fax devices: line 0x00050000 2 rings, line 0xABCDE001 1 ring, line 0x00050002 1 ring",
              told("fax devices"));
}

// ---- the registry as a whole --------------------------------------------------------------------------------------

TEST_F(Check, DoesNotJudgeKeysThatThisAccountMustNotSee) {
    replaced->imported("RegOpenKeyExW", reinterpret_cast<void*>(&refuse_key));
    const std::string ending = " cannot be seen by this account\n           run it as administrator";
    EXPECT_EQ("not tried  configuration key: HKLM\\" + utf8(PARAMETERS_KEY) + ending, told("configuration key"));
    EXPECT_EQ("not tried  event source: the event source" + ending, told("event source"));
    EXPECT_EQ("not tried  fax devices: HKLM\\" + utf8(FAX_DEVICES_KEY) + ending, told("fax devices"));
}

TEST_F(Check, TellsWhyTheConfigurationKeyCannotBeRead) {
    replaced->imported("RegOpenKeyExW", reinterpret_cast<void*>(&fail_key));
    EXPECT_EQ("wrong      configuration key: HKLM\\" + utf8(PARAMETERS_KEY) +
                  " cannot be read: " + windows_error(ERROR_BADKEY),
              told("configuration key"));
}
