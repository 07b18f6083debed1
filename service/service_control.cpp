// Installation and removal of the host service and of the placeholder of the fax service.
#include "service_control.h"

#include <windows.h>

#include "call_configuration.h"
#include "owned.h"
#include "program.h"
#include "text.h"

namespace {

constexpr wchar_t FAX_SERVICE[] = L"Fax";
// In the placeholder's command line: what tells it from a real fax service.
constexpr wchar_t STAND_IN_ARGUMENT[] = L"fax-stand-in";

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
