// The call configuration file and its registry value.
#include "call_configuration.h"

#include "owned.h"
#include "program.h"
#include "text.h"

const std::string_view DEFAULT_CALL_CONFIGURATION =
    "# Call configuration of the fax channels.\r\n"
    "#\r\n"
    "# Every reset of a channel hands this file to the board's driver library, which must be able to read it.\r\n"
    "# Its contents are the driver's; the software board needs none. Which file is used says the registry value\r\n"
    "# HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters, kxcall.\r\n";

namespace {

std::wstring configuration_path() {
    return program_folder() + L"\\kxcall.cfg";
}

void write_default_configuration(ServiceReport& report, const std::wstring& path) {
    const OwnedHandle file = owned_file(
        CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        if (GetLastError() != ERROR_FILE_EXISTS) fail(report, "writing " + utf8(path));
        return;
    }
    DWORD written = 0;
    if (!WriteFile(file.get(), DEFAULT_CALL_CONFIGURATION.data(), static_cast<DWORD>(DEFAULT_CALL_CONFIGURATION.size()),
                   &written, nullptr)) {
        fail(report, "writing " + utf8(path));
        return;
    }
    report.lines.push_back("wrote " + utf8(path));
}

std::wstring configured_path(HKEY key) {
    wchar_t path[MAX_PATH] = L"";
    DWORD size = sizeof(path) - sizeof(wchar_t);
    DWORD type = 0;
    if (RegQueryValueExW(key, CONFIGURATION_VALUE, nullptr, &type, reinterpret_cast<BYTE*>(path), &size) != 0)
        return L"";
    return type == REG_SZ ? path : L"";
}

}  // namespace

void name_configuration(ServiceReport& report) {
    HKEY raw_key = nullptr;
    const LSTATUS created = RegCreateKeyExW(HKEY_LOCAL_MACHINE, PARAMETERS_KEY, 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                            nullptr, &raw_key, nullptr);
    if (created != 0) return fail(report, "creating the registry key HKLM\\" + utf8(PARAMETERS_KEY), created);
    const OwnedKey key(raw_key);
    const std::wstring present = configured_path(raw_key);
    if (!present.empty() && GetFileAttributesW(present.c_str()) != INVALID_FILE_ATTRIBUTES) {
        report.lines.push_back("kxcall stays " + utf8(present));
        return;
    }
    const std::wstring path = configuration_path();
    if (path.size() > CONFIGURATION_PATH_LIMIT) {
        return fail(report, utf8(path) + " is too long a path for the provider", ERROR_FILENAME_EXCED_RANGE);
    }
    write_default_configuration(report, path);
    if (report.error != 0) return;
    const LSTATUS written =
        RegSetValueExW(raw_key, CONFIGURATION_VALUE, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                       static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
    if (written != 0) return fail(report, "writing the registry value kxcall", written);
    report.lines.push_back("kxcall is " + utf8(path));
}

void forget_configuration(ServiceReport& report) {
    HKEY raw_key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, PARAMETERS_KEY, 0, KEY_READ | KEY_WRITE, &raw_key) != 0) return;
    const OwnedKey key(raw_key);
    if (_wcsicmp(configured_path(raw_key).c_str(), configuration_path().c_str()) != 0) return;
    RegDeleteValueW(raw_key, CONFIGURATION_VALUE);
    report.lines.push_back("removed the registry value kxcall; " + utf8(configuration_path()) + " stays");
}
