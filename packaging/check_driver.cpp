// The driver library, loaded from where the telephony service finds it.
#include "check_parts.h"
#include "driver_names.h"
#include "machine.h"
#include "text.h"

namespace {

struct LoadAdvice {
    DWORD error;
    const char* advice;
};

constexpr LoadAdvice LOAD_ADVICE[] = {
    {ERROR_MOD_NOT_FOUND, "a DLL that it needs is missing: install the board maker's software again"},
    {ERROR_BAD_EXE_FORMAT, "it is damaged, or no 64-bit DLL: install the board maker's 64-bit software again"},
    {ERROR_ACCESS_DENIED, "give everyone the right to read and execute it"},
};

std::string load_advice(DWORD error) {
    for (const LoadAdvice& row : LOAD_ADVICE) {
        if (row.error == error) return row.advice;
    }
    return "install the board maker's software again";
}

// A library that cannot be loaded is told in a line, not in a window.
struct NoErrorWindows {
    NoErrorWindows() { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &before); }
    ~NoErrorWindows() { SetThreadErrorMode(before, nullptr); }
    NoErrorWindows(const NoErrorWindows&) = delete;
    NoErrorWindows& operator=(const NoErrorWindows&) = delete;
    DWORD before = 0;
};

void* find_export(HMODULE module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(module, name));
}

std::vector<std::string> missing_exports(HMODULE module) {
    std::vector<std::string> missing;
    for (const char* name : DRIVER_NAMES) {
        if (!find_export(module, name)) missing.emplace_back(name);
    }
    return missing;
}

// "Software board, version 1.0.0.0", or what there is of it.
std::string version_of(const std::wstring& path) {
    const FileVersion version = file_version(path);
    const std::string description = version.description.empty() ? "" : utf8(version.description) + ", ";
    return description + (version.number == 0 ? "no version" : "version " + version_text(version.number));
}

}  // namespace

CheckResult check_driver_library(DriverLibrary& driver) {
    const std::string name = "driver library";
    const std::wstring path = in_system_folder(DRIVER_FILE);
    if (!is_file(path)) {
        return {name, Verdict::wrong, "calddlld.dll is not in " + utf8(system_folder()), BOARD_ADVICE};
    }
    const NoErrorWindows no_windows;
    OwnedModule module(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    if (!module) {
        const DWORD error = GetLastError();
        return {name, Verdict::wrong, utf8(path) + " cannot be loaded: " + windows_error(error), load_advice(error)};
    }
    const std::vector<std::string> missing = missing_exports(module.get());
    if (!missing.empty()) {
        return {name, Verdict::wrong, utf8(path) + " is not the driver library: it lacks " + first_few(missing),
                std::string("delete it, then: ") + BOARD_ADVICE};
    }
    driver.module = std::move(module);
#define X(function) \
    driver.function = reinterpret_cast<decltype(driver.function)>(find_export(driver.module.get(), #function));
    DRIVER_PARTS(X)
#undef X
    return {name, Verdict::good, utf8(path) + ", " + version_of(path), ""};
}
