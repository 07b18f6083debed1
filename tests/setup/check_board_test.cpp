// What check tells of the board's side: the configuration, the driver library, the channels.
#include <atomic>
#include <mutex>

#include "calddlld.h"
#include "fax_file.h"
#include "harness/import_table.h"
#include "machine.h"
#include "machine_in_order.h"
#include "program.h"
#include "run_program.h"
#include "text.h"

using Check = MachineInOrder;

namespace {

const std::string BOARD_STEPS = "qorvsetup install --software-board, or the board maker's software";
constexpr char SYSTEM_LIBRARY[] = "C:\\windows\\system32\\calddlld.dll";

// A board that counts what is begun and ended on it.
struct CountingBoard {
    int initialise_result = 0;
    int reset_result = 0;
    int up = 0;
    std::atomic<int> attached = 0;
    std::atomic<int> resets = 0;
    int resets_awaited = 0;  // a reset goes on when so many have begun
    std::mutex lock;
    std::string configuration;
    uint32_t last_module = 0;

    void clear() {
        initialise_result = reset_result = up = resets_awaited = 0;
        attached = resets = 0;
        configuration.clear();
        last_module = 0;
    }
} board;

int start_board() {
    if (board.initialise_result == 0) ++board.up;
    return board.initialise_result;
}

void stop_board() {
    --board.up;
}

// Module 2 has channel 7, module 200 channel 8, module 3 channels of which some part is absent.
int tell_module(void*, DornModuleInfoRecord* record) {
    board.last_module = record->dwModule;
    record->dwPresence[0] = record->dwPresence[1] = 1;
    record->dwPresence[2] = record->dwModule == 3 ? 0 : 1;
    record->dwFirstChannel = record->dwModule == 200 ? 8 : 7;
    record->dwChannelCount = 1;
    record->status = record->dwModule == 2 || record->dwModule == 3 || record->dwModule == 200 ? 0 : 2;
    return 0;
}

DornLine* attach(DornAttachRecord* record) {
    static DornLine lines[16];
    ++board.attached;
    return &lines[record->dwChannel];
}

int detach(DornLine*, DornAttachRecord*) {
    --board.attached;
    return 0;
}

int reset(DornLine*, DornResetRecord* record) {
    ++board.resets;
    const ULONGLONG deadline = GetTickCount64() + 10000;
    while (board.resets < board.resets_awaited && GetTickCount64() < deadline) SwitchToThread();
    const std::lock_guard<std::mutex> guard(board.lock);
    board.configuration = record->szConfiguration;
    return board.resets < board.resets_awaited ? -1 : board.reset_result;
}

int has_capability(DornLine*, int capability) {
    return capability == 14;
}

DornLine* refuse_attach(DornAttachRecord*) {
    return nullptr;
}

const char* tell_error(DornLine*) {
    return "no clock";
}

DWORD load_error;

HMODULE WINAPI fail_to_load(const wchar_t*, HANDLE, DWORD) {
    SetLastError(load_error);
    return nullptr;
}

DWORD WINAPI has_no_version(const wchar_t*, DWORD*) {
    return 0;
}

template <typename Function>
void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

void replace_board(Replaced& replaced) {
    board.clear();
    replaced.found("DornInitialize", address(start_board));
    replaced.found("DornShutdown", address(stop_board));
    replaced.found("DornModuleInfo", address(tell_module));
    replaced.found("DornLineAttach", address(attach));
    replaced.found("DornSessionDetach", address(detach));
    replaced.found("DornLineReset", address(reset));
    replaced.found("DornLineCapCheck", address(has_capability));
    replaced.found("DornErrorMessage", address(tell_error));
}

void configure_board(const std::string& text) {
    write_text("C:\\windows\\system32\\softboard.ini", text);
}

std::string lacks(const std::string& names) {
    return std::string("wrong      driver library: ") + SYSTEM_LIBRARY + " is not the driver library: it lacks " +
           names + "\n           delete it, then: " + BOARD_STEPS;
}

const std::string BOARD_TELLS = "\n           the board maker's software tells the state of the boards";
const std::string RESET_NEEDS = BOARD_TELLS + "; a reset needs the configuration file above";

}  // namespace

// ---- the configuration --------------------------------------------------------------------------------------------

TEST_F(Check, TellsThatTheConfigurationKeyIsMissing) {
    drop_key(PARAMETERS_KEY);
    EXPECT_EQ(
        "wrong      configuration key: there is no HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters\n"
        "           " +
            BOARD_STEPS,
        told("configuration key"));
    EXPECT_EQ("not tried  configuration file: the registry key above names it", told("configuration file"));
    EXPECT_EQ("not tried  channels: without the configuration key the provider resets none", told("channels"));
}

