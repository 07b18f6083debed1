// The board maker's driver library, calddlld.dll: lines, calls, fax sessions and TIFF files.
//
// The provider is written against this page and nothing else; the software board and the test drivers implement it.
// x64 Windows calling convention, little-endian, records packed to one byte. A record is cleared by its caller before
// every call and belongs to the caller. Which result counts differs by function: some are judged by their return
// value, some by the status in the record; each says so.
#pragma once

#include <cstddef>
#include <cstdint>

#ifdef CALDDLLD_IMPLEMENTATION
#define DORN_API extern "C"
#else
#define DORN_API extern "C" __declspec(dllimport)
#endif

// ---- values -------------------------------------------------------------------------------------------------------

enum : uint32_t {
    KX_STATUS_OK = 0,
    KX_STATUS_ERROR = 2,
    KX_STATUS_ERROR_DIAL = 3,
    KX_STATUS_ERROR_HANGUP = 4,
    KX_STATUS_USER_TERMINATED = 5,
    KX_STATUS_TIMEOUT = 6,
    KX_STATUS_ALERT = 7,
    KX_STATUS_VV = 8,
};

// Detail of KX_STATUS_ERROR.
enum : uint32_t {
    APIERR_UNCLASSIFIED = 0,
    APIERR_FILEIO = 1,
    APIERR_FILEFORMAT = 2,
    APIERR_BOARDCAPABILITY = 3,
    APIERR_NOTCONNECTED = 4,
    APIERR_BADPARAMETER = 5,
    APIERR_MEMORY = 6,
    APIERR_BADSTATE = 7,
    APIERR_TOOSOON = 8,
    APIERR_BUSY = 9,
    APIERR_DRV_OPEN_ERROR = 10,
    APIERR_DRV_IOCTL_ERROR = 11,
    APIERR_VERSION = 12,
    APIERR_INVALID_PORT = 13,
    APIERR_RINGING = 14,
    APIERR_INFOPKT_NESTING = 15,
    APIERR_MAX_TAGS = 16,
    APIERR_LOCK_FAILED = 17,
};

// Detail of KX_STATUS_TIMEOUT.
enum : uint32_t {
    API_TO_TIME = 0,
    API_TO_SILENCE = 1,
};

// line_status of a wait for a call that ended without a further ring.
constexpr uint32_t WAIT_FOR_CALL_TIMEOUT = 353;

// Outcome of a driver operation, and of a whole fax job.
struct KXResult {
    uint32_t status;       // KX_STATUS_*
    uint32_t line_status;  // detail, its meaning depends on status
};

// ---- objects ------------------------------------------------------------------------------------------------------

#pragma pack(push, 1)

// A channel that DornLineAttach has attached; the driver's own fields follow this head.
struct DornLine {
    uint8_t bOptions;  // option bits; DORN_OPTION_FAX_SESSION is the one that a fax session sets
    uint8_t reserved;
    uint16_t wPageNumber;  // page bookkeeping, first counter
    uint16_t wPageCount;   // page bookkeeping, second counter
    uint16_t wRowCount;    // rows of the page image just written
};
constexpr uint8_t DORN_OPTION_FAX_SESSION = 0x10;

// An open TIFF file; the driver's own fields follow this head.
struct DornTiff {
    void* stream;            // for _mdll_fseek, _mdll_ftell and _mdll_fwrite only
    uint32_t dwPageCounter;  // pages in the file
    uint32_t dwPageCursor;   // page that the next read or write works on
};

// An unsolicited board report; the driver's own fields (its tagged values) follow.
struct DornReport {
    uint32_t dwClass;
    uint32_t dwType;
    uint32_t dwSubCode;
};

// Cursor over the tagged values of a report: zeroed before the first DornGetTaggedValues, passed back unchanged.
struct DornTaggedValue {
    uint32_t dwCursor;  // the driver's
    uint32_t dwTag;
    uint32_t cbValue;
    uint32_t reserved;
    const void* pValue;  // valid while the report is
};

// TIFF 6.0 directory entry as it lies in the file.
struct DornTiffEntry {
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    uint32_t value;  // the value itself, or its file offset
};

