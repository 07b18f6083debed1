// Puts the host service "calder" on a machine and takes it off again.
#pragma once

#include <string>

#include "owned.h"
#include "service_report.h"

constexpr wchar_t SERVICE_NAME[] = L"calder";
// Argument with which the service manager starts the program.
constexpr char SERVICE_ARGUMENT[] = "service";

constexpr wchar_t FAX_SERVICE_NAME[] = L"Fax";
// The service's own account, which has few rights. Windows makes it with the service.
constexpr wchar_t SERVICE_ACCOUNT[] = L"NT SERVICE\\calder";

// Registers the host service: `program` (calder.exe) is started with the machine and again 5 s after it has failed.
// `account` null is LocalSystem. Gives null, with the last error, when there is one already or it cannot be done.
OwnedService host_service_register(SC_HANDLE manager, const std::wstring& program, const wchar_t* account);

// Registers a disabled placeholder for a missing Windows fax service, which names `program` (calder.exe).
OwnedService fax_stand_in_register(SC_HANDLE manager, const std::wstring& program);

// Stops a service opened with SERVICE_STOP and SERVICE_QUERY_STATUS, and waits, 10 s at most, until its process has
// ended: its program can then be deleted. False when it has not stopped; true also when it did not run.
bool host_service_stop(SC_HANDLE service);

// Registers the service for this program (or moves a registered one to it), writes a default call configuration file
// beside the program when there is none, and names it in the registry for the provider. With `fax_stand_in`, a machine
// without a Windows fax service gets a disabled placeholder named "Fax", which is all that the provider looks for.
ServiceReport service_install(bool fax_stand_in);

// Stops and removes the service, the placeholder if this program made it, and the registry value if it names this
// program's file. Waits up to 10 s for the service to stop.
ServiceReport service_remove();
