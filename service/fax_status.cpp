// Names of job results and the reading of one record of the shared segment.
#include "fax_status.h"

#include "text.h"

namespace {

constexpr char NO_NAME[] = "?? Unknown ??";

struct NamedValue {
    uint32_t value;
    const char* name;
};

constexpr NamedValue KX_STATUS_NAMES[] = {
    {0, "KX_STATUS_OK"},
    {2, "KX_STATUS_ERROR"},
    {3, "KX_STATUS_ERROR_DIAL"},
    {4, "KX_STATUS_ERROR_HANGUP"},
    {5, "KX_STATUS_USER_TERMINATED"},
    {6, "KX_STATUS_TIMEOUT"},
    {7, "KX_STATUS_ALERT"},
    {8, "KX_STATUS_VV"},
};

struct NamedDetail {
    uint32_t status;
    uint32_t line_status;
    const char* name;
};

constexpr NamedDetail KX_DETAIL_NAMES[] = {
    {2, 0, "APIERR_UNCLASSIFIED"},
    {2, 1, "APIERR_FILEIO"},
    {2, 2, "APIERR_FILEFORMAT"},
    {2, 3, "APIERR_BOARDCAPABILITY"},
    {2, 4, "APIERR_NOTCONNECTED"},
    {2, 5, "APIERR_BADPARAMETER"},
    {2, 6, "APIERR_MEMORY"},
    {2, 7, "APIERR_BADSTATE"},
    {2, 8, "APIERR_TOOSOON"},
    {2, 9, "APIERR_BUSY"},
    {2, 10, "APIERR_DRV_OPEN_ERROR"},
    {2, 11, "APIERR_DRV_IOCTL_ERROR"},
    {2, 12, "APIERR_VERSION"},
    {2, 13, "APIERR_INVALID_PORT"},
    {2, 14, "APIERR_RINGING"},
    {2, 15, "APIERR_INFOPKT_NESTING"},
    {2, 16, "APIERR_MAX_TAGS"},
    {2, 17, "APIERR_LOCK_FAILED"},
    {6, 0, "API_TO_TIME"},
    {6, 1, "API_TO_SILENCE"},
};

constexpr uint32_t FS_DISCONNECTED = 0x20000400;
constexpr uint32_t FS_FATAL_ERROR = 0x20000800;
constexpr uint32_t FS_NOT_FAX_CALL = 0x20001000;
constexpr uint32_t FS_COMPLETED = 0x20000008;
constexpr uint32_t FS_USER_ABORT = 0x20200000;

constexpr NamedValue FS_NAMES[] = {
    {FS_COMPLETED, "FS_COMPLETED"},       {FS_DISCONNECTED, "FS_DISCONNECTED"}, {FS_FATAL_ERROR, "FS_FATAL_ERROR"},
    {FS_NOT_FAX_CALL, "FS_NOT_FAX_CALL"}, {FS_USER_ABORT, "FS_USER_ABORT"},
};

constexpr uint32_t ANY = UINT32_MAX;

struct FsMapping {
    uint32_t status;
    uint32_t line_status;
    uint32_t code;
};

// The first row that fits decides.
constexpr FsMapping FS_CODES[] = {
    {0, ANY, FS_COMPLETED},    {2, 1, FS_FATAL_ERROR},  {2, 2, FS_FATAL_ERROR},
    {4, ANY, FS_DISCONNECTED}, {7, ANY, FS_USER_ABORT}, {ANY, ANY, FS_NOT_FAX_CALL},
};

}  // namespace

FaxStatus fax_status_of(const FaxStatusBlock& record) {
    FaxStatus status;
    status.status = record.status;
    status.line_status = record.line_status;
    status.dwPageCount = record.dwPageCount;
    status.remote_id = utf8_of_ansi(record.szRemoteId, sizeof(record.szRemoteId));
    status.called_id = utf8_of_wide(record.wszCalledId, 256);
    status.caller_id = utf8_of_wide(record.wszCallerId, 256);
    return status;
}

bool fax_body_is_empty(const FaxStatusBlock& record) {
    return record.szRemoteId[0] == 0 && record.wszCalledId[0] == 0 && record.wszCallerId[0] == 0 &&
           record.dwPageCount == 0;
}

uint32_t fax_pages_of(const FaxStatus& status) {
    return status.dwPageCount + (status.status == 0 ? 1 : 0);
}

const char* kx_status_name(uint32_t status) {
    for (const NamedValue& row : KX_STATUS_NAMES) {
        if (row.value == status) return row.name;
    }
    return NO_NAME;
}

const char* kx_line_status_name(uint32_t status, uint32_t line_status) {
    for (const NamedDetail& row : KX_DETAIL_NAMES) {
        if (row.status == status && row.line_status == line_status) return row.name;
    }
    return NO_NAME;
}

std::string kx_result_text(uint32_t status, uint32_t line_status) {
    std::string text = kx_status_name(status);
    if (text == NO_NAME) text = format("KX_STATUS %u", status);
    const std::string detail = kx_line_status_name(status, line_status);
    if (detail != NO_NAME) return text + " / " + detail;
    return line_status == 0 ? text : text + format(" / line_status %u", line_status);
}

uint32_t fs_code_of(uint32_t status, uint32_t line_status) {
    for (const FsMapping& row : FS_CODES) {
        if ((row.status == ANY || row.status == status) && (row.line_status == ANY || row.line_status == line_status)) {
            return row.code;
        }
    }
    return FS_NOT_FAX_CALL;
}

const char* fs_code_name(uint32_t code) {
    for (const NamedValue& row : FS_NAMES) {
        if (row.value == code) return row.name;
    }
    return NO_NAME;
}
