#include <windows.h>

#include "config.h"

namespace softboard {

std::string config_path() {
    char path[MAX_PATH];
    const DWORD length = GetEnvironmentVariableA("QORV_SOFTBOARD", path, MAX_PATH);
    if (length > 0 && length < MAX_PATH) return path;
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const char*>(&config_path), &self);
    const DWORD size = GetModuleFileNameA(self, path, MAX_PATH);
    if (size == 0 || size >= MAX_PATH) return {};
    const std::string file(path);
    const std::string beside = file.substr(0, file.find_last_of("\\/") + 1) + "softboard.ini";
    return GetFileAttributesA(beside.c_str()) == INVALID_FILE_ATTRIBUTES ? std::string() : beside;
}

}  // namespace softboard
