// The call configuration file, and the registry value that names it for the provider.
#pragma once

#include <string_view>

#include "service_report.h"

// Under HKEY_LOCAL_MACHINE: where the provider looks up the path of the call configuration file, and what it has room
// for, in characters without the terminator.
constexpr wchar_t PARAMETERS_KEY[] = L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters";
constexpr wchar_t CONFIGURATION_VALUE[] = L"kxcall";
constexpr size_t CONFIGURATION_PATH_LIMIT = 129;

// What a call configuration file says that nobody has edited yet.
extern const std::string_view DEFAULT_CALL_CONFIGURATION;

// Names kxcall.cfg beside this program, made with a default text if there is none. A file that an administrator has
// named stays named as long as it exists.
void name_configuration(ServiceReport& report);

// Takes the registry value away if it names this program's file, which stays.
void forget_configuration(ServiceReport& report);
