// Failures of the telephony host in words.
#include "failure.h"

#include "fax_status.h"
#include "names.h"
#include "text.h"

namespace {

struct JobAdvice {
    uint32_t status;
    int64_t line_status;  // -1 = any
    const char* advice;
};

// The first row that fits decides.
constexpr JobAdvice JOB_ADVICE[] = {
    {2, 1, "check the file and the free space of its folder"},
    {2, 2, "the file is no fax TIFF that the board takes; check it with tiffinfo"},
    {2, 3, "the two ends have no rate or format in common; try another line or a page of standard size"},
    {2, 4, "the other end is no longer there; send again"},
    {2, -1, "the two ends did not come to terms; send again, and look with --trace 1-4 if it stays"},
    {3, -1, "check the number"},
    {4, -1, "the other end hung up; send again the pages that did not go through"},
    {5, -1, "the job was ended on purpose"},
    {6, -1, "the other end fell silent; check that it is a fax machine and send again"},
    {7, -1, "the job was aborted; send it again if that was not meant"},
};
constexpr char GENERAL_JOB_ADVICE[] = "send again, and look with --trace 1-4 if it stays";

const char* job_advice(uint32_t status, uint32_t line_status) {
    for (const JobAdvice& row : JOB_ADVICE) {
        if (row.status == status && (row.line_status < 0 || row.line_status == line_status)) return row.advice;
    }
    return GENERAL_JOB_ADVICE;
}

}  // namespace

std::string failure_line(const Failure& failure) {
    std::string line = failure.name.empty() ? failure.text : failure.name + ": " + failure.text;
    if (!failure.advice.empty()) line += "; " + failure.advice;
    return line;
}

Failure line_error_failure(int32_t result, const std::string& doing, int exit_status) {
    return {exit_status, lineerr_name(result), "the provider refused while " + doing, lineerr_advice(result)};
}

Failure job_failure(uint32_t status, uint32_t line_status, const std::string& doing) {
    return {EXIT_FAX_FAILED, kx_result_text(status, line_status), doing + " failed", job_advice(status, line_status)};
}

Failure interrupted_failure() {
    return {EXIT_INTERRUPTED, "FS_USER_ABORT", "interrupted; everything was ended in order", ""};
}
