// Questions to Windows.
#include "machine.h"

#include <windows.h>

#include <shlobj.h>

#include <vector>

#include "owned.h"
#include "text.h"

bool is_administrator() {
    return IsUserAnAdmin() != FALSE;
}

std::wstring system_folder() {
    wchar_t path[MAX_PATH] = L"";
    GetSystemDirectoryW(path, MAX_PATH);
    return path;
}

std::wstring in_system_folder(const wchar_t* file) {
    return system_folder() + L"\\" + file;
}

std::wstring programs_folder() {
    wchar_t path[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, path);
    return std::wstring(path) + L"\\Halvorsund Telephony Service Provider";
}

std::wstring log_folder() {
    return with_environment(L"%ProgramData%\\Calder");
}

std::wstring with_environment(const std::wstring& text) {
    std::wstring expanded(ExpandEnvironmentStringsW(text.c_str(), nullptr, 0), L'\0');
    ExpandEnvironmentStringsW(text.c_str(), expanded.data(), static_cast<DWORD>(expanded.size()));
    expanded.resize(wcslen(expanded.c_str()));
    return expanded;
}

ScopedSystemFolder::ScopedSystemFolder() : before(GetCurrentDirectoryW(0, nullptr), L'\0') {
    GetCurrentDirectoryW(static_cast<DWORD>(before.size()), before.data());
    SetCurrentDirectoryW(system_folder().c_str());
}

ScopedSystemFolder::~ScopedSystemFolder() {
    SetCurrentDirectoryW(before.c_str());
}

bool is_file(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool is_folder(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool read_file(const std::wstring& path, std::string& content) {
    const OwnedHandle file =
        owned_file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                               nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.get(), &size)) return false;
    content.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    return ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr) &&
           read == content.size();
}

bool same_files(const std::wstring& one, const std::wstring& other) {
    std::string first;
    std::string second;
    return read_file(one, first) && read_file(other, second) && first == second;
}

std::wstring file_fingerprint(const std::wstring& path) {
    std::string content;
    if (!read_file(path, content)) return L"";
    uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
    for (const char c : content) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return wide(format("%016llx", static_cast<unsigned long long>(hash)));
}

static std::wstring version_string(const std::vector<BYTE>& resource, const wchar_t* name) {
    const std::wstring path = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
    void* text = nullptr;
    UINT length = 0;
    return VerQueryValueW(resource.data(), path.c_str(), &text, &length) ? static_cast<wchar_t*>(text) : L"";
}

FileVersion file_version(const std::wstring& path) {
    DWORD ignored = 0;
    std::vector<BYTE> resource(GetFileVersionInfoSizeW(path.c_str(), &ignored));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (resource.empty() ||
        !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()) ||
        !VerQueryValueW(resource.data(), L"\\", reinterpret_cast<void**>(&fixed), &length)) {
        return {};
    }
    return {static_cast<uint64_t>(fixed->dwFileVersionMS) << 32 | fixed->dwFileVersionLS,
            version_string(resource, L"FileDescription"), version_string(resource, L"InternalName")};
}

std::string version_text(uint64_t number) {
    if (number == 0) return "";
    const auto part = [number](int shift) { return static_cast<unsigned>(number >> shift & 0xFFFF); };
    return format("%u.%u.%u.%u", part(48), part(32), part(16), part(0));
}

bool is_software_board(const std::wstring& path) {
    const FileVersion version = file_version(path);
    return version.internal_name == L"calddlld" && version.description == L"Software board";
}

std::wstring service_command(const wchar_t* name) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const OwnedService service(OpenServiceW(manager.get(), name, SERVICE_QUERY_CONFIG));
    alignas(QUERY_SERVICE_CONFIGW) char buffer[8192];
    auto* configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
    DWORD needed = 0;
    if (!service || !QueryServiceConfigW(service.get(), configuration, sizeof(buffer), &needed)) return L"";
    return configuration->lpBinaryPathName;
}

ServiceState service_state(const wchar_t* name) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return {GetLastError(), 0};
    const OwnedService service(OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS));
    SERVICE_STATUS status = {};
    if (!service || !QueryServiceStatus(service.get(), &status)) return {GetLastError(), 0};
    return {0, status.dwCurrentState};
}

bool service_exists(const wchar_t* name) {
    return service_state(name).error != ERROR_SERVICE_DOES_NOT_EXIST;
}
