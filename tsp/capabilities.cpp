// What the provider's lines can do: versions, device and address capabilities, identifiers. Every answer is fixed by
// design or read from the line tables.
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "caller_record.h"
#include "diag/diag.h"
#include "entry_point.h"
#include "provider.h"

namespace {

constexpr DWORD TAPI_VERSION_2_0 = 0x00020000;
constexpr DWORD EXTENSION_ID[4] = {0x580F6780, 0x101D580E, 0x8000F880, 0x4A3D13C8};
constexpr wchar_t PROVIDER_INFO[] = L"Vantreli Halvorsund Telephony Service Provider";
constexpr size_t LINE_NAME_LENGTH = 32;
constexpr wchar_t LINE_CLASS[] = L"tapi/line";
// A VARSTRING with one 32-bit value behind its fixed part; a shorter one has room for its three sizes only.
constexpr DWORD VARSTRING_FIXED_SIZE = 24;
constexpr DWORD VARSTRING_ID_SIZE = VARSTRING_FIXED_SIZE + sizeof(DWORD);
constexpr DWORD VARSTRING_SIZES_SIZE = 12;

LONG negotiate(DWORD low, DWORD high, DWORD* version, LONG error) {
    if (low > TAPI_VERSION_2_0 || high < TAPI_VERSION_2_0) return error;
    *version = TAPI_VERSION_2_0;
    return 0;
}

void format_line_name(wchar_t (&name)[LINE_NAME_LENGTH], uint32_t index) {
    if (_snwprintf(name, LINE_NAME_LENGTH - 1, L"Halvorsund Line #%d", index + 1) < 0) {
        TRACE(TRACE_INFO, "TSPI_lineGetDevCaps snwprintf");
        wcscpy(name, L"Halvorsund Line ERROR");
    }
    name[LINE_NAME_LENGTH - 1] = L'\0';
}

// The two texts, when there is room for both.
void fill_texts(CallerRecord<LINEDEVCAPS>& caps, uint32_t index) {
    wchar_t line_name[LINE_NAME_LENGTH] = {};
    format_line_name(line_name, index);
    const DWORD name_size = static_cast<DWORD>((wcslen(line_name) + 1) * sizeof(wchar_t));
    const bool room = caps.reserve(name_size + static_cast<DWORD>(sizeof PROVIDER_INFO));
    TRACE(TRACE_INFO, "Query Caps for <%ls>", line_name);
    if (!room) {
        TRACE(TRACE_INFO, "(lpLineDevCaps->dwTotalSize >= lpLineDevCaps->dwNeededSize)");
        return;
    }
    caps.append(PROVIDER_INFO, sizeof PROVIDER_INFO, &LINEDEVCAPS::dwProviderInfoSize,
                &LINEDEVCAPS::dwProviderInfoOffset);
    caps.append(line_name, name_size, &LINEDEVCAPS::dwLineNameSize, &LINEDEVCAPS::dwLineNameOffset);
}

// A bad channel has its own number back. An index outside the table reads as channel 0 marked bad.
uint32_t permanent_line_id(uint32_t index) {
    const int32_t stored = line_channel(index);
    const uint32_t channel = static_cast<uint32_t>(stored < 0 ? ~stored : stored);
    return (globals.gdwPermanentProviderID << 16) | channel;
}

void fill_fixed_caps(LINEDEVCAPS* caps, uint32_t index) {
    caps->dwStringFormat = STRINGFORMAT_UNICODE;
    caps->dwAddressModes = LINEADDRESSMODE_ADDRESSID;
    caps->dwNumAddresses = 1;
    caps->dwBearerModes = LINEBEARERMODE_VOICE;
    caps->dwMaxRate = line_max_rate(index);
    caps->dwMediaModes = LINEMEDIAMODE_G3FAX;
    caps->dwDevCapFlags = LINEDEVCAPFLAGS_CLOSEDROP | LINEDEVCAPFLAGS_DIALDIALTONE;
    caps->dwMaxNumActiveCalls = 1;
    caps->dwRingModes = 1;
    caps->dwLineFeatures = LINEFEATURE_MAKECALL;
    caps->dwLineStates |= LINEDEVSTATE_RINGING | LINEDEVSTATE_NUMCALLS;
    caps->dwPermanentLineID = permanent_line_id(index);
}
static_assert((LINEDEVCAPFLAGS_CLOSEDROP | LINEDEVCAPFLAGS_DIALDIALTONE) == 0x120, "device capability flags");
static_assert(offsetof(LINEDEVCAPS, dwLineFeatures) + sizeof(DWORD) <= LINEDEVCAPS_SIZE, "a field of a later version");

// Nothing is cleared first: what TAPI passed in the other fields stays.
void fill_address_caps(LINEADDRESSCAPS* caps, DWORD dwDeviceID) {
    caps->dwNeededSize = LINEADDRESSCAPS_SIZE;
    caps->dwUsedSize = LINEADDRESSCAPS_SIZE;
    caps->dwLineDeviceID = dwDeviceID;
    caps->dwAddressSharing = LINEADDRESSSHARING_PRIVATE;
    caps->dwCallInfoStates = LINECALLINFOSTATE_MEDIAMODE | LINECALLINFOSTATE_APPSPECIFIC;
    caps->dwCallerIDFlags = LINECALLPARTYID_NAME | LINECALLPARTYID_ADDRESS;
    caps->dwCalledIDFlags = LINECALLPARTYID_ADDRESS;
    caps->dwRedirectionIDFlags = LINECALLPARTYID_UNAVAIL;
    caps->dwRedirectingIDFlags = LINECALLPARTYID_UNAVAIL;
    caps->dwCallStates = CALL_STATES;
    caps->dwDialToneModes = LINEDIALTONEMODE_UNAVAIL;
    caps->dwBusyModes = LINEBUSYMODE_STATION | LINEBUSYMODE_TRUNK;
    caps->dwSpecialInfo =
        LINESPECIALINFO_NOCIRCUIT | LINESPECIALINFO_CUSTIRREG | LINESPECIALINFO_REORDER | LINESPECIALINFO_UNKNOWN;
    caps->dwDisconnectModes = (LINEDISCONNECTMODE_DONOTDISTURB << 1) - 1;  // every mode from NORMAL on
    caps->dwMaxNumActiveCalls = 1;
    caps->dwAddrCapFlags = LINEADDRCAPFLAGS_DIALED | LINEADDRCAPFLAGS_PARTIALDIAL;
    caps->dwCallFeatures = LINECALLFEATURE_ACCEPT | LINECALLFEATURE_ANSWER | LINECALLFEATURE_DIAL |
                           LINECALLFEATURE_DROP | LINECALLFEATURE_SETCALLPARAMS;
    caps->dwAddressFeatures = LINEADDRFEATURE_MAKECALL;
}
static_assert((LINEDISCONNECTMODE_DONOTDISTURB << 1) - 1 == 0x7FFFF, "disconnect modes");
static_assert((LINEADDRCAPFLAGS_DIALED | LINEADDRCAPFLAGS_PARTIALDIAL) == 0x10020, "address capability flags");
static_assert((LINECALLFEATURE_ACCEPT | LINECALLFEATURE_ANSWER | LINECALLFEATURE_DIAL | LINECALLFEATURE_DROP |
               LINECALLFEATURE_SETCALLPARAMS) == 0x2000C5,
              "call features");

void fill_device_id(VARSTRING* caller, DWORD dwDeviceID) {
    const CallerRecord<VARSTRING> id(caller);
    if (id->dwTotalSize >= VARSTRING_ID_SIZE) {
        id->dwUsedSize = VARSTRING_ID_SIZE;
        id->dwStringFormat = STRINGFORMAT_BINARY;
        id->dwStringSize = sizeof(DWORD);
        id->dwStringOffset = VARSTRING_FIXED_SIZE;
        memcpy(reinterpret_cast<uint8_t*>(id.get()) + VARSTRING_FIXED_SIZE, &dwDeviceID, sizeof dwDeviceID);
    } else {
        id->dwUsedSize = VARSTRING_SIZES_SIZE;
    }
    id->dwNeededSize = VARSTRING_ID_SIZE;
}

}  // namespace

