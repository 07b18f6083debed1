#include "temp_file.h"

#include <windows.h>

#include <atomic>

#include "failure.h"

namespace softboard {

// spandsp keeps paths in 256 bytes.
constexpr size_t LONGEST_PATH = 255;

TempFile::TempFile() {
    static std::atomic<unsigned> count{0};
    char folder[MAX_PATH + 1];
    const DWORD length = GetTempPathA(sizeof folder, folder);
    if (length == 0 || length > MAX_PATH) fail(APIERR_FILEIO, "there is no folder for temporary files");
    path_ = std::string(folder) + "calddlld-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count) +
            ".tif";
    if (path_.size() > LONGEST_PATH) fail(APIERR_FILEIO, "the path of the folder for temporary files is too long");
}

TempFile::~TempFile() {
    if (!path_.empty()) DeleteFileA(path_.c_str());
}

}  // namespace softboard
