// Installation and removal of the host service and of the placeholder of the fax service.
#include "service_control.h"

#include <windows.h>

#include <iterator>

#include "call_configuration.h"
#include "owned.h"
#include "program.h"
#include "text.h"

namespace {

constexpr DWORD STOP_TIMEOUT = 10000;        // milliseconds
constexpr DWORD RESTART_DELAY = 5000;        // milliseconds
constexpr DWORD FAILURES_FORGOTTEN = 86400;  // seconds after which the count of failures begins anew
// In the placeholder's command line: what tells it from a real fax service.
constexpr wchar_t STAND_IN_ARGUMENT[] = L"fax-stand-in";

std::wstring command_line(const std::wstring& program, const std::wstring& argument) {
    return L"\"" + program + L"\" " + argument;
}

void set_description(SC_HANDLE service, const wchar_t* text) {
    SERVICE_DESCRIPTIONW description = {const_cast<wchar_t*>(text)};
    ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &description);
}

bool describe_host_service(SC_HANDLE service) {
    set_description(service,
                    L"Holds the fax boards' shared status segment for its readers and keeps a log of finished faxes.");
    SC_ACTION restart[] = {{SC_ACTION_RESTART, RESTART_DELAY}};
    SERVICE_FAILURE_ACTIONSW actions = {FAILURES_FORGOTTEN, nullptr, nullptr, std::size(restart), restart};
    return ChangeServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions) != FALSE;
}

void register_service(ServiceReport& report, SC_HANDLE manager) {
    const OwnedService service = host_service_register(manager, program_path(), nullptr);
    if (service) {
        report.lines.push_back("registered the service calder");
        return;
    }
    if (GetLastError() != ERROR_SERVICE_EXISTS) return fail(report, "registering the service calder");
    const std::wstring command = command_line(program_path(), wide(SERVICE_ARGUMENT));
    const OwnedService present(OpenServiceW(manager, SERVICE_NAME, SERVICE_CHANGE_CONFIG | SERVICE_START));
    if (!present || !ChangeServiceConfigW(present.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                          command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
        return fail(report, "changing the service calder");
    }
    if (!describe_host_service(present.get())) return fail(report, "having the service calder restarted on failure");
    report.lines.push_back("the service calder was registered and now runs " + utf8(program_path()));
}

void register_stand_in(ServiceReport& report, SC_HANDLE manager) {
    const OwnedService present(OpenServiceW(manager, FAX_SERVICE_NAME, SERVICE_QUERY_STATUS));
    if (present) {
        report.lines.push_back("this machine has a service Fax");
        return;
    }
    if (!fax_stand_in_register(manager, program_path())) {
        return fail(report, "registering the stand-in of the service Fax");
    }
    report.lines.push_back("registered a stand-in for the service Fax");
}

// The process of a running service, to wait for; null when it is none or cannot be had.
OwnedHandle process_of(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status),
                              &needed) ||
        status.dwProcessId == 0) {
        return nullptr;
    }
    return OwnedHandle(OpenProcess(SYNCHRONIZE, FALSE, status.dwProcessId));
}

bool is_running(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return QueryServiceStatus(service, &status) && status.dwCurrentState != SERVICE_STOPPED;
}

void remove_service(ServiceReport& report, SC_HANDLE manager) {
    const OwnedService service(OpenServiceW(manager, SERVICE_NAME, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE));
    if (!service) {
        if (GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) return fail(report, "opening the service calder");
        report.lines.push_back("there is no service calder");
        return;
    }
    if (is_running(service.get()) && host_service_stop(service.get())) {
        report.lines.push_back("stopped the service calder");
    }
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
    const OwnedService service(OpenServiceW(manager, FAX_SERVICE_NAME, SERVICE_QUERY_CONFIG | DELETE));
    if (!service || !is_stand_in(service.get())) return;
    if (!DeleteService(service.get())) return fail(report, "removing the stand-in of the service Fax");
    report.lines.push_back("removed the stand-in for the service Fax");
}

}  // namespace

OwnedService host_service_register(SC_HANDLE manager, const std::wstring& program, const wchar_t* account) {
    const std::wstring command = command_line(program, wide(SERVICE_ARGUMENT));
    OwnedService service(CreateServiceW(manager, SERVICE_NAME, L"Calder Host Service", SERVICE_ALL_ACCESS,
                                        SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                                        command.c_str(), nullptr, nullptr, nullptr, account, nullptr));
    if (service && !describe_host_service(service.get())) {
        const DWORD error = GetLastError();
        DeleteService(service.get());
        service.reset();
        SetLastError(error);
    }
    return service;
}

OwnedService fax_stand_in_register(SC_HANDLE manager, const std::wstring& program) {
    OwnedService service(CreateServiceW(manager, FAX_SERVICE_NAME, L"Fax (stand-in)", SERVICE_ALL_ACCESS,
                                        SERVICE_WIN32_OWN_PROCESS, SERVICE_DISABLED, SERVICE_ERROR_IGNORE,
                                        command_line(program, STAND_IN_ARGUMENT).c_str(), nullptr, nullptr, nullptr,
                                        nullptr, nullptr));
    if (service) {
        set_description(service.get(),
                        L"Placeholder for the Windows fax service, which this machine lacks and the fax provider asks "
                        L"for. It cannot be started; it goes when the fax provider is removed.");
    }
    return service;
}

bool host_service_stop(SC_HANDLE service) {
    const OwnedHandle process = process_of(service);
    SERVICE_STATUS status = {};
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) return !is_running(service);
    for (DWORD waited = 0; is_running(service); waited += 100) {
        if (waited >= STOP_TIMEOUT) return false;
        Sleep(100);
    }
    if (process) WaitForSingleObject(process.get(), STOP_TIMEOUT);
    return true;
}

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
