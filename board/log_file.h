// Where log lines go: a file that is rotated by size, and the debugger output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace softboard {

struct LogFile {
    std::string path;        // empty = no file
    uint32_t max_bytes = 0;  // the file is rotated before it grows beyond this
    uint32_t keep = 0;       // rotated files: path.1 is the youngest
    FILE* stream = nullptr;
    bool failed = false;  // could not be opened: not tried again until it is configured anew
};

// Appends the line and brings it to the operating system. A file that cannot be written is given up silently.
void write_log_file(LogFile& file, const std::string& line);
void close_log_file(LogFile& file);

}  // namespace softboard
