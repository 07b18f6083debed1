// This machine, as installation, removal and check see it: rights, folders, files, services. Nothing is changed.
#pragma once

#include <cstdint>
#include <string>

constexpr wchar_t PROVIDER_FILE[] = L"qorvtsp.tsp";
constexpr wchar_t DRIVER_FILE[] = L"calddlld.dll";

// True with an administrator's rights in effect (elevated).
bool is_administrator();

// ---- folders, without a backslash at the end ----------------------------------------------------------------------

std::wstring system_folder();
std::wstring in_system_folder(const wchar_t* file);
// "%ProgramFiles%\Halvorsund Telephony Service Provider", which need not exist.
std::wstring programs_folder();
// "%ProgramData%\Calder", where the host service keeps its log.
std::wstring log_folder();

// The text with its %VARIABLES% replaced.
std::wstring with_environment(const std::wstring& text);

// The current folder is the system folder for as long as it lives, as it is in the telephony service: paths without a
// drive mean the same here and there.
struct ScopedSystemFolder {
    ScopedSystemFolder();
    ~ScopedSystemFolder();
    ScopedSystemFolder(const ScopedSystemFolder&) = delete;
    ScopedSystemFolder& operator=(const ScopedSystemFolder&) = delete;
    std::wstring before;
};

// ---- files --------------------------------------------------------------------------------------------------------

bool is_file(const std::wstring& path);
bool is_folder(const std::wstring& path);
// False when it cannot be read.
bool read_file(const std::wstring& path, std::string& content);
bool same_files(const std::wstring& one, const std::wstring& other);
// Of its content, to tell later whether it is still the same: 16 hexadecimal digits, empty when it cannot be read.
std::wstring file_fingerprint(const std::wstring& path);

// From the version resource. The number is 0 and texts are empty when there is none.
struct FileVersion {
    uint64_t number = 0;  // four parts of 16 bits
    std::wstring description;
    std::wstring internal_name;
};
FileVersion file_version(const std::wstring& path);
// "1.0.0.0"; empty for 0.
std::string version_text(uint64_t number);

// What tells the software board from a board maker's driver library of the same name.
bool is_software_board(const std::wstring& path);

// ---- services -----------------------------------------------------------------------------------------------------

struct ServiceState {
    uint32_t error = 0;  // 0, ERROR_SERVICE_DOES_NOT_EXIST, or why it cannot be asked
    uint32_t state = 0;  // SERVICE_RUNNING, ...
};
ServiceState service_state(const wchar_t* name);
bool service_exists(const wchar_t* name);
// The command line with which the service is started, empty when there is no such service.
std::wstring service_command(const wchar_t* name);