// TIFF 6.0 directory entry whose value lies in memory.
struct DornExtraTag {
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    const void* value;
};

// ---- records ------------------------------------------------------------------------------------------------------

struct DornModuleInfoRecord {
    uint32_t status;
    uint8_t reserved0[4];
    uint32_t dwModule;       // in
    uint32_t dwPresence[3];  // all non-zero for an installed module
    uint8_t reserved1[20];
    uint32_t dwFirstChannel;
    uint32_t dwChannelCount;
    uint8_t reserved2[324];
};

struct DornAttachRecord {
    uint8_t reserved0[8];
    uint32_t dwChannel;  // in
    uint8_t reserved1[209];
};

struct DornAlertRecord {
    uint8_t reserved0[8];
    uint32_t dwUnit;  // in
    uint8_t reserved1[209];
};

struct DornResetRecord {
    uint8_t reserved0[44];
    const char* szConfiguration;  // in, multibyte path, may be the empty string
    uint8_t reserved1[8];
    uint32_t status;  // out
    uint8_t reserved2[157];
};

// What the network told about an incoming call.
struct DornCallData {
    uint8_t reserved0[4];
    char szCalledNumber[256];
    char szSecondCalled[256];
    char szCallingNumber[256];
    char szCallingName[256];
    uint8_t reserved1[355];
    char szInformation[1384];  // NUL-terminated unless full, any byte may be written as "%" and two hex digits
};

struct DornWaitForCallRecord {
    uint32_t status;
    uint32_t line_status;
    DornCallData callData;
    uint8_t reserved0[12];
    uint32_t dwTimeout;  // in, milliseconds, 0 = for ever
    uint8_t reserved1[214];
};

// Answer and terminate.
struct DornLineResultRecord {
    uint32_t status;
    uint32_t sub_status;
    uint8_t reserved[2997];
};

struct DornProtocolRecord {
    uint32_t status;
    uint8_t reserved0[4];
    uint32_t dwProtocol;  // out, call-control protocol number
    uint8_t reserved1[2993];
};

// Setup, wait for complete, wait for release.
struct DornCallRecord {
    uint8_t reserved0[4];
    uint32_t dwKind;  // in, 4
    uint8_t reserved1[4];
    uint32_t dwTimeout;  // in, milliseconds
    uint8_t reserved2[270];
    uint32_t dwOption;         // in, 0
    const char* szDialString;  // in, null = go off hook and wait for digits
    uint8_t reserved3[4];
    uint32_t status;
    uint32_t cause;  // cause or line_status
    uint8_t reserved4[2988];
};

// What the far station said about itself, 340 bytes.
struct DornRemoteInfo {
    char szStationId[20];  // T.30 TSI or CSI, not NUL-terminated when all 20 are used
    uint8_t reserved[257];
    char szSecondId[63];  // second identification text, NUL-terminated unless full, may have leading blanks
};

struct DornFaxRecord {
    uint32_t status;
    uint32_t line_status;
    DornTiff* hTiff;
    uint8_t reserved0[8];
    const char* szLocalId;
    const DornExtraTag* extraTags;
    uint32_t dwExtraTagCount;
    uint8_t reserved1[156];
    DornRemoteInfo remoteInfo;  // out
    uint8_t reserved2[13];
    uint32_t dwReceiveFormat;
    uint8_t reserved3[104];
    uint32_t dwHeaderArgument1;
    uint32_t dwHeaderArgument2;
    const char* szHeaderText;
    uint8_t reserved4[124];
};

struct DornTiffRecord;

#pragma pack(pop)

// Called for every entry of every directory in file order; a non-zero result ends the reading.
using DornTiffTagFunc = int (*)(DornTiff* tiff, const DornTiffEntry* entry, uint64_t value);

// Called by the driver on a thread of its own for every report of the line whose slot holds it.
using DornIncomingCmdFunc = void (*)(DornLine* boardLine, DornReport* report, uint32_t unit);

#pragma pack(push, 1)

