#include "pretended_machine.h"

#include <shlobj.h>
#include <tapi.h>

#include <algorithm>
#include <cstring>

#include "text.h"

namespace {

PretendedMachine* the_machine;

constexpr DWORD FAILURE = ERROR_GEN_FAILURE;

// ---- calls that can be made to fail ---------------------------------------------------------------------------------

bool fails(const char* name) {
    if (the_machine->looking) return false;
    const int call = ++the_machine->changes;
    const bool in_range = call >= the_machine->first_failing && call <= the_machine->last_failing;
    if (!in_range && the_machine->failing_name != name) return false;
    the_machine->failed_call = name;
    SetLastError(FAILURE);
    return true;
}

// The function of Windows of this type that has the number `Index` in the table below.
template <int Index, typename Function>
struct Fallible;
template <int Index, typename Result, typename... Arguments>
struct Fallible<Index, Result (*)(Arguments...)> {
    static inline Result (*original)(Arguments...) = nullptr;
    static inline const char* name = nullptr;
    static inline Result failure = {};
    static Result call(Arguments... arguments) { return fails(name) ? failure : original(arguments...); }
};

template <int Index, typename Function>
void make_fallible(const char* name, Function original, decltype(Fallible<Index, Function>::failure) failure = {}) {
    using Replacement = Fallible<Index, Function>;
    Replacement::original = original;
    Replacement::name = name;
    Replacement::failure = failure;
    the_machine->replacements.replace(name, reinterpret_cast<void*>(&Replacement::call));
}

template <typename Function>
Function real(const char* name) {
    return reinterpret_cast<Function>(the_machine->replacements.original(name));
}

#define FALLIBLE(name, ...) make_fallible<__COUNTER__>(#name, real<decltype(&::name)>(#name), ##__VA_ARGS__)
// One that is played here, and can be made to fail as well.
#define FALLIBLE_OF(name, function, ...) make_fallible<__COUNTER__>(#name, &(function), ##__VA_ARGS__)

HANDLE WINAPI create_file(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how,
                          DWORD flags, HANDLE pattern) {
    if (access & GENERIC_WRITE && fails("CreateFileW")) return INVALID_HANDLE_VALUE;
    return real<decltype(&::CreateFileW)>("CreateFileW")(path, access, share, security, how, flags, pattern);
}

// ---- folders and rights ---------------------------------------------------------------------------------------------

UINT WINAPI system_directory(wchar_t* buffer, UINT size) {
    wcsncpy(buffer, the_machine->path("system").c_str(), size);
    return static_cast<UINT>(wcslen(buffer));
}

HRESULT WINAPI folder_path(HWND, int, HANDLE, DWORD, wchar_t* buffer) {
    wcscpy(buffer, the_machine->path("programs").c_str());
    return S_OK;
}

DWORD WINAPI expand(const wchar_t* text, wchar_t* buffer, DWORD size) {
    constexpr wchar_t VARIABLE[] = L"%ProgramData%";
    std::wstring expanded = text;
    const size_t at = expanded.find(VARIABLE);
    if (at != std::wstring::npos) expanded.replace(at, wcslen(VARIABLE), the_machine->path("data"));
    if (buffer) wcsncpy(buffer, expanded.c_str(), size);
    return static_cast<DWORD>(expanded.size() + 1);
}

BOOL WINAPI is_admin() {
    return the_machine->administrator;
}

// ---- version resources: a program of these tests is the text "NAME|DESCRIPTION|VERSION" -----------------------------

VS_FIXEDFILEINFO gFixed;
std::wstring gField;

std::string program_text(const wchar_t* path) {
    the_machine->looking = true;
    const std::string text = read_text(utf8(path));
    the_machine->looking = false;
    return std::count(text.begin(), text.end(), '|') == 2 ? text : "";
}

DWORD WINAPI version_size(const wchar_t* path, DWORD*) {
    const std::string text = program_text(path);
    return text.empty() ? 0 : static_cast<DWORD>(text.size() + 1);
}

BOOL WINAPI version_info(const wchar_t* path, DWORD, DWORD, void* data) {
    std::strcpy(static_cast<char*>(data), program_text(path).c_str());
    return TRUE;
}

BOOL WINAPI version_value(const void* data, const wchar_t* name, void** value, UINT*) {
    const std::string text = static_cast<const char*>(data);
    const size_t first = text.find('|');
    const size_t second = text.rfind('|');
    if (std::wstring(name) == L"\\") {
        gFixed.dwFileVersionMS = static_cast<DWORD>(std::stoi(text.substr(second + 1))) << 16;
        *value = &gFixed;
        return TRUE;
    }
    const bool description = std::wstring(name).find(L"FileDescription") != std::wstring::npos;
    gField = wide(description ? text.substr(first + 1, second - first - 1) : text.substr(0, first));
    *value = gField.data();
    return TRUE;
}

// ---- services -------------------------------------------------------------------------------------------------------

SC_HANDLE manager_handle() {
    return reinterpret_cast<SC_HANDLE>(&the_machine->services);
}

SC_HANDLE handle_of(PretendedService& service) {
    return reinterpret_cast<SC_HANDLE>(&service);
}

PretendedService& service_of(SC_HANDLE handle) {
    return *reinterpret_cast<PretendedService*>(handle);
}

SC_HANDLE WINAPI open_manager(const wchar_t*, const wchar_t*, DWORD access) {
    const bool to_change = access & SC_MANAGER_CREATE_SERVICE;
    return to_change && fails("OpenSCManagerW") ? nullptr : manager_handle();
}

SC_HANDLE WINAPI open_service(SC_HANDLE, const wchar_t* name, DWORD) {
    const auto found = the_machine->services.find(name);
    if (found != the_machine->services.end()) return handle_of(found->second);
    SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
    return nullptr;
}

SC_HANDLE WINAPI create_service(SC_HANDLE, const wchar_t* name, const wchar_t*, DWORD, DWORD, DWORD start_type, DWORD,
                                const wchar_t* command, const wchar_t*, DWORD*, const wchar_t*, const wchar_t* account,
                                const wchar_t*) {
    PretendedService& service = the_machine->services[name];
    service = {command, account ? account : L"LocalSystem", start_type, SERVICE_STOPPED, false};
    return handle_of(service);
}

BOOL WINAPI close_service(SC_HANDLE) {
    return TRUE;
}

BOOL WINAPI change_service(SC_HANDLE handle, DWORD level, void*) {
    if (level == SERVICE_CONFIG_FAILURE_ACTIONS) service_of(handle).restarts_on_failure = true;
    return TRUE;
}

BOOL WINAPI query_configuration(SC_HANDLE handle, QUERY_SERVICE_CONFIGW* configuration, DWORD, DWORD*) {
    configuration->lpBinaryPathName = service_of(handle).command.data();
    return TRUE;
}

BOOL WINAPI query_status(SC_HANDLE handle, SERVICE_STATUS* status) {
    status->dwCurrentState = service_of(handle).state;
    return TRUE;
}

BOOL WINAPI query_process(SC_HANDLE, SC_STATUS_TYPE, BYTE*, DWORD, DWORD*) {
    return FALSE;
}

BOOL WINAPI start_service(SC_HANDLE handle, DWORD, const wchar_t**) {
    service_of(handle).state = the_machine->services_start ? SERVICE_RUNNING : SERVICE_STOPPED;
    return TRUE;
}

BOOL WINAPI control_service(SC_HANDLE handle, DWORD, SERVICE_STATUS* status) {
    if (service_of(handle).state == SERVICE_STOPPED) {
        SetLastError(ERROR_SERVICE_NOT_ACTIVE);
        return FALSE;
    }
    status->dwCurrentState = service_of(handle).state = SERVICE_STOPPED;
    return TRUE;
}

BOOL WINAPI delete_service(SC_HANDLE handle) {
    auto& services = the_machine->services;
    const auto found = std::find_if(services.begin(), services.end(),
                                    [&](auto& service) { return handle_of(service.second) == handle; });
    services.erase(found);
    return TRUE;
}

// ---- telephony ------------------------------------------------------------------------------------------------------

LONG refusal() {
    return static_cast<LONG>(LINEERR_OPERATIONFAILED);
}

LONG WINAPI provider_list(DWORD, LINEPROVIDERLIST* list) {
    if (!the_machine->has_telephony) return refusal();
    const auto count = static_cast<DWORD>(the_machine->providers.size());
    DWORD offset = sizeof(LINEPROVIDERLIST) + count * sizeof(LINEPROVIDERENTRY);
    list->dwNeededSize = offset;
    for (const std::wstring& name : the_machine->providers) list->dwNeededSize += (name.size() + 1) * sizeof(wchar_t);
    if (list->dwNeededSize > list->dwTotalSize) return 0;
    list->dwUsedSize = list->dwNeededSize;
    list->dwNumProviders = count;
    list->dwProviderListOffset = sizeof(LINEPROVIDERLIST);
    auto* bytes = reinterpret_cast<BYTE*>(list);
    auto* entry = reinterpret_cast<LINEPROVIDERENTRY*>(bytes + sizeof(LINEPROVIDERLIST));
    for (DWORD i = 0; i < count; ++i, ++entry) {
        const std::wstring& name = the_machine->providers[i];
        const auto size = static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t));
        *entry = {i + 1, size, offset};
        std::memcpy(bytes + offset, name.c_str(), size);
        offset += size;
    }
    return 0;
}

