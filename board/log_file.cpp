#include "log_file.h"

#include <windows.h>

namespace softboard {

static std::string rotated_name(const LogFile& file, uint32_t age) {
    return file.path + "." + std::to_string(age);
}

static void rotate(LogFile& file) {
    close_log_file(file);
    if (file.keep == 0) {
        DeleteFileA(file.path.c_str());
        return;
    }
    for (uint32_t age = file.keep; age > 1; --age) {
        MoveFileExA(rotated_name(file, age - 1).c_str(), rotated_name(file, age).c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    MoveFileExA(file.path.c_str(), rotated_name(file, 1).c_str(), MOVEFILE_REPLACE_EXISTING);
}

static bool open(LogFile& file) {
    if (file.stream == nullptr && !file.failed && !file.path.empty()) {
        file.stream = fopen(file.path.c_str(), "ab");
        file.failed = file.stream == nullptr;
        // An appending stream stands at 0 until it has written; rotation asks where it stands.
        if (file.stream != nullptr) fseek(file.stream, 0, SEEK_END);
    }
    return file.stream != nullptr;
}

void write_log_file(LogFile& file, const std::string& line) {
    if (!open(file)) return;
    const long size = ftell(file.stream);
    if (size > 0 && size + line.size() > file.max_bytes) {
        rotate(file);
        if (!open(file)) return;
    }
    fwrite(line.data(), 1, line.size(), file.stream);
    fflush(file.stream);
}

void close_log_file(LogFile& file) {
    if (file.stream != nullptr) fclose(file.stream);
    file.stream = nullptr;
}

}  // namespace softboard
