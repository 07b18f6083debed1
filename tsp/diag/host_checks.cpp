// Checks of the machine the provider runs on, made at start-up: the board's host service, the Windows version and the
// Windows fax service. Windows is asked each time; nothing is cached.
#include <windows.h>

#include <memory>
#include <type_traits>

#include "diag/diag.h"

namespace {

constexpr char HOST_SERVICE[] = "calder";
constexpr char FAX_SERVICE[] = "Fax";

struct CloseService {
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseService>;

bool host_service_runs() {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE));
    if (!manager) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "Could not OpenSCManager %d.", error);
        return false;
    }
    ServiceHandle service(OpenServiceW(manager.get(), L"calder", SERVICE_QUERY_STATUS));
    if (!service) {
        TRACE(TRACE_INFO, "Could not open Service %s to check status", HOST_SERVICE);
        return false;
    }
    SERVICE_STATUS status{};
    if (!QueryServiceStatus(service.get(), &status)) {
        TRACE(TRACE_INFO, "Unable to check %s service state.", HOST_SERVICE);
        return false;
    }
    const bool running = status.dwCurrentState == SERVICE_RUNNING || status.dwCurrentState == SERVICE_START_PENDING;
    TRACE(TRACE_INFO, running ? "%s is running." : "%s is not running.", HOST_SERVICE);
    return running;
}

bool read_version(OSVERSIONINFOEXW& version) {
    auto* basic = reinterpret_cast<OSVERSIONINFOW*>(&version);
    version = {};
    version.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
    if (GetVersionExW(basic)) return true;
    version.dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
    TRACE(TRACE_INFO, "Trying...GetVersionEx(2)");
    return GetVersionExW(basic) != FALSE;
}

struct NamedVersion {
    DWORD minor;
    OsVersion result;
    const char* text;
};
constexpr NamedVersion VERSIONS_5[] = {
    {0, OS_VERSION_2000, "Microsoft Windows 2000 "},
    {1, OS_VERSION_XP, "Microsoft Windows XP "},
    {2, OS_VERSION_NETSERVER, "Microsoft Windows NET SERVER "},
};

int32_t name_version(const OSVERSIONINFOEXW& version) {
    if (version.dwPlatformId != VER_PLATFORM_WIN32_NT) return OS_VERSION_UNSUPPORTED;
    if (version.dwMajorVersion < 5) {
        TRACE(TRACE_INFO, "Microsoft Windows NT ");
        return OS_VERSION_UNSUPPORTED;
    }
    if (version.dwMajorVersion == 5) {
        for (const NamedVersion& named : VERSIONS_5) {
            if (version.dwMinorVersion != named.minor) continue;
            TRACE(TRACE_INFO, named.text);
            return named.result;
        }
    }
    TRACE(TRACE_INFO, "Future Version ");
    return OS_VERSION_FUTURE;
}

bool answer(const char* name, bool yes) {
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, yes ? 1 : 0);
    return yes;
}

}  // namespace

bool QORV_IsRunning() {
    TRACE(TRACE_FUNCTION_ENTER, "QORV_IsRunning");
    TRACE(TRACE_INFO, "Check if %s is running", HOST_SERVICE);
    return answer("QORV_IsRunning", host_service_runs());
}

int32_t os_recognition() {
    TRACE(TRACE_FUNCTION_ENTER, "os_recognition");
    OSVERSIONINFOEXW version;
    if (!read_version(version)) return OS_VERSION_QUERY_FAILED;
    const int32_t result = name_version(version);
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", "os_recognition", result);
    return result;
}

bool IsFaxServicePresent() {
    constexpr char name[] = "IsFaxServicePresent";
    TRACE(TRACE_FUNCTION_ENTER, name);
    const int32_t version = os_recognition();
    if (version != OS_VERSION_XP && version != OS_VERSION_NETSERVER && version != OS_VERSION_FUTURE) {
        TRACE(TRACE_INFO, "not OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE");
        return answer(name, true);
    }
    TRACE(TRACE_INFO, "OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE");
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE);
    if (!manager) {
        TRACE(TRACE_INFO, "manager_handle == NULL");
        return answer(name, false);
    }
    // Both handles stay open when the service is there: the answer is asked for once per start.
    if (OpenServiceW(manager, L"Fax", SERVICE_QUERY_STATUS)) return answer(name, true);

    const DWORD error = GetLastError();
    TRACE(TRACE_INFO, "schService == NULL, %s", FAX_SERVICE);
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) TRACE(TRACE_INFO, "dwOpenService==ERROR_SERVICE_DOES_NOT_EXIST");
    CloseServiceHandle(manager);
    return answer(name, false);
}
