// A log of one line per event, rotated by size.
#pragma once

#include <string>
#include <string_view>

// Where the log is.
struct LogFile {
    std::wstring path;
};

constexpr long long LOG_FILE_LIMIT = 1024LL * 1024;  // bytes, then FILE becomes FILE.1, FILE.1 becomes FILE.2, ...
constexpr int LOG_FILES_KEPT = 3;

// The log of the host service: %ProgramData%\Calder\calder.log, beside the program when there is no such folder.
// Creates the folder.
LogFile service_log();

// Appends "2026-01-31 12:00:00 LINE". Opens and closes the file, so that it can be read, moved and removed at any time.
// Returns 0 or the Windows error.
unsigned long log_write(const LogFile& log, std::string_view line);