struct DornTiffRecord {
    uint32_t status;
    uint32_t line_status;
    DornTiff* hTiff;
    const char* szPath;
    const char* szMode;  // as of fopen, always binary
    DornTiffTagFunc tagCallback;
    uint64_t qwCallerValue;
    const void* imageData;  // null ends the image
    uint32_t cbImage;
    uint32_t dwResolution;         // 0 = 204 by 98 dpi, 1 = 204 by 196 dpi
    uint32_t dwXResolutionOffset;  // out
    uint32_t dwYResolutionOffset;  // out
    const DornTiffEntry* entry;    // null ends the directory
    uint8_t reserved[20];
};

#pragma pack(pop)

#define DORN_SIZE(record, size) static_assert(sizeof(record) == (size), #record " has another size")
#define DORN_AT(record, field, offset) static_assert(offsetof(record, field) == (offset), #record "::" #field " moved")

DORN_AT(DornLine, bOptions, 0);
DORN_AT(DornLine, wPageNumber, 2);
DORN_AT(DornLine, wPageCount, 4);
DORN_AT(DornLine, wRowCount, 6);

DORN_AT(DornTiff, stream, 0);
DORN_AT(DornTiff, dwPageCounter, 8);
DORN_AT(DornTiff, dwPageCursor, 12);

DORN_AT(DornReport, dwClass, 0);
DORN_AT(DornReport, dwType, 4);
DORN_AT(DornReport, dwSubCode, 8);

DORN_SIZE(DornTaggedValue, 24);
DORN_AT(DornTaggedValue, dwCursor, 0);
DORN_AT(DornTaggedValue, dwTag, 4);
DORN_AT(DornTaggedValue, cbValue, 8);
DORN_AT(DornTaggedValue, pValue, 16);

DORN_SIZE(DornTiffEntry, 12);
DORN_AT(DornTiffEntry, tag, 0);
DORN_AT(DornTiffEntry, type, 2);
DORN_AT(DornTiffEntry, count, 4);
DORN_AT(DornTiffEntry, value, 8);

DORN_SIZE(DornExtraTag, 16);
DORN_AT(DornExtraTag, tag, 0);
DORN_AT(DornExtraTag, type, 2);
DORN_AT(DornExtraTag, count, 4);
DORN_AT(DornExtraTag, value, 8);

DORN_SIZE(DornModuleInfoRecord, 376);
DORN_AT(DornModuleInfoRecord, status, 0);
DORN_AT(DornModuleInfoRecord, dwModule, 8);
DORN_AT(DornModuleInfoRecord, dwPresence, 12);
DORN_AT(DornModuleInfoRecord, dwFirstChannel, 44);
DORN_AT(DornModuleInfoRecord, dwChannelCount, 48);

DORN_SIZE(DornAttachRecord, 221);
DORN_AT(DornAttachRecord, dwChannel, 8);

DORN_SIZE(DornAlertRecord, 221);
DORN_AT(DornAlertRecord, dwUnit, 8);

DORN_SIZE(DornResetRecord, 221);
DORN_AT(DornResetRecord, szConfiguration, 44);
DORN_AT(DornResetRecord, status, 60);

DORN_SIZE(DornCallData, 2767);
DORN_SIZE(DornWaitForCallRecord, 3005);
DORN_AT(DornWaitForCallRecord, status, 0);
DORN_AT(DornWaitForCallRecord, line_status, 4);
DORN_AT(DornWaitForCallRecord, callData, 8);
DORN_AT(DornWaitForCallRecord, callData.szCalledNumber, 12);
DORN_AT(DornWaitForCallRecord, callData.szSecondCalled, 268);
DORN_AT(DornWaitForCallRecord, callData.szCallingNumber, 524);
DORN_AT(DornWaitForCallRecord, callData.szCallingName, 780);
DORN_AT(DornWaitForCallRecord, callData.szInformation, 1391);
DORN_AT(DornWaitForCallRecord, dwTimeout, 2787);

DORN_SIZE(DornLineResultRecord, 3005);
DORN_AT(DornLineResultRecord, status, 0);
DORN_AT(DornLineResultRecord, sub_status, 4);

