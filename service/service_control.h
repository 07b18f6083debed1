// Puts the host service "calder" on a machine and takes it off again.
#pragma once

#include "service_report.h"

constexpr wchar_t SERVICE_NAME[] = L"calder";
// Argument with which the service manager starts the program.
constexpr char SERVICE_ARGUMENT[] = "service";

// Registers the service for this program (or moves a registered one to it), writes a default call configuration file
// beside the program when there is none, and names it in the registry for the provider. With `fax_stand_in`, a machine
// without a Windows fax service gets a disabled placeholder named "Fax", which is all that the provider looks for.
ServiceReport service_install(bool fax_stand_in);

// Stops and removes the service, the placeholder if this program made it, and the registry value if it names this
// program's file. Waits up to 10 s for the service to stop.
ServiceReport service_remove();