TEST_F(Check, TellsThatNothingNamesTheConfigurationFile) {
    drop_value(PARAMETERS_KEY, L"kxcall");
    EXPECT_EQ("wrong      configuration file: the registry key above has no value kxcall to name it\n           " +
                  BOARD_STEPS,
              told("configuration file"));
}

TEST_F(Check, TellsThatTheConfigurationFileIsMissing) {
    const std::string path = configuration_path();
    drop_configuration_file();
    EXPECT_EQ(
        "wrong      configuration file: kxcall names \"" + path + "\": " + windows_error(ERROR_PATH_NOT_FOUND) +
            "\n           put the file there, readable for NETWORK SERVICE, or change kxcall, in which nothing is "
            "expanded",
        told("configuration file"));
}

TEST_F(Check, ExpandsNothingInTheConfigurationFilesName) {
    set_text(PARAMETERS_KEY, L"kxcall", L"%SystemRoot%\\win.ini", REG_EXPAND_SZ);
    EXPECT_EQ(0u,
              told("configuration file").find("wrong      configuration file: kxcall names \"%SystemRoot%\\win.ini"));
}

TEST_F(Check, FindsAConfigurationFileWithoutAFolderInTheSystemFolder) {
    set_text(PARAMETERS_KEY, L"kxcall", DRIVER_FILE);
    EXPECT_EQ("ok         configuration file: kxcall names calddlld.dll", told("configuration file"));
}

TEST_F(Check, TakesAConfigurationFilesNameOf129CharactersAndNoMore) {
    const std::wstring longest = L"C:\\" + std::wstring(126, L'x');
    write_text(utf8(longest), "");
    set_text(PARAMETERS_KEY, L"kxcall", longest);
    EXPECT_EQ("ok         configuration file: kxcall names " + utf8(longest), told("configuration file"));
    EXPECT_TRUE(DeleteFileW(longest.c_str()));
    set_text(PARAMETERS_KEY, L"kxcall", longest + L"x");
    EXPECT_EQ(
        "wrong      configuration file: kxcall has 130 characters, the provider reads 129 at most\n"
        "           give the file a shorter path, and kxcall too",
        told("configuration file"));
}

TEST_F(Check, TellsThatTheConfigurationFilesNameCannotBeHandedOn) {
    set_text(PARAMETERS_KEY, L"kxcall", L"C:\\\x4E2D.cfg");
    EXPECT_EQ(
        "wrong      configuration file: kxcall has a character that the provider cannot hand on: C:\\\xE4\xB8\xAD.cfg\n"
        "           give the file a path in plain letters, and kxcall too",
        told("configuration file"));
}

// ---- the driver library -------------------------------------------------------------------------------------------

TEST_F(Check, WantsOfTheDriverLibraryExactlyWhatTheProviderImports) {
    const OwnedModule provider(
        LoadLibraryExW(in_system_folder(PROVIDER_FILE).c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES));
    ASSERT_TRUE(provider);
    size_t names = 0;
    for (const harness::Import& import : harness::imports_of(provider.get())) {
        if (import.module != "calddlld.dll") continue;
        ++names;
        replaced.reset();
        replaced = std::make_unique<Replaced>();
        replaced->found(import.name, nullptr);
        EXPECT_EQ(lacks(import.name), told("driver library"));
    }
    put_file("C:\\windows\\system32\\version.dll", DRIVER_FILE);
    EXPECT_EQ(lacks(format("DornInitialize, DornShutdown, DornModuleInfo and %zu more", names - 3)),
              told("driver library"));
}

TEST_F(Check, TellsThatTheDriverLibraryIsMissingAlthoughThereIsOneBesideTheProgram) {
    const std::wstring beside = program_folder() + L"\\calddlld.dll";
    EXPECT_TRUE(CopyFileW(wide(DRIVER).c_str(), beside.c_str(), FALSE));
    drop_file(DRIVER_FILE);
    EXPECT_EQ("wrong      driver library: calddlld.dll is not in C:\\windows\\system32\n           " + BOARD_STEPS,
              told("driver library"));
    EXPECT_EQ("not tried  channels: the driver library must be in order first", told("channels"));
    EXPECT_TRUE(DeleteFileW(beside.c_str()));
}