bool device_in_range(DWORD dwDeviceID) {
    return dwDeviceID >= globals.gdwLineDeviceIDBase && dwDeviceID - globals.gdwLineDeviceIDBase <= MAX_LINES;
}

void trace_invalid_device(const char* name, DWORD dwDeviceID) {
    TRACE(TRACE_PANIC, "Invalid device: dwDeviceId(%d), index(%d)", dwDeviceID,
          dwDeviceID - globals.gdwLineDeviceIDBase);
    TRACE(TRACE_LINE_EXIT, "%s(%d) %s", name, LINEERR_INVALDEVICEHANDLE, "Failed");
}

// TSPI version negotiation: no trace, and no device ID is wrong.
extern "C" LONG WINAPI TSPI_lineNegotiateTSPIVersion(DWORD, DWORD dwLowVersion, DWORD dwHighVersion,
                                                     LPDWORD lpdwTSPIVersion) {
    return negotiate(dwLowVersion, dwHighVersion, lpdwTSPIVersion, LINEERR_INCOMPATIBLEAPIVERSION);
}

extern "C" LONG WINAPI TSPI_lineNegotiateExtVersion(DWORD, DWORD, DWORD dwLowVersion, DWORD dwHighVersion,
                                                    LPDWORD lpdwExtVersion) {
    return negotiate(dwLowVersion, dwHighVersion, lpdwExtVersion, LINEERR_INCOMPATIBLEEXTVERSION);
}