LONG WINAPI add_provider(const wchar_t* file_name, HWND, DWORD* id) {
    the_machine->at_adding = the_machine->snapshot();
    if (the_machine->add_result != 0) return the_machine->add_result;
    the_machine->providers.emplace_back(file_name);
    *id = static_cast<DWORD>(the_machine->providers.size());
    return 0;
}

LONG WINAPI remove_provider(DWORD id, HWND) {
    if (the_machine->remove_result != 0) return the_machine->remove_result;
    the_machine->providers.erase(the_machine->providers.begin() + static_cast<ptrdiff_t>(id - 1));
    return 0;
}

LONG WINAPI add_or_fail(const wchar_t* file_name, HWND owner, DWORD* id) {
    return fails("lineAddProviderW") ? refusal() : add_provider(file_name, owner, id);
}

LONG WINAPI remove_or_fail(DWORD id, HWND owner) {
    return fails("lineRemoveProvider") ? refusal() : remove_provider(id, owner);
}

FARPROC WINAPI find_function(HMODULE, const char* name) {
    const std::string wanted = name;
    void* function = nullptr;
    if (wanted == "lineGetProviderListW") function = reinterpret_cast<void*>(provider_list);
    if (wanted == "lineAddProviderW") function = reinterpret_cast<void*>(add_or_fail);
    if (wanted == "lineRemoveProvider") function = reinterpret_cast<void*>(remove_or_fail);
    return reinterpret_cast<FARPROC>(function);
}

