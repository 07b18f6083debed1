// A machine to install on that is a test's own: folders, registry, services and telephony, put under the set-up program
// by way of the import table. Files and the registry are real, but in a folder and a key of their own; services and
// TAPI are played. Any call that changes something can be made to fail.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

#include "harness/import_table.h"
#include "owned.h"
#include "temporary_folder.h"

struct PretendedService {
    std::wstring command;
    std::wstring account;
    DWORD start_type = 0;
    DWORD state = SERVICE_STOPPED;
    bool restarts_on_failure = false;
};

struct PretendedMachine {
    PretendedMachine();
    ~PretendedMachine();
    PretendedMachine(const PretendedMachine&) = delete;
    PretendedMachine& operator=(const PretendedMachine&) = delete;

    // The path of a file or folder of the machine; its folders are "system", "programs", "data" and "package".
    std::wstring path(const std::string& name) const;
    std::string content(const std::string& name) const;
    void write(const std::string& name, const std::string& content) const;
    // A file of the package as the version functions of Windows see it: a program of this name, description, version.
    void write_program(const std::string& name, const std::string& description, int version) const;

    // Every file and folder but the package's, every registry value, service and provider, a line each.
    std::vector<std::string> snapshot();

    TemporaryFolder folder;
    OwnedKey registry;  // stands for HKEY_LOCAL_MACHINE
    bool administrator = true;

    std::map<std::wstring, PretendedService> services;
    bool services_start = true;

    bool has_telephony = true;
    LONG add_result = 0;
    LONG remove_result = 0;
    std::vector<std::wstring> providers;
    std::vector<std::string> at_adding;  // the snapshot when the provider was added

    // Of the calls that may change something: how many there were, and which of them fail, from which (1 = the first)
    // to which. -1 = none fails. Those of a snapshot do not count.
    bool looking = false;
    int changes = 0;
    int first_failing = -1;
    int last_failing = -1;
    std::string failing_name;  // all of this name fail
    std::string failed_call;   // the name of the last one that was made to fail

    harness::Replacements replacements;
};
