// The work of the host service, in the foreground or under the service manager.
#pragma once

#include <windows.h>

#include <functional>
#include <string_view>

// Creates the shared segment, calls `ready` once it is there, and gives `tell` one line per finished fax job until
// `stop` is set. Blocks that long. A segment that cannot be had is asked for again every second.
void host_service_work(HANDLE stop, const std::function<void()>& ready,
                       const std::function<void(std::string_view)>& tell);

// Runs under the service manager and returns when the service has been stopped: 0, or the Windows error, 1063
// (ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) when the service manager did not start this process.
DWORD host_service_dispatch();