// Nobody waits here for a service that starts or stops at once.
void WINAPI no_sleep(DWORD) {}

// ---- the snapshot ---------------------------------------------------------------------------------------------------

void list_files(const std::wstring& path, const std::string& name, std::vector<std::string>& lines) {
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
        const std::wstring file = found.cFileName;
        if (file == L"." || file == L".." || (name.empty() && file == L"package")) continue;
        const std::string full = name + "\\" + utf8(file);
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            lines.push_back("folder " + full);
            list_files(path + L"\\" + file, full, lines);
        } else {
            lines.push_back("file " + full + ": " + read_text(utf8(path + L"\\" + file)));
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
}

void list_values(HKEY key, const std::string& name, std::vector<std::string>& lines) {
    wchar_t value[256];
    BYTE data[4096];
    for (DWORD i = 0;; ++i) {
        DWORD length = std::size(value);
        DWORD size = sizeof(data);
        DWORD type = 0;
        if (RegEnumValueW(key, i, value, &length, nullptr, &type, data, &size) != 0) return;
        std::string text = format("value %s, %s: type %lu ", name.c_str(), utf8(value).c_str(), type);
        for (DWORD j = 0; j < size; ++j) {
            if (data[j] != 0)
                text += data[j] >= ' ' && data[j] < 127 ? std::string(1, static_cast<char>(data[j]))
                                                        : format("%02x", data[j]);
        }
        lines.push_back(text);
    }
}

void list_keys(HKEY key, const std::string& name, std::vector<std::string>& lines) {
    list_values(key, name, lines);
    wchar_t subkey[256];
    for (DWORD i = 0;; ++i) {
        DWORD length = std::size(subkey);
        if (RegEnumKeyExW(key, i, subkey, &length, nullptr, nullptr, nullptr, nullptr) != 0) return;
        HKEY raw = nullptr;
        RegOpenKeyExW(key, subkey, 0, KEY_READ, &raw);
        const OwnedKey opened(raw);
        const std::string full = name + "\\" + utf8(subkey);
        lines.push_back("key " + full);
        list_keys(raw, full, lines);
    }
}

std::wstring registry_path() {
    return wide(format("Software\\qorvtsp-setup-test-%lu", GetCurrentProcessId()));
}

