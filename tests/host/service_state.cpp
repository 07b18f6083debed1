#include "service_state.h"

static constexpr DWORD STATE_TIMEOUT = 10000;  // milliseconds

OwnedService open_service(const wchar_t* name, DWORD access) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return OwnedService(OpenServiceW(manager.get(), name, access));
}

bool reaches(SC_HANDLE service, DWORD state) {
    SERVICE_STATUS status = {};
    const ULONGLONG deadline = GetTickCount64() + STATE_TIMEOUT;
    while (QueryServiceStatus(service, &status) && status.dwCurrentState != state) {
        if (GetTickCount64() > deadline) return false;
        Sleep(10);
    }
    return status.dwCurrentState == state;
}