TEST_F(Check, TellsThatTheDriverLibraryIsNoLibrary) {
    write_text(SYSTEM_LIBRARY, "nothing");
    EXPECT_EQ(std::string("wrong      driver library: ") + SYSTEM_LIBRARY +
                  " cannot be loaded: " + windows_error(ERROR_BAD_EXE_FORMAT) +
                  "\n           it is damaged, or no 64-bit DLL: install the board maker's 64-bit software again",
              told("driver library"));
    EXPECT_EQ("not tried  channels: the driver library must be in order first", told("channels"));
}

TEST_F(Check, TellsThatADllWhichTheDriverLibraryNeedsIsMissing) {
    std::string library = read_text(SYSTEM_LIBRARY);
    const std::string needed = "WS2_32.dll";
    ASSERT_NE(std::string::npos, library.find(needed));
    library.replace(library.find(needed), needed.size(), "absent.dll");
    write_text(SYSTEM_LIBRARY, library);
    // Wine keeps a library open that it could not load, until the program ends.
    const std::string output = run_program(QORVSETUP, "check").output;
    EXPECT_NE(std::string::npos,
              output.find(std::string("wrong      driver library: ") + SYSTEM_LIBRARY +
                          " cannot be loaded: " + windows_error(ERROR_MOD_NOT_FOUND) +
                          "\n           a DLL that it needs is missing: install the board maker's software again\n"))
        << output;
}

TEST_F(Check, TellsWhatToDoAboutADriverLibraryThatMustNotBeRead) {
    load_error = ERROR_ACCESS_DENIED;
    replaced->imported("LoadLibraryExW", address(fail_to_load));
    EXPECT_EQ(std::string("wrong      driver library: ") + SYSTEM_LIBRARY + " cannot be loaded: " +
                  windows_error(ERROR_ACCESS_DENIED) + "\n           give everyone the right to read and execute it",
              told("driver library"));
}

TEST_F(Check, TellsWhatToDoAboutADriverLibraryThatFailsInAnotherWay) {
    load_error = ERROR_DLL_INIT_FAILED;
    replaced->imported("LoadLibraryExW", address(fail_to_load));
    EXPECT_EQ(std::string("wrong      driver library: ") + SYSTEM_LIBRARY + " cannot be loaded: " +
                  windows_error(ERROR_DLL_INIT_FAILED) + "\n           install the board maker's software again",
              told("driver library"));
}

TEST_F(Check, TellsTheFirstNamesThatAWrongLibraryLacks) {
    put_file("C:\\windows\\system32\\version.dll", DRIVER_FILE);
    EXPECT_EQ(lacks("DornInitialize, DornShutdown, DornModuleInfo and 52 more"), told("driver library"));
    EXPECT_EQ("not tried  channels: the driver library must be in order first", told("channels"));
}

TEST_F(Check, TakesADriverLibraryWithoutAVersion) {
    replaced->imported("GetFileVersionInfoSizeW", address(has_no_version));
    EXPECT_EQ(told("driver library"), std::string("ok         driver library: ") + SYSTEM_LIBRARY + ", no version");
}

TEST_F(Check, UnloadsTheDriverLibrary) {
    check_machine();
    EXPECT_EQ(nullptr, GetModuleHandleW(DRIVER_FILE));
}

// ---- the channels -------------------------------------------------------------------------------------------------

TEST_F(Check, TellsThatTheBoardsHaveNoChannels) {
    configure_board("[module.2]\nchannels=0\n");
    EXPECT_EQ("wrong      channels: the driver library has none" + BOARD_TELLS +
                  "; the software board's channels are in softboard.ini beside calddlld.dll",
              told("channels"));
}

TEST_F(Check, TellsTheChannelThatHasNoFirmware) {
    configure_board("[channel.2]\nmissing_capabilities=14\n");
    EXPECT_EQ("wrong      channels: 1 of 4 fail: channel 2 has no firmware" + RESET_NEEDS, told("channels"));
}

TEST_F(Check, TakesAChannelWithoutFaxCapabilityLikeTheProvider) {
    configure_board("[channel.2]\nmissing_capabilities=20\n");
    EXPECT_EQ("ok         channels: 4 attach and reset", told("channels"));
}

TEST_F(Check, TellsWhyTheDriverLibraryDoesNotResetTheChannels) {
    drop_configuration_file();
    const std::string text = told("channels");
    EXPECT_EQ(0u, text.find("wrong      channels: 4 of 4 fail: channel 0 cannot be reset (")) << text;
    EXPECT_NE(std::string::npos, text.find(", channel 2 cannot be reset (")) << text;
    EXPECT_EQ(std::string::npos, text.find("channel 3")) << text;
    EXPECT_NE(std::string::npos, text.find(") and 1 more" + RESET_NEEDS)) << text;
}

