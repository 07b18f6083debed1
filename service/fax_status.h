// What the provider publishes of the fax jobs of its lines, as its readers see it: the records of the shared segment,
// and the names of the result codes. Used by the host service and by the telephony host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// ---- the shared segment -------------------------------------------------------------------------------------------

constexpr wchar_t FAX_SEGMENT_NAME[] = L"HalvorsundMSFTSPSharedMemory";
constexpr uint32_t FAX_RECORD_COUNT = 4048;

#pragma pack(push, 1)

// One channel's record, indexed by its unit number. The result is that of the last finished job; the body (from
// szRemoteId on) is that of the job in progress, and empty between calls.
struct FaxStatusBlock {
    uint32_t dwReserved;
    uint32_t status;       // KX_STATUS_*
    uint32_t line_status;  // detail, its meaning depends on status
    char szRemoteId[20];   // CSID when sending, TSID when receiving
    char cRemoteIdEnd;     // always 0
    uint8_t padding0;
    wchar_t wszCalledId[256];  // of a received fax; a second identification text follows behind a "|"
    wchar_t wszCallerId[256];  // of a received fax
    uint8_t padding1[2];
    uint32_t dwPageCount;  // pages followed by another one: the last page of a job is never counted
};

#pragma pack(pop)

static_assert(offsetof(FaxStatusBlock, status) == 4);
static_assert(offsetof(FaxStatusBlock, line_status) == 8);
static_assert(offsetof(FaxStatusBlock, szRemoteId) == 12);
static_assert(offsetof(FaxStatusBlock, cRemoteIdEnd) == 32);
static_assert(offsetof(FaxStatusBlock, wszCalledId) == 34);
static_assert(offsetof(FaxStatusBlock, wszCallerId) == 546);
static_assert(offsetof(FaxStatusBlock, dwPageCount) == 1060);
static_assert(sizeof(FaxStatusBlock) == 1064);

constexpr size_t FAX_SEGMENT_SIZE = FAX_RECORD_COUNT * sizeof(FaxStatusBlock);
static_assert(FAX_SEGMENT_SIZE == 4307072);

// The texts of a record as UTF-8, read once: a record may change while it is being read.
struct FaxStatus {
    uint32_t status = 0;
    uint32_t line_status = 0;
    uint32_t dwPageCount = 0;
    std::string remote_id;
    std::string called_id;
    std::string caller_id;
};

FaxStatus fax_status_of(const FaxStatusBlock& record);

// False when the record carries anything of a job: an identification, a number, a page.
bool fax_body_is_empty(const FaxStatusBlock& record);

// Pages that went through: one more than were counted when the job ended well.
uint32_t fax_pages_of(const FaxStatus& status);

// ---- names of results ---------------------------------------------------------------------------------------------

// "?? Unknown ??" for a value that has no name, as the provider prints it.
const char* kx_status_name(uint32_t status);
const char* kx_line_status_name(uint32_t status, uint32_t line_status);

// "KX_STATUS_OK", "KX_STATUS_ERROR / APIERR_FILEIO", "KX_STATUS_ALERT / line_status 17".
std::string kx_result_text(uint32_t status, uint32_t line_status);

// The fax service's extended status code for a job result, as it is stamped into a received file.
uint32_t fs_code_of(uint32_t status, uint32_t line_status);

// "FS_COMPLETED", or "?? Unknown ??".
const char* fs_code_name(uint32_t code);
