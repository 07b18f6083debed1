// How everything in the telephony host fails: one value by name, one sentence about what happened, one about what to
// do. Functions return it and an empty one means that all went well.
#pragma once

#include <cstdint>
#include <string>

// Exit statuses of faxhost.
enum ExitStatus : int {
    EXIT_GOOD = 0,
    EXIT_FAX_FAILED = 1,     // the provider ran, the fax did not go through
    EXIT_USAGE = 2,          // wrong arguments
    EXIT_FILE = 3,           // a file or folder that cannot be used
    EXIT_PROVIDER = 4,       // the provider cannot be loaded, started or given a line
    EXIT_INTERRUPTED = 130,  // Ctrl-C
};

struct [[nodiscard]] Failure {
    int exit_status = EXIT_GOOD;
    std::string name;    // LINEERR_*, KX_STATUS_* / APIERR_*, FS_*
    std::string text;    // what happened
    std::string advice;  // what to do about it
    explicit operator bool() const { return exit_status != EXIT_GOOD; }
};

// "NAME: text; advice".
std::string failure_line(const Failure& failure);

// An entry point of the provider returned or completed with a LINEERR_* code. `doing` completes "while ...".
Failure line_error_failure(int32_t result, const std::string& doing, int exit_status);

// A fax job ended with this result, which is not KX_STATUS_OK.
Failure job_failure(uint32_t status, uint32_t line_status, const std::string& doing);

// Ctrl-C, or the other half of a loopback that has failed.
Failure interrupted_failure();
