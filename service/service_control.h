// Puts the host service "calder" on a machine and takes it off again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

constexpr wchar_t SERVICE_NAME[] = L"calder";
// Argument with which the service manager starts the program.
constexpr char SERVICE_ARGUMENT[] = "service";

// What was done, a line each; `error` is 0 or the Windows error that ended it, `failed_step` what it was doing then.
struct ServiceReport {
    std::vector<std::string> lines;
    uint32_t error = 0;
    std::string failed_step;
};

// Registers the service for this program (or moves a registered one to it), writes a default call configuration file
// beside the program when there is none, and names it in the registry for the provider. With `fax_stand_in`, a machine
// without a Windows fax service gets a disabled placeholder named "Fax", which is all that the provider looks for.
ServiceReport service_install(bool fax_stand_in);

// Stops and removes the service, the placeholder if this program made it, and the registry value if it names this
// program's file. Waits up to 10 s for the service to stop.
ServiceReport service_remove();
