// The single checks, in the order in which check_machine makes them, and what some of them learn for others.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "calddlld.h"
#include "check.h"
#include "owned.h"

// What to do when something of the board is missing.
constexpr char BOARD_ADVICE[] = "qorvsetup install --software-board, or the board maker's software";

// For what this account must not see.
CheckResult hidden(const std::string& name, const std::string& what);

// "a, b, c and 4 more".
std::string first_few(const std::vector<std::string>& texts);

// ---- the provider and what it belongs to --------------------------------------------------------------------------

struct Telephony {
    bool has_service = false;
    bool service_runs = false;
    uint32_t list_error = 0;  // LINEERR_*, when TAPI does not tell its providers
    bool registered = false;
    uint32_t provider_id = 0;
};

Telephony look_at_telephony();

CheckResult check_provider();
CheckResult check_telephony(const Telephony& telephony);
CheckResult check_host_service();
CheckResult check_fax_service();
CheckResult check_event_source();
CheckResult check_segment();
CheckResult check_panic_folder();
CheckResult check_fax_devices();

// ---- the board ----------------------------------------------------------------------------------------------------

// The call configuration as the provider finds it.
struct Configuration {
    uint32_t key_error = 0;
    bool named = false;       // there is a value kxcall
    std::wstring path;        // what it says
    bool passed_on = false;   // the driver library gets all of it
    std::string driver_path;  // what the driver library gets; empty when the provider cannot read the value
};

Configuration look_at_configuration();

CheckResult check_configuration_key(const Configuration& configuration);
CheckResult check_configuration_file(const Configuration& configuration);

// What the check calls of the driver library.
#define DRIVER_PARTS(X)        \
    X(DornInitialize)          \
    X(DornShutdown)            \
    X(DornModuleInfo)          \
    X(DornLineAttach)          \
    X(DornSessionDetach)       \
    X(DornLineReset)           \
    X(DornLineCapCheck)        \
    X(DornErrorMessage)        \
    X(_dorn_api_ver_compiled)  \
    X(_dorn_api_ver_bld_comp)  \
    X(_dorn_api_ver_auto_comp) \
    X(_dorn_pkt_version_exp)

struct DriverLibrary {
    OwnedModule module;  // null: it cannot be used
#define X(name) decltype(&::name) name = nullptr;
    DRIVER_PARTS(X)
#undef X
};

// Loads the library when it is in order.
CheckResult check_driver_library(DriverLibrary& driver);

// Attaches, resets and gives back every channel, unless somebody else has them now. Blocks for as long as that takes.
CheckResult check_channels(const DriverLibrary& driver, const Configuration& configuration, const Telephony& telephony);