void replace_windows() {
    harness::Replacements& replacements = the_machine->replacements;
    replacements.replace("GetSystemDirectoryW", reinterpret_cast<void*>(system_directory));
    replacements.replace("SHGetFolderPathW", reinterpret_cast<void*>(folder_path));
    replacements.replace("ExpandEnvironmentStringsW", reinterpret_cast<void*>(expand));
    replacements.replace("IsUserAnAdmin", reinterpret_cast<void*>(is_admin));
    replacements.replace("GetFileVersionInfoSizeW", reinterpret_cast<void*>(version_size));
    replacements.replace("GetFileVersionInfoW", reinterpret_cast<void*>(version_info));
    replacements.replace("VerQueryValueW", reinterpret_cast<void*>(version_value));
    replacements.replace("CreateFileW", reinterpret_cast<void*>(create_file));
    replacements.replace("OpenSCManagerW", reinterpret_cast<void*>(open_manager));
    replacements.replace("OpenServiceW", reinterpret_cast<void*>(open_service));
    replacements.replace("CloseServiceHandle", reinterpret_cast<void*>(close_service));
    replacements.replace("QueryServiceConfigW", reinterpret_cast<void*>(query_configuration));
    replacements.replace("QueryServiceStatus", reinterpret_cast<void*>(query_status));
    replacements.replace("QueryServiceStatusEx", reinterpret_cast<void*>(query_process));
    replacements.replace("GetProcAddress", reinterpret_cast<void*>(find_function));
    replacements.replace("Sleep", reinterpret_cast<void*>(no_sleep));
}

void make_changes_fallible() {
    FALLIBLE(CopyFileW);
    FALLIBLE(MoveFileExW);
    FALLIBLE(WriteFile);
    FALLIBLE(CreateDirectoryW);
    FALLIBLE(DeleteFileW);
    FALLIBLE(RemoveDirectoryW);
    FALLIBLE(RegCreateKeyExW, LSTATUS{FAILURE});
    FALLIBLE(RegSetValueExW, LSTATUS{FAILURE});
    FALLIBLE(RegDeleteValueW, LSTATUS{FAILURE});
    FALLIBLE(RegDeleteKeyW, LSTATUS{FAILURE});
    FALLIBLE_OF(CreateServiceW, create_service);
    FALLIBLE_OF(ChangeServiceConfig2W, change_service);
    FALLIBLE_OF(StartServiceW, start_service);
    FALLIBLE_OF(ControlService, control_service);
    FALLIBLE_OF(DeleteService, delete_service);
}

}  // namespace

PretendedMachine::PretendedMachine() : replacements(GetModuleHandleW(nullptr)) {
    the_machine = this;
    for (const char* name : {"system", "programs", "data", "package"}) CreateDirectoryW(path(name).c_str(), nullptr);
    HKEY raw = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, registry_path().c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &raw, nullptr);
    registry.reset(raw);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, raw);
    for (const wchar_t* key : {L"SOFTWARE", L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application"}) {
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, nullptr, REG_SZ, L"", sizeof(wchar_t));
    }
    replace_windows();
    make_changes_fallible();
}

PretendedMachine::~PretendedMachine() {
    replacements.restore();
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    registry.reset();
    RegDeleteTreeW(HKEY_CURRENT_USER, registry_path().c_str());
    the_machine = nullptr;
}

std::wstring PretendedMachine::path(const std::string& name) const {
    return wide(folder.file(name));
}

std::string PretendedMachine::content(const std::string& name) const {
    return read_text(folder.file(name));
}

void PretendedMachine::write(const std::string& name, const std::string& content) const {
    write_text(folder.file(name), content);
}

void PretendedMachine::write_program(const std::string& name, const std::string& description, int version) const {
    const std::string internal_name = name.substr(0, name.find('.'));
    write("package\\" + name, internal_name + "|" + description + "|" + std::to_string(version));
}

std::vector<std::string> PretendedMachine::snapshot() {
    looking = true;
    std::vector<std::string> lines;
    list_files(wide(folder.path), "", lines);
    list_keys(registry.get(), "", lines);
    for (const auto& [name, service] : services) {
        lines.push_back(format("service %s: %s, account %s, start type %lu, state %lu", utf8(name).c_str(),
                               utf8(service.command).c_str(), utf8(service.account).c_str(), service.start_type,
                               service.state));
    }
    for (const std::wstring& provider : providers) lines.push_back("provider " + utf8(provider));
    std::sort(lines.begin(), lines.end());
    looking = false;
    return lines;
}
