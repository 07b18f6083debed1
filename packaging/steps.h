// What an installation consists of. Each step notes its change before it makes it, does nothing where all is in place,
// and gives false when it failed; `error` then says at what and why.
#pragma once

#include <string>
#include <vector>

#include "install_log.h"
#include "registry.h"

struct Installation {
    InstallLog log;
    std::vector<std::string> lines;
    std::string error;
};

// Copies a file, over a different one if there is one.
bool put_file(Installation& installation, const std::wstring& source, const std::wstring& target);

// Writes a file that administrators may edit. One that is there stays.
bool put_configuration(Installation& installation, const std::string& content, const std::wstring& target);

// Makes the folder; the one that it lies in must be there.
bool make_folder(Installation& installation, const std::wstring& path);

// Sets a value under HKEY_LOCAL_MACHINE and makes the keys that lead to it.
bool set_value(Installation& installation, const std::wstring& key, const std::wstring& name,
               const RegistryValue& value);

// The host service and the placeholder of the fax service. A service of that name that is there stays as it is.
bool put_host_service(Installation& installation, const std::wstring& program);
bool put_fax_stand_in(Installation& installation, const std::wstring& program);

// Stops the host service if it runs this program, which is about to be replaced. Waits 10 s at most.
bool stop_host_service_of(Installation& installation, const std::wstring& program);

// Starts the host service if it does not run, and waits until it does, 30 s at most.
bool start_host_service(Installation& installation);

// Adds the provider to TAPI. On a machine without a telephony service that is an error, unless it is for a trial.
bool add_to_telephony(Installation& installation, const std::wstring& file_name, bool trial);
