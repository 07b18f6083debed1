// The line's fax status in the shared segment, and the fax service's code for the result that stands there.
#include "diag/diag.h"
#include "fax/qorv_fax.h"

namespace {

struct StatusCode {
    uint32_t status;
    uint32_t first_detail;
    uint32_t last_detail;
    uint32_t code;
};
constexpr uint32_t ANY = 0xFFFFFFFF;
constexpr StatusCode STATUS_CODES[] = {
    {KX_STATUS_OK, 0, ANY, FS_COMPLETED},
    {KX_STATUS_ERROR, APIERR_FILEIO, APIERR_FILEFORMAT, FS_FATAL_ERROR},
    {KX_STATUS_ERROR_HANGUP, 0, ANY, FS_DISCONNECTED},
    {KX_STATUS_ALERT, 0, ANY, FS_USER_ABORT},
};

uint32_t extended_status_code(uint32_t status, uint32_t detail) {
    for (const StatusCode& row : STATUS_CODES)
        if (row.status == status && detail >= row.first_detail && detail <= row.last_detail) return row.code;
    return FS_NOT_FAX_CALL;
}

}  // namespace

void UpdateSharedMemory(LineRec* pLine) {
    with_line("UpdateSharedMemory", pLine, [&] {
        if (FaxStatusBlock* record = shared_record(pLine)) record->body = pLine->FaxStatus;
    });
}

uint32_t GetFaxExtendedStatusCode(LineRec* pLine) {
    uint32_t code = FS_COMPLETED;
    with_line("GetFaxExtendedStatusCode", pLine, [&] {
        if (const FaxStatusBlock* record = shared_record(pLine))
            code = extended_status_code(record->status, record->line_status);
    });
    return code;
}
