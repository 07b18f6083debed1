// Installation and removal of the host service, its registry value and the placeholder of the fax service.
#include "service_control.h"

#include <windows.h>

#include "owned.h"
#include "program.h"
#include "text.h"

namespace {

constexpr wchar_t FAX_SERVICE[] = L"Fax";
// In the placeholder's command line: what tells it from a real fax service.
constexpr wchar_t STAND_IN_ARGUMENT[] = L"fax-stand-in";
constexpr wchar_t PARAMETERS_KEY[] = L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters";
constexpr wchar_t CONFIGURATION_VALUE[] = L"kxcall";
// The provider reads the path into 130 characters, its terminator included.
constexpr size_t CONFIGURATION_PATH_LIMIT = 129;

constexpr char DEFAULT_CONFIGURATION[] =
    "# Call configuration of the fax channels.\r\n"
    "#\r\n"
    "# Every reset of a channel hands this file to the board's driver library, which must be able to read it.\r\n"
    "# Its contents are the driver's; the software board needs none. Which file is used says the registry value\r\n"
    "# HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters, kxcall.\r\n";

// Notes the step that failed together with the last error.
void fail(ServiceReport& report, const std::string& step) {
    report.error = GetLastError();
    report.failed_step = step;
}

void fail(ServiceReport& report, const std::string& step, uint32_t error) {
    report.error = error;
    report.failed_step = step;
}

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
    if (!WriteFile(file.get(), DEFAULT_CONFIGURATION, sizeof(DEFAULT_CONFIGURATION) - 1, &written, nullptr)) {
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

// A file that an administrator has named stays named as long as it exists.
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

std::wstring command_line(const std::wstring& argument) {
    return L"\"" + program_path() + L"\" " + argument;
}

void set_description(SC_HANDLE service, const wchar_t* text) {
    SERVICE_DESCRIPTIONW description = {const_cast<wchar_t*>(text)};
    ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &description);
}

void register_service(ServiceReport& report, SC_HANDLE manager) {
    const std::wstring command = command_line(wide(SERVICE_ARGUMENT));
    OwnedService service(CreateServiceW(manager, SERVICE_NAME, L"Calder Host Service", SERVICE_ALL_ACCESS,
                                        SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                                        command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (service) {
        report.lines.push_back("registered the service calder");
    } else if (GetLastError() != ERROR_SERVICE_EXISTS) {
        return fail(report, "registering the service calder");
    } else {
        service.reset(OpenServiceW(manager, SERVICE_NAME, SERVICE_CHANGE_CONFIG));
        if (!service || !ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                              command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
            return fail(report, "changing the service calder");
        }
        report.lines.push_back("the service calder was registered and now runs " + utf8(program_path()));
    }
    set_description(service.get(),
                    L"Holds the fax boards' shared status segment for its readers and keeps a log of finished faxes.");
}

void register_stand_in(ServiceReport& report, SC_HANDLE manager) {
    const OwnedService present(OpenServiceW(manager, FAX_SERVICE, SERVICE_QUERY_STATUS));
    if (present) {
        report.lines.push_back("this machine has a service Fax");
        return;
    }
    const OwnedService service(CreateServiceW(
        manager, FAX_SERVICE, L"Fax (stand-in)", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DISABLED,
        SERVICE_ERROR_IGNORE, command_line(STAND_IN_ARGUMENT).c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service) return fail(report, "registering the stand-in of the service Fax");
    set_description(service.get(),
                    L"Placeholder for the Windows fax service, which this machine lacks and the fax provider asks for. "
                    L"It cannot be started; calder.exe remove takes it away.");
    report.lines.push_back("registered a stand-in for the service Fax");
}

void stop_service(ServiceReport& report, SC_HANDLE service) {
    SERVICE_STATUS status = {};
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) return;
    for (int i = 0; i < 100 && status.dwCurrentState != SERVICE_STOPPED; ++i) {
        Sleep(100);
        if (!QueryServiceStatus(service, &status)) return;
    }
    report.lines.push_back("stopped the service calder");
}

void remove_service(ServiceReport& report, SC_HANDLE manager) {
    const OwnedService service(OpenServiceW(manager, SERVICE_NAME, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE));
    if (!service) {
        if (GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) return fail(report, "opening the service calder");
        report.lines.push_back("there is no service calder");
        return;
    }
    stop_service(report, service.get());
    if (!DeleteService(service.get())) return fail(report, "removing the service calder");
    report.lines.push_back("removed the service calder");
}

bool is_stand_in(SC_HANDLE service) {
    alignas(QUERY_SERVICE_CONFIGW) char buffer[8192];
    auto* configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
    DWORD needed = 0;
    if (!QueryServiceConfigW(service, configuration, sizeof(buffer), &needed)) return false;
    const std::wstring command = configuration->lpBinaryPathName;
    const std::wstring ending = std::wstring(L"calder.exe\" ") + STAND_IN_ARGUMENT;
    return command.size() >= ending.size() &&
           _wcsicmp(command.c_str() + (command.size() - ending.size()), ending.c_str()) == 0;
}

void remove_stand_in(ServiceReport& report, SC_HANDLE manager) {
    const OwnedService service(OpenServiceW(manager, FAX_SERVICE, SERVICE_QUERY_CONFIG | DELETE));
    if (!service || !is_stand_in(service.get())) return;
    if (!DeleteService(service.get())) return fail(report, "removing the stand-in of the service Fax");
    report.lines.push_back("removed the stand-in for the service Fax");
}

void forget_configuration(ServiceReport& report) {
    HKEY raw_key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, PARAMETERS_KEY, 0, KEY_READ | KEY_WRITE, &raw_key) != 0) return;
    const OwnedKey key(raw_key);
    if (_wcsicmp(configured_path(raw_key).c_str(), configuration_path().c_str()) != 0) return;
    RegDeleteValueW(raw_key, CONFIGURATION_VALUE);
    report.lines.push_back("removed the registry value kxcall; " + utf8(configuration_path()) + " stays");
}

}  // namespace

ServiceReport service_install(bool fax_stand_in) {
    ServiceReport report;
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!manager) {
        fail(report, "opening the service manager");
        return report;
    }
    name_configuration(report);
    if (report.error == 0) register_service(report, manager.get());
    if (report.error == 0 && fax_stand_in) register_stand_in(report, manager.get());
    return report;
}

ServiceReport service_remove() {
    ServiceReport report;
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        fail(report, "opening the service manager");
        return report;
    }
    remove_service(report, manager.get());
    if (report.error == 0) remove_stand_in(report, manager.get());
    if (report.error == 0) forget_configuration(report);
    return report;
}