TEST_F(Check, TellsTheChannelsThatCannotBeAttached) {
    replace_board(*replaced);
    replaced->found("DornLineAttach", address(refuse_attach));
    EXPECT_EQ("wrong      channels: 1 of 1 fail: channel 7 cannot be attached" + RESET_NEEDS, told("channels"));
    EXPECT_EQ(0, board.up);
    EXPECT_EQ(0, board.attached);
}

TEST_F(Check, GivesEveryChannelBackThatCannotBeReset) {
    replace_board(*replaced);
    board.reset_result = -1;
    EXPECT_EQ("wrong      channels: 1 of 1 fail: channel 7 cannot be reset (no clock)" + RESET_NEEDS, told("channels"));
    EXPECT_EQ(1, board.resets);
    EXPECT_EQ(0, board.up);
    EXPECT_EQ(0, board.attached);
}

TEST_F(Check, ResetsTheChannelsOfWholeModulesWithTheConfiguredFile) {
    replace_board(*replaced);
    EXPECT_EQ("ok         channels: 1 attach and reset", told("channels"));
    EXPECT_EQ(configuration_path(), board.configuration);
    EXPECT_EQ(126u, board.last_module);
    EXPECT_EQ(0, board.up);
    EXPECT_EQ(0, board.attached);
}

TEST_F(Check, AsksALibraryThatKnowsMoreModulesForThem) {
    replace_board(*replaced);
    uint32_t more = 1;
    replaced->found("_dorn_pkt_version_exp", &more);
    EXPECT_EQ("ok         channels: 2 attach and reset", told("channels"));
    EXPECT_EQ(254u, board.last_module);
}

TEST_F(Check, ResetsTheChannelsSideBySide) {
    replace_board(*replaced);
    uint32_t more = 1;
    replaced->found("_dorn_pkt_version_exp", &more);
    board.resets_awaited = 2;
    EXPECT_EQ("ok         channels: 2 attach and reset", told("channels"));
}

TEST_F(Check, AnnouncesTheInterfaceVersionLikeTheProvider) {
    uint32_t versions[3] = {};
    replaced->found("_dorn_api_ver_compiled", &versions[0]);
    replaced->found("_dorn_api_ver_bld_comp", &versions[1]);
    replaced->found("_dorn_api_ver_auto_comp", &versions[2]);
    check_machine();
    EXPECT_EQ(0x403070u, versions[0]);
    EXPECT_EQ(6704u, versions[1]);
    EXPECT_EQ(76u, versions[2]);
}

TEST_F(Check, TellsThatTheDriverLibraryDoesNotStart) {
    replace_board(*replaced);
    board.initialise_result = 12;
    EXPECT_EQ("wrong      channels: the driver library does not start: DornInitialize gives 12" + BOARD_TELLS,
              told("channels"));
    EXPECT_EQ(0, board.up);
}

TEST_F(Check, LeavesTheChannelsToTelephony) {
    replace_board(*replaced);
    const std::string in_use =
        "not tried  channels: the telephony service is using them\n"
        "           to try them: net stop tapisrv, then once more qorvsetup check";
    const OwnedService telephony = add_service(L"TapiSrv", wide("\"" + full_path(CALDER) + "\" service"));
    EXPECT_EQ("ok         channels: 1 attach and reset", told("channels")) << "it is stopped";
    start(telephony.get());
    EXPECT_EQ(in_use, told("channels"));
    replaced->tapi.error = static_cast<LONG>(0x80000048);
    EXPECT_EQ(in_use, told("channels")) << "the list that cannot be had may name the provider";
    replaced->tapi = {};
    EXPECT_EQ("ok         channels: 1 attach and reset", told("channels")) << "telephony does not have the provider";
    EXPECT_EQ(2, board.resets);
}

TEST_F(Check, LeavesTheChannelsToARunningTelephonyHost) {
    replace_board(*replaced);
    const OwnedHandle host(CreateMutexW(nullptr, FALSE, TELEPHONY_HOST_MUTEX));
    EXPECT_EQ(
        "not tried  channels: faxhost is using them\n"
        "           end it, then once more qorvsetup check",
        told("channels"));
    EXPECT_EQ(0, board.resets);
}
