// The call configuration file, and the registry value that names it for the provider.
#pragma once

#include "service_report.h"

// Names kxcall.cfg beside this program, made with a default text if there is none. A file that an administrator has
// named stays named as long as it exists.
void name_configuration(ServiceReport& report);

// Takes the registry value away if it names this program's file, which stays.
void forget_configuration(ServiceReport& report);
