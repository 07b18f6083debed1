// The fax engine: the command channel of the fax service, the send and receive threads, the board's reports during a
// session, the published status and the stamp in received files.
#pragma once

#include <cstdint>

#include "diag/diag.h"
#include "provider.h"

// ---- command channel (dev_specific.cpp): the wire format shared with the fax service ------------------------------

enum eTspCmd : int32_t {
    eTspCmd_NOTUSED = -1,
    eTspCmd_TIFFOPEN = 1,
    eTspCmd_TIFFCLOSE = 2,
    eTspCmd_FAXSEND = 3,
    eTspCmd_FAXRECEIVE = 4,
    eTspCmd_ABORT = 5,
    eTspCmd_GETSTATUS = 6,
};

#pragma pack(push, 1)

// Parameters of a transmission or reception.
struct FaxParameters {
    char szHeaderText[50];  // first part of the page header line, may be empty
    char szLocalId[50];     // local identifier: TSI when sending, CSI when receiving; second part of the header line
    uint32_t dwAddHeader;   // non-zero = print a header line on every page
};

struct TspCmdBlock {
    int32_t dwCommand;       // eTspCmd
    uint32_t dwResult;       // out: 0 = succeeded, 1 = failed; TIFFCLOSE: what the driver's close returned
    uint32_t dwSignalEvent;  // 0 = complete through TAPI, else by the named event
    uint32_t reserved0;
    uint64_t qwEventKey;      // names the completion event
    uint32_t dwDeviceIDBase;  // out
    uint32_t reserved1;
    union {
        struct {
            char szPath[260];
            char szMode[792];  // open mode of the driver's TIFF open, NUL-terminated
        } tiff;
        FaxParameters fax;
    };
    uint32_t dwJobCommand;  // TIFFCLOSE: eTspCmd_FAXRECEIVE = stamp the job's result into the file
};

#pragma pack(pop)

static_assert(offsetof(TspCmdBlock, dwResult) == 4 && offsetof(TspCmdBlock, dwSignalEvent) == 8, "command block");
static_assert(offsetof(TspCmdBlock, qwEventKey) == 16 && offsetof(TspCmdBlock, dwDeviceIDBase) == 24, "command block");
static_assert(offsetof(TspCmdBlock, tiff.szPath) == 32 && offsetof(TspCmdBlock, tiff.szMode) == 292, "command block");
static_assert(offsetof(TspCmdBlock, fax.szHeaderText) == 32 && offsetof(TspCmdBlock, fax.szLocalId) == 82,
              "command block");
static_assert(offsetof(TspCmdBlock, fax.dwAddHeader) == 132 && sizeof(FaxParameters) == 104, "command block");
static_assert(offsetof(TspCmdBlock, dwJobCommand) == 1084 && sizeof(TspCmdBlock) == 1088, "command block");

// Argument of a fax thread, from GlobalAlloc; the thread frees it.
struct FaxThreadArgs {
    LineRec* pLine;
    FaxParameters parameters;
};
static_assert(sizeof(FaxThreadArgs) == 112, "argument of a fax thread");
static_assert(offsetof(FaxThreadArgs, parameters.szLocalId) == 58, "argument of a fax thread");

// Tells the fax service of progress or of the end of a job. Takes no lock; an exception of TAPI's procedure is
// swallowed.
void Send_CallDevSpecific(LineRec* pLine, uint32_t dwParam1, uint32_t dwParam2, uint32_t dwParam3);
constexpr uint32_t NOTIFY_JOB_ENDED = 1;  // the other two parameters are the job's KXResult
constexpr uint32_t NOTIFY_PROGRESS = 3;   // the fax status has changed: read it from the shared segment

// ---- names for the trace (result_names.cpp): "Unknown !" or "?? Unknown ??" for a value that has none --------------

const wchar_t* eTspCmd_name(int32_t command);
const wchar_t* KX_STATUS_name(uint32_t status);
const wchar_t* line_status_name(uint32_t status, uint32_t line_status);

// ---- fax threads --------------------------------------------------------------------------------------------------

// Bodies of the fax threads; args is a FaxThreadArgs.
void __cdecl Thread_Send_Fax(void* args);
void __cdecl Thread_Receive_Fax(void* args);

// One transmission in the session of a connected call: the result of the last driver call made; status 0 = sent.
KXResult SendStraightTIFF(LineRec* pLine);

// The frame of a fax thread, fax_thread.h, and what both threads do inside it (fax_session.cpp).
// Makes the line's board reports reach InterruptFromLUM, or nobody.
void install_report_handler(LineRec* pLine, DornIncomingCmdFunc handler);
// A board that lacks the fax capability needs an option set before a session.
void prepare_channel_for_fax(LineRec* pLine);
void set_local_id(LineRec* pLine, const char* szLocalId);
// Starts the line's status afresh and publishes it. Line lock held.
void clear_fax_status(LineRec* pLine);
// Puts the remote station's identifier into the line's status and publishes it. Line lock held.
void store_remote_id(LineRec* pLine, const DornRemoteInfo& remoteInfo);
inline KXResult result_of(const DornFaxRecord& fax) {
    return {fax.status, fax.line_status};
}
// Publishes the result of the job, without the line lock, and reports the call disconnected.
void publish_result(LineRec* pLine, const KXResult& result);
void report_disconnected(LineRec* pLine, uint32_t mode);
// Gives the line up; the record may be gone right after.
LineIdentity end_fax_job(LineRec* pLine);

// Handler of the board's reports during a session, called by the driver on its own thread (board_reports.cpp).
void InterruptFromLUM(DornLine* boardLine, DornReport* packet, uint32_t unit);

// ---- published status (fax_status.cpp) ----------------------------------------------------------------------------

// Extended status codes of the Windows fax provider interface.
enum : uint32_t {
    FS_COMPLETED = 0x20000008,
    FS_FATAL_ERROR = 0x20000800,
    FS_NOT_FAX_CALL = 0x20001000,
    FS_DISCONNECTED = 0x20000400,
    FS_USER_ABORT = 0x20200000,
};

// Copies the line's fax status into its shared record, but not the result of the last job. Line lock held.
void UpdateSharedMemory(LineRec* pLine);
// The extended status code of the result in the line's shared record.
uint32_t GetFaxExtendedStatusCode(LineRec* pLine);

// ---- stamp in received files (tiff_stamp.cpp, placeholder_tiff.cpp) -----------------------------------------------

// A stamp: the code as ten decimal digits and a NUL, the value of the TIFF 6.0 Software tag.
constexpr uint32_t STAMP_SIZE = 11;
void format_stamp(char (&stamp)[STAMP_SIZE], uint32_t code);

// TIFF 6.0 tags and field types that the provider writes or looks for.
enum : uint16_t {
    TIFFTAG_SOFTWARE = 305,
    TIFFTAG_TARGETPRINTER = 337,
    TIFF_ASCII = 2,
    TIFF_SHORT = 3,
    TIFF_LONG = 4,
    TIFF_RATIONAL = 5,
};

// Stamps the result of a failed job into the line's TIFF file, which must be closed; a file without a page is rebuilt
// as a placeholder. A good job's file keeps the stamp that it was received with. Line lock held.
void UpdateFaxStatus(LineRec* pLine);
// Rewrites the line's open TIFF file as one page marked as aborted. 0, or the failing step's result.
int RebuildPlaceholderTiff(LineRec* pLine);

// Driver calls on the line's file.
DornTiff* open_tiff(const char* path, const char* mode);
int close_tiff(DornTiff* hTiff);
