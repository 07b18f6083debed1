// The command block that the fax service passes to TSPI_lineDevSpecific. The provider reads and writes it in place.
#pragma once

#include <cstddef>
#include <cstdint>

enum eTspCmd : int32_t {
    eTspCmd_TIFFOPEN = 1,
    eTspCmd_TIFFCLOSE = 2,
    eTspCmd_FAXSEND = 3,
    eTspCmd_FAXRECEIVE = 4,
    eTspCmd_ABORT = 5,
    eTspCmd_GETSTATUS = 6,
};

// First parameter of LINE_CALLDEVSPECIFIC.
enum eNotification : uint32_t {
    NOTIFICATION_JOB_END = 1,  // parameters 2 and 3: status and line_status
    NOTIFICATION_PROGRESS = 3,
};

// dwJobCommand of eTspCmd_TIFFCLOSE for a received file, whose final status is then stamped into it.
constexpr uint32_t JOB_RECEIVED = eTspCmd_FAXRECEIVE;

#pragma pack(push, 1)

struct TspOpenParameters {
    char szFile[260];
    char szMode[792];  // as of fopen
};

struct TspFaxParameters {
    char szHeaderText[50];  // first part of the header line
    char szLocalId[50];     // TSID or CSID, and second part of the header line
    uint32_t dwAddHeader;   // non-zero = print a header line on every page
    uint8_t reserved[948];
};

struct TspCmdBlock {
    int32_t dwCommand;       // in
    uint32_t dwResult;       // out, 0 = the command succeeded
    uint32_t dwSignalEvent;  // in, 0 = complete through TAPI, else by the named event
    uint8_t reserved[4];
    uint64_t qwEventKey;      // in, names the event
    uint32_t dwDeviceIDBase;  // out
    uint8_t reserved2[4];
    union {
        TspOpenParameters open;  // eTspCmd_TIFFOPEN
        TspFaxParameters fax;    // eTspCmd_FAXSEND, eTspCmd_FAXRECEIVE
    };
    uint32_t dwJobCommand;  // in, eTspCmd_TIFFCLOSE
};

#pragma pack(pop)

static_assert(offsetof(TspCmdBlock, dwCommand) == 0);
static_assert(offsetof(TspCmdBlock, dwResult) == 4);
static_assert(offsetof(TspCmdBlock, dwSignalEvent) == 8);
static_assert(offsetof(TspCmdBlock, qwEventKey) == 16);
static_assert(offsetof(TspCmdBlock, dwDeviceIDBase) == 24);
static_assert(offsetof(TspCmdBlock, open.szFile) == 32);
static_assert(offsetof(TspCmdBlock, open.szMode) == 292);
static_assert(offsetof(TspCmdBlock, fax.szHeaderText) == 32);
static_assert(offsetof(TspCmdBlock, fax.szLocalId) == 82);
static_assert(offsetof(TspCmdBlock, fax.dwAddHeader) == 132);
static_assert(offsetof(TspCmdBlock, dwJobCommand) == 1084);
static_assert(sizeof(TspCmdBlock) == 1088);

// Names the event that completes a command when dwSignalEvent is set: qwEventKey as a pointer, in the form of Windows'
// C runtime (16 upper-case digits).
constexpr wchar_t COMMAND_EVENT_NAME[] = L"HalvorsundEventForLine%p";