DORN_SIZE(DornProtocolRecord, 3005);
DORN_AT(DornProtocolRecord, status, 0);
DORN_AT(DornProtocolRecord, dwProtocol, 8);

DORN_SIZE(DornCallRecord, 3298);
DORN_AT(DornCallRecord, dwKind, 4);
DORN_AT(DornCallRecord, dwTimeout, 12);
DORN_AT(DornCallRecord, dwOption, 286);
DORN_AT(DornCallRecord, szDialString, 290);
DORN_AT(DornCallRecord, status, 302);
DORN_AT(DornCallRecord, cause, 306);

DORN_SIZE(DornRemoteInfo, 340);
DORN_SIZE(DornFaxRecord, 801);
DORN_AT(DornFaxRecord, status, 0);
DORN_AT(DornFaxRecord, line_status, 4);
DORN_AT(DornFaxRecord, hTiff, 8);
DORN_AT(DornFaxRecord, szLocalId, 24);
DORN_AT(DornFaxRecord, extraTags, 32);
DORN_AT(DornFaxRecord, dwExtraTagCount, 40);
DORN_AT(DornFaxRecord, remoteInfo.szStationId, 200);
DORN_AT(DornFaxRecord, remoteInfo.szSecondId, 477);
DORN_AT(DornFaxRecord, dwReceiveFormat, 553);
DORN_AT(DornFaxRecord, dwHeaderArgument1, 661);
DORN_AT(DornFaxRecord, dwHeaderArgument2, 665);
DORN_AT(DornFaxRecord, szHeaderText, 669);

DORN_SIZE(DornTiffRecord, 100);
DORN_AT(DornTiffRecord, status, 0);
DORN_AT(DornTiffRecord, line_status, 4);
DORN_AT(DornTiffRecord, hTiff, 8);
DORN_AT(DornTiffRecord, szPath, 16);
DORN_AT(DornTiffRecord, szMode, 24);
DORN_AT(DornTiffRecord, tagCallback, 32);
DORN_AT(DornTiffRecord, qwCallerValue, 40);
DORN_AT(DornTiffRecord, imageData, 48);
DORN_AT(DornTiffRecord, cbImage, 56);
DORN_AT(DornTiffRecord, dwResolution, 60);
DORN_AT(DornTiffRecord, dwXResolutionOffset, 64);
DORN_AT(DornTiffRecord, dwYResolutionOffset, 68);
DORN_AT(DornTiffRecord, entry, 72);

#undef DORN_SIZE
#undef DORN_AT

// ---- library ------------------------------------------------------------------------------------------------------

// Counted: the library stays up until as many shutdowns as initialisations. 0 = good.
DORN_API int DornInitialize();
DORN_API void DornShutdown();

// Asks for module dwModule; the first argument is null. Judged by the record's status.
DORN_API int DornModuleInfo(void* null, DornModuleInfoRecord* record);

// Written by the library's users before anything else: the interface version that they were built against.
DORN_API uint32_t _dorn_api_ver_compiled;
DORN_API uint32_t _dorn_api_ver_bld_comp;
DORN_API uint32_t _dorn_api_ver_auto_comp;
constexpr uint32_t DORN_API_VER_COMPILED = 0x403070;
constexpr uint32_t DORN_API_VER_BLD_COMP = 6704;
constexpr uint32_t DORN_API_VER_AUTO_COMP = 76;
// Read by the provider: non-zero = the library knows more than 126 modules.
DORN_API uint32_t _dorn_pkt_version_exp;

// ---- lines --------------------------------------------------------------------------------------------------------

