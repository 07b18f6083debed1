// The service manager, the Windows version and the event log.
#include <windows.h>

#include <algorithm>

#include "fake_windows.h"
#include "journal.h"
#include "text.h"

namespace harness {

namespace {

// Stand for the handles; only their addresses are used.
char manager_object, event_source_object;

SC_HANDLE manager_handle() {
    return reinterpret_cast<SC_HANDLE>(&manager_object);
}

// The handle of a service is the address of its state in the map.
bool is_service(SC_HANDLE handle, const std::pair<const std::wstring, DWORD>& service) {
    return reinterpret_cast<const DWORD*>(handle) == &service.second;
}

std::string handle_name(SC_HANDLE handle) {
    if (handle == manager_handle()) return "manager";
    for (const auto& service : windows.services.state)
        if (is_service(handle, service)) return quoted(service.first.c_str());
    return "unknown handle";
}

SC_HANDLE WINAPI open_manager(LPCWSTR machine, LPCWSTR database, DWORD access) {
    journal_windows("OpenSCManagerW(" + quoted(machine) + ", " + quoted(database) + text(", 0x%lX)", access));
    if (windows.services.manager_error) {
        SetLastError(windows.services.manager_error);
        return nullptr;
    }
    ++windows.services.open_handles;
    return manager_handle();
}

SC_HANDLE WINAPI open_service(SC_HANDLE manager, LPCWSTR name, DWORD access) {
    journal_windows("OpenServiceW(" + quoted(name) + text(", 0x%lX)", access));
    if (manager != manager_handle()) problem("OpenServiceW: not the manager's handle");
    auto service = windows.services.state.find(name);
    if (service == windows.services.state.end()) {
        SetLastError(windows.services.open_error);
        return nullptr;
    }
    ++windows.services.open_handles;
    return reinterpret_cast<SC_HANDLE>(&service->second);
}

BOOL WINAPI query_service(SC_HANDLE service, LPSERVICE_STATUS status) {
    journal_windows("QueryServiceStatus(" + handle_name(service) + ")");
    if (!windows.services.query_works) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *status = {};
    status->dwCurrentState = *reinterpret_cast<DWORD*>(service);
    return TRUE;
}

BOOL WINAPI close_service_handle(SC_HANDLE handle) {
    journal_windows("CloseServiceHandle(" + handle_name(handle) + ")");
    --windows.services.open_handles;
    return TRUE;
}

BOOL WINAPI get_version(LPOSVERSIONINFOW info) {
    journal_windows(text("GetVersionExW(%lu bytes)", info->dwOSVersionInfoSize));
    auto* bytes = reinterpret_cast<uint8_t*>(info);
    if (std::any_of(bytes + sizeof(DWORD), bytes + info->dwOSVersionInfoSize, [](uint8_t byte) { return byte != 0; }))
        problem("GetVersionExW: the record was not cleared");
    if (windows.version.failures > 0) {
        --windows.version.failures;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    info->dwMajorVersion = windows.version.major;
    info->dwMinorVersion = windows.version.minor;
    info->dwPlatformId = windows.version.platform;
    return TRUE;
}

HANDLE WINAPI register_source(LPCWSTR server, LPCWSTR source) {
    journal_windows("RegisterEventSourceW(" + quoted(server) + ", " + quoted(source) + ")");
    if (!windows.event_log.source_opens) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    ++windows.event_log.open_sources;
    return &event_source_object;
}

BOOL WINAPI report_entry(HANDLE source, WORD type, WORD category, DWORD id, PSID user, WORD string_count,
                         DWORD data_size, LPCWSTR* strings, LPVOID) {
    std::string entry = text("category=%u, 0x%lX", category, id);
    for (WORD i = 0; i < string_count; ++i) entry += ", " + quoted(strings[i]);
    if (source != &event_source_object) problem("ReportEventW: not the source's handle");
    if (type != EVENTLOG_ERROR_TYPE || user || data_size) problem("ReportEventW: wrong type, user or data");
    add_entry({EVENT_LOG, (windows.event_log.takes_entries ? "event log(" : "refused event log(") + entry + ")"});
    if (!windows.event_log.takes_entries) SetLastError(ERROR_LOG_FILE_FULL);
    return windows.event_log.takes_entries;
}

BOOL WINAPI deregister_source(HANDLE source) {
    journal_windows("DeregisterEventSource()");
    if (source != &event_source_object) problem("DeregisterEventSource: not the source's handle");
    --windows.event_log.open_sources;
    return TRUE;
}

}  // namespace

Fakes service_fakes() {
    return {fake("OpenSCManagerW", open_manager), fake("OpenServiceW", open_service),
            fake("QueryServiceStatus", query_service), fake("CloseServiceHandle", close_service_handle)};
}

Fakes version_fakes() {
    return {fake("GetVersionExW", get_version)};
}

Fakes event_log_fakes() {
    return {fake("RegisterEventSourceW", register_source), fake("ReportEventW", report_entry),
            fake("DeregisterEventSource", deregister_source)};
}

}  // namespace harness