extern "C" LONG WINAPI TSPI_lineSelectExtVersion(HDRVLINE hdLine, DWORD dwExtVersion) {
    return line_entry(__func__, line_of(hdLine), [&](LineEntry&) -> LONG {
        return dwExtVersion == TAPI_VERSION_2_0 || dwExtVersion == 0 ? 0 : LINEERR_INCOMPATIBLEEXTVERSION;
    });
}

extern "C" LONG WINAPI TSPI_lineGetExtensionID(DWORD dwDeviceID, DWORD dwTSPIVersion, LPLINEEXTENSIONID lpExtensionID) {
    constexpr char name[] = "TSPI_lineGetExtensionID";
    return catch_all(name, [&] {
        TRACE(TRACE_LINE_ENTER, "dwDeviceID(%d): %s(TSPIVersion(0x%x))", dwDeviceID, name, dwTSPIVersion);
        *lpExtensionID = {EXTENSION_ID[0], EXTENSION_ID[1], EXTENSION_ID[2], EXTENSION_ID[3]};
        return trace_line_exit({name, nullptr}, 0, 0);
    });
}

extern "C" LONG WINAPI TSPI_lineGetDevCaps(DWORD dwDeviceID, DWORD dwTSPIVersion, DWORD dwExtVersion,
                                           LPLINEDEVCAPS lpLineDevCaps) {
    constexpr char name[] = "TSPI_lineGetDevCaps";
    return catch_all(name, [&] {
        TRACE(TRACE_LINE_ENTER, "dwDeviceID(%d): %s(TSPIVersion(0x%x),ExtVersion(0x%x))", dwDeviceID, name,
              dwTSPIVersion, dwExtVersion);
        const uint32_t index = dwDeviceID - globals.gdwLineDeviceIDBase;
        LONG result = 0;
        // The record is filled for an invalid device as well; its contents then mean nothing.
        if (!device_in_range(dwDeviceID)) {
            result = LINEERR_INVALDEVICEHANDLE;
            trace_invalid_device(name, dwDeviceID);
        }
        CallerRecord<LINEDEVCAPS> caps(lpLineDevCaps);
        caps.clear();
        if (completes([&] { fill_texts(caps, index); })) {
            fill_fixed_caps(caps.get(), index);
        } else {
            result = LINEERR_OPERATIONFAILED;
            TRACE(TRACE_INFO, "TSPI_lineGetDevCaps - Catch Error");
        }
        return trace_line_exit({name, nullptr}, result, 0);
    });
}

extern "C" LONG WINAPI TSPI_lineGetAddressCaps(DWORD dwDeviceID, DWORD dwAddressID, DWORD dwTSPIVersion,
                                               DWORD dwExtVersion, LPLINEADDRESSCAPS lpAddressCaps) {
    constexpr char name[] = "TSPI_lineGetAddressCaps";
    return catch_all(name, [&] {
        TRACE(TRACE_LINE_ENTER, "dwDeviceID(0x%x): %s(addressID(%d), TSPVersion(0x%x), ExtVersion(0x%x)", dwDeviceID,
              name, dwAddressID, dwTSPIVersion, dwExtVersion);
        fill_address_caps(lpAddressCaps, dwDeviceID);
        return trace_line_exit({name, nullptr}, dwAddressID == 0 ? 0 : LINEERR_INVALADDRESSID, 0);
    });
}

extern "C" LONG WINAPI TSPI_lineGetNumAddressIDs(HDRVLINE hdLine, LPDWORD lpdwNumAddressIDs) {
    return line_entry(__func__, line_of(hdLine), [&](LineEntry&) -> LONG {
        *lpdwNumAddressIDs = 1;
        return 0;
    });
}

extern "C" LONG WINAPI TSPI_lineGetID(HDRVLINE hdLine, DWORD, HDRVCALL hdCall, DWORD dwSelect, LPVARSTRING lpDeviceID,
                                      LPCWSTR lpszDeviceClass, HANDLE) {
    const bool by_call = dwSelect == LINECALLSELECT_CALL;
    LineRec* pLine = by_call ? line_of(hdCall) : line_of(hdLine);
    return line_entry(__func__, pLine, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineGetID - Invalid handle.");
            return by_call ? LINEERR_INVALCALLHANDLE : LINEERR_INVALLINEHANDLE;
        }
        TRACE(TRACE_INFO, "TSPI_lineGetID -> lpszDeviceClass = %ls", lpszDeviceClass);
        if (_wcsicmp(lpszDeviceClass, LINE_CLASS) != 0) return LINEERR_NODEVICE;
        fill_device_id(lpDeviceID, pLine->dwDeviceID);
        return 0;
    });
}