// Null on failure.
DORN_API DornLine* DornLineAttach(DornAttachRecord* record);
DORN_API int DornSessionDetach(DornLine* line, DornAttachRecord* zeroed);
DORN_API uint32_t DornLineUnitGet(DornLine* line);
// Non-zero = the channel has the capability.
DORN_API int DornLineCapCheck(DornLine* line, int capability);
// Makes the blocking call in progress on the unit return KX_STATUS_ALERT. Nothing is kept when no call is in progress,
// except during a fax session, which it ends.
DORN_API int DornLineAlert(DornAlertRecord* record);
// Negative = failure.
DORN_API int DornLineReset(DornLine* line, DornResetRecord* record);
// The line state word; DORN_LINE_STATE_CONNECTED = connected.
DORN_API uint32_t* DornLineStateAccess(DornLine* line);
constexpr uint32_t DORN_LINE_STATE_CONNECTED = 2;
// The slot of the line's report handler; it may hold null.
DORN_API DornIncomingCmdFunc* DornLineIncomingCmdFuncAccess(DornLine* line);
// The last DCS; its third byte is the rate index.
DORN_API const uint8_t* DornLineDcsGet(DornLine* line);
// Readable text of the line's last failure, never null.
DORN_API const char* DornErrorMessage(DornLine* line);

// ---- calls: all judged by the record ------------------------------------------------------------------------------

DORN_API int DornLineWaitForCallISDN(DornLine* line, DornWaitForCallRecord* record);
DORN_API int DornLineAnswerISDN(DornLine* line, DornLineResultRecord* record);
DORN_API int DornLineTerminateCallISDN(DornLine* line, DornLineResultRecord* record);
DORN_API int DornLineCCProtocolGet(DornLine* line, DornProtocolRecord* record);
DORN_API int DornCallSetup(DornLine* line, DornCallRecord* record);
DORN_API int DornCallWaitForComplete(DornLine* line, DornCallRecord* record);
DORN_API int DornCallWaitForRelease(DornLine* line, DornCallRecord* record);

// ---- reports ------------------------------------------------------------------------------------------------------

// 1 = the next value is in it, anything else = no more.
DORN_API int DornGetTaggedValues(DornReport* report, DornTaggedValue* value);
// The value's 1, 2 or 4 bytes as an integer.
DORN_API int32_t DornParseTaggedValueInt(const DornTaggedValue* value);

// ---- fax sessions -------------------------------------------------------------------------------------------------

DORN_API int DornFaxHeader(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxSetLocalId(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxSetReceiveFmt(DornLine* line, DornFaxRecord* record);
// Judged by the record's status.
DORN_API int DornFaxBeginSendTiff(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxGetRemoteInfo(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxWaitForTraining(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxSendPageTiff(DornLine* line, DornFaxRecord* record);
// > 0 = there is a page to send, 0 = no more, < 0 = failure; the record's status too.
DORN_API int DornFaxNextPageTiff(DornLine* line, DornFaxRecord* record);
// Negative = failure; KXResult in the record.
DORN_API int DornFaxEndOfDocument(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxBeginReceive(DornLine* line, DornFaxRecord* record);
DORN_API int DornFaxEndReception(DornLine* line, DornFaxRecord* record);
// > 0 = a page was received and more may follow, 0 = no more pages, < 0 = failure; KXResult in the record.
DORN_API int DornFaxRcvPageTiff(DornLine* line, DornFaxRecord* record);

// ---- TIFF files ---------------------------------------------------------------------------------------------------

// Null on failure.
DORN_API DornTiff* DornTiffOpen(DornTiffRecord* record);
// 0 = good.
DORN_API int DornTiffClose(DornTiffRecord* record);
// The number of directories read; 0 = none could be read.
DORN_API int DornTiffReadIFD(DornTiffRecord* record);
// 0 = good. Null data ends the image.
DORN_API int DornTiffWriteImage(DornTiffRecord* record);
// Status and the two offsets in the record.
DORN_API int DornTiffWriteRes(DornTiffRecord* record);
// 0 = good. A null entry ends the directory, which is linked behind the file's last one, sorted by tag. Entries 273 and
// 279 given as 0 are filled from the image just written.
DORN_API int DornTiffWriteIFD(DornTiffRecord* record);

// As the C runtime's fseek, ftell and fwrite, on a DornTiff's stream.
DORN_API int _mdll_fseek(void* stream, long offset, int origin);
DORN_API long _mdll_ftell(void* stream);
DORN_API size_t _mdll_fwrite(const void* data, size_t size, size_t count, void* stream);

#undef DORN_API
