// Where things are on this machine, and what they are.
#pragma once

#include <cstdint>
#include <string>

// True with an administrator's rights in effect (elevated).
bool is_administrator();

// Without a backslash at the end.
std::wstring system_folder();
// "%ProgramFiles%\Halvorsund Telephony Service Provider", which need not exist.
std::wstring programs_folder();

// "%ProgramData%\\Calder", where the host service keeps its log.
std::wstring log_folder();
// The text with its %VARIABLES% replaced.
std::wstring with_environment(const std::wstring& text);

bool file_exists(const std::wstring& path);
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
// "1.0.0.0", or "without a version".
std::string version_text(uint64_t number);

// What tells the software board from a board maker's driver library of the same name.
bool is_software_board(const std::wstring& path);

// The command line with which the service is started, empty when there is no such service.
std::wstring service_command(const wchar_t* name);
bool service_exists(const wchar_t* name);
