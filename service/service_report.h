// What an installation or removal has done so far, and where it failed.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

// What was done, a line each; `error` is 0 or the Windows error that ended it, `failed_step` what it was doing then.
struct ServiceReport {
    std::vector<std::string> lines;
    uint32_t error = 0;
    std::string failed_step;
};

inline void fail(ServiceReport& report, const std::string& step, uint32_t error) {
    report.error = error;
    report.failed_step = step;
}

// Notes the step that failed together with the last error.
inline void fail(ServiceReport& report, const std::string& step) {
    fail(report, step, GetLastError());
}
