// Names of commands and results for the trace.
#include "fax/qorv_fax.h"

namespace {

constexpr wchar_t UNKNOWN_COMMAND[] = L"Unknown !";
constexpr wchar_t UNKNOWN_RESULT[] = L"?? Unknown ??";

struct Name {
    int64_t value;
    const wchar_t* name;
};

constexpr Name COMMANDS[] = {
    {eTspCmd_NOTUSED, L"eTspCmd_NOTUSED"},       {eTspCmd_TIFFOPEN, L"eTspCmd_TIFFOPEN"},
    {eTspCmd_TIFFCLOSE, L"eTspCmd_TIFFCLOSE"},   {eTspCmd_FAXSEND, L"eTspCmd_FAXSEND"},
    {eTspCmd_FAXRECEIVE, L"eTspCmd_FAXRECEIVE"}, {eTspCmd_ABORT, L"eTspCmd_ABORT"},
    {eTspCmd_GETSTATUS, L"eTspCmd_GETSTATUS"},
};

constexpr Name STATUSES[] = {
    {KX_STATUS_OK, L"KX_STATUS_OK"},
    {KX_STATUS_ERROR, L"KX_STATUS_ERROR"},
    {KX_STATUS_ERROR_DIAL, L"KX_STATUS_ERROR_DIAL"},
    {KX_STATUS_ERROR_HANGUP, L"KX_STATUS_ERROR_HANGUP"},
    {KX_STATUS_USER_TERMINATED, L"KX_STATUS_USER_TERMINATED"},
    {KX_STATUS_TIMEOUT, L"KX_STATUS_TIMEOUT"},
    {KX_STATUS_ALERT, L"KX_STATUS_ALERT"},
    {KX_STATUS_VV, L"KX_STATUS_VV"},
};

constexpr Name ERROR_DETAILS[] = {
    {APIERR_UNCLASSIFIED, L"APIERR_UNCLASSIFIED"},
    {APIERR_FILEIO, L"APIERR_FILEIO"},
    {APIERR_FILEFORMAT, L"APIERR_FILEFORMAT"},
    {APIERR_BOARDCAPABILITY, L"APIERR_BOARDCAPABILITY"},
    {APIERR_NOTCONNECTED, L"APIERR_NOTCONNECTED"},
    {APIERR_BADPARAMETER, L"APIERR_BADPARAMETER"},
    {APIERR_MEMORY, L"APIERR_MEMORY"},
    {APIERR_BADSTATE, L"APIERR_BADSTATE"},
    {APIERR_TOOSOON, L"APIERR_TOOSOON"},
    {APIERR_BUSY, L"APIERR_BUSY"},
    {APIERR_DRV_OPEN_ERROR, L"APIERR_DRV_OPEN_ERROR"},
    {APIERR_DRV_IOCTL_ERROR, L"APIERR_DRV_IOCTL_ERROR"},
    {APIERR_VERSION, L"APIERR_VERSION"},
    {APIERR_INVALID_PORT, L"APIERR_INVALID_PORT"},
    {APIERR_RINGING, L"APIERR_RINGING"},
    {APIERR_INFOPKT_NESTING, L"APIERR_INFOPKT_NESTING"},
    {APIERR_MAX_TAGS, L"APIERR_MAX_TAGS"},
    {APIERR_LOCK_FAILED, L"APIERR_LOCK_FAILED"},
};

constexpr Name TIMEOUT_DETAILS[] = {
    {API_TO_TIME, L"API_TO_TIME"},
    {API_TO_SILENCE, L"API_TO_SILENCE"},
};

template <size_t N>
const wchar_t* find_name(const Name (&names)[N], int64_t value, const wchar_t* unknown) {
    for (const Name& row : names)
        if (row.value == value) return row.name;
    return unknown;
}

}  // namespace

const wchar_t* eTspCmd_name(int32_t command) {
    return find_name(COMMANDS, command, UNKNOWN_COMMAND);
}

const wchar_t* KX_STATUS_name(uint32_t status) {
    return find_name(STATUSES, status, UNKNOWN_RESULT);
}

const wchar_t* line_status_name(uint32_t status, uint32_t line_status) {
    switch (status) {
        case KX_STATUS_ERROR:
            return find_name(ERROR_DETAILS, line_status, UNKNOWN_RESULT);
        case KX_STATUS_TIMEOUT:
            return find_name(TIMEOUT_DETAILS, line_status, UNKNOWN_RESULT);
        default:
            return UNKNOWN_RESULT;
    }
}
