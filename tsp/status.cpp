// The live state of a line, its address and its call, and the call's information record with the two parties.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "caller_record.h"
#include "diag/diag.h"
#include "entry_point.h"
#include "provider.h"

namespace {

// Sets count to 1 while the line has a call, to 0 otherwise.
void count_active_calls(LineRec* pLine, DWORD& count) {
    const LineLock lock(pLine);
    count = pLine->htCall && pLine->eLineState != LINE_IDLE ? 1 : 0;
}

DWORD call_features(const LineRec* pLine) {
    DWORD features = LINECALLFEATURE_DROP;
    if (pLine->dwCallState == LINECALLSTATE_OFFERING) features |= LINECALLFEATURE_ACCEPT | LINECALLFEATURE_ANSWER;
    if (pLine->dwCallState == LINECALLSTATE_ACCEPTED) features |= LINECALLFEATURE_ANSWER;
    // In every state but idle, offering and disconnected included.
    if (pLine->eLineState != LINE_DIALING) features |= LINECALLFEATURE_DIAL;
    return features;
}

// ---- call information ---------------------------------------------------------------------------------------------

struct PartyText {
    wchar_t text[256];  // the last one stays its end

    explicit PartyText(const char* ansi) : text{} { mbstowcs(text, ansi, 255); }
    DWORD size() const { return static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)); }
    bool empty() const { return text[0] == L'\0'; }
};

struct Parties {
    PartyText called;
    PartyText caller;
    PartyText caller_name;
};

// Copies what belongs together under the line lock.
Parties read_call(LineRec* pLine, LINECALLINFO* info) {
    const LineLock lock(pLine);
    Parties parties{PartyText(pLine->szCalledID), PartyText(pLine->szCallerID), PartyText(pLine->szCallerIDName)};
    info->dwMediaMode = pLine->dwMediaMode;
    info->dwRate = pLine->dwRate;
    return parties;
}

using CallInfo = CallerRecord<LINECALLINFO>;

bool append(CallInfo& info, const PartyText& party, DWORD LINECALLINFO::*size_field,
            DWORD LINECALLINFO::*offset_field) {
    if (party.empty()) return false;
    info.append(party.text, party.size(), size_field, offset_field);
    return true;
}

void append_parties(CallInfo& info, const Parties& parties) {
    if (append(info, parties.called, &LINECALLINFO::dwCalledIDSize, &LINECALLINFO::dwCalledIDOffset))
        info->dwCalledIDFlags = LINECALLPARTYID_ADDRESS;
    if (append(info, parties.caller, &LINECALLINFO::dwCallerIDSize, &LINECALLINFO::dwCallerIDOffset))
        info->dwCallerIDFlags = LINECALLPARTYID_ADDRESS;
    // A name without a number leaves UNAVAIL beside NAME, as clients expect it.
    if (append(info, parties.caller_name, &LINECALLINFO::dwCallerIDNameSize, &LINECALLINFO::dwCallerIDNameOffset))
        info->dwCallerIDFlags |= LINECALLPARTYID_NAME;
}

void fill_call_info(LineRec* pLine, CallInfo& info) {
    info.clear();
    const Parties parties = read_call(pLine, info.get());
    const bool room = info.reserve(parties.called.size() + parties.caller.size() + parties.caller_name.size());
    info->dwCalledIDFlags = LINECALLPARTYID_UNAVAIL;
    info->dwCallerIDFlags = LINECALLPARTYID_UNAVAIL;
    if (room) append_parties(info, parties);

    info->dwBearerMode = LINEBEARERMODE_VOICE;
    info->dwCallStates = CALL_STATES;
    info->dwOrigin = LINECALLORIGIN_OUTBOUND;  // incoming calls too
    info->dwReason = LINECALLREASON_DIRECT;
    info->dwConnectedIDFlags = LINECALLPARTYID_UNAVAIL;
    info->dwRedirectionIDFlags = LINECALLPARTYID_UNAVAIL;
    info->dwRedirectingIDFlags = LINECALLPARTYID_UNAVAIL;
}

// ---- the record in the trace --------------------------------------------------------------------------------------

#define CALL_IDENTITY "hdCall(0x%p), hdLine(0x%p), htLine(0x%p), dwDeviceID(0x%x), htCall(0x%p): "
#define TRACE_CALL(line, format, ...)                                                                           \
    TRACE(TRACE_INFO, CALL_IDENTITY format, (line), (line), (line)->htLine, (line)->dwDeviceID, (line)->htCall, \
          __VA_ARGS__)

struct DumpedField {
    const char* name;
    DWORD LINECALLINFO::*field;
};
constexpr DumpedField SIZES[] = {
    {"dwTotalSize", &LINECALLINFO::dwTotalSize},
    {"dwUsedSize", &LINECALLINFO::dwUsedSize},
    {"dwNeededSize", &LINECALLINFO::dwNeededSize},
};
constexpr DumpedField FIXED_FIELDS[] = {
    {"dwBearerMode", &LINECALLINFO::dwBearerMode},
    {"dwMediaMode", &LINECALLINFO::dwMediaMode},
    {"dwRate", &LINECALLINFO::dwRate},
    {"dwCallStates", &LINECALLINFO::dwCallStates},
    {"dwOrigin", &LINECALLINFO::dwOrigin},
    {"dwReason", &LINECALLINFO::dwReason},
    {"dwConnectedIDFlags", &LINECALLINFO::dwConnectedIDFlags},
    {"dwRedirectionIDFlags", &LINECALLINFO::dwRedirectionIDFlags},
    {"dwRedirectingIDFlags", &LINECALLINFO::dwRedirectingIDFlags},
};

void dump_field(const LineRec* pLine, const LINECALLINFO* info, const DumpedField& dumped) {
    TRACE_CALL(pLine, "%s(0x%x)", dumped.name, info->*dumped.field);
}

// The offset's format has its "0x" behind the number; readers of the log know it so.
void dump_text(const LineRec* pLine, const LINECALLINFO* info, const char* name, DWORD size, DWORD offset) {
    TRACE_CALL(pLine, "%sSize(0x%x), %sOffset(%x0x)", name, size, name, offset);
    if (size == 0) return;
    TRACE_CALL(pLine, "%S", reinterpret_cast<const wchar_t*>(reinterpret_cast<const uint8_t*>(info) + offset));
}

void dump_parties(const LineRec* pLine, const LINECALLINFO* info) {
    TRACE_CALL(pLine, "dwCalledIDFlags(0x%x)", info->dwCalledIDFlags);
    if (info->dwCalledIDFlags & LINECALLPARTYID_ADDRESS)
        dump_text(pLine, info, "dwCalledID", info->dwCalledIDSize, info->dwCalledIDOffset);
    TRACE_CALL(pLine, "dwCallerIDFlags(0x%x)", info->dwCallerIDFlags);
    if (info->dwCallerIDFlags & LINECALLPARTYID_ADDRESS)
        dump_text(pLine, info, "dwCallerID", info->dwCallerIDSize, info->dwCallerIDOffset);
    if (info->dwCallerIDFlags & LINECALLPARTYID_NAME)
        dump_text(pLine, info, "dwCallerIDName", info->dwCallerIDNameSize, info->dwCallerIDNameOffset);
}

// Writes the record that goes back to TAPI into the trace.
void DumpCallInfo(const LineRec* pLine, const LINECALLINFO* info) {
    constexpr char name[] = "DumpCallInfo";
    if (!pLine) {
        TRACE_NULL_LINE(name);
        return;
    }
    TRACE_ENTER(pLine, name);
    TRACE(TRACE_FUNCTION_ENTER, "%s: hdCall(0x%p), hdLine(0x%p), htLine(0x%p), dwDeviceID(0x%x), htCall(0x%p)", name,
          pLine, pLine, pLine->htLine, pLine->dwDeviceID, pLine->htCall);
    for (const DumpedField& dumped : SIZES) dump_field(pLine, info, dumped);
    dump_parties(pLine, info);
    for (const DumpedField& dumped : FIXED_FIELDS) dump_field(pLine, info, dumped);
    TRACE_EXIT(pLine, name);
}

}  // namespace

extern "C" LONG WINAPI TSPI_lineGetAddressStatus(HDRVLINE hdLine, DWORD, LPLINEADDRESSSTATUS lpAddressStatus) {
    LineRec* pLine = line_of(hdLine);
    return line_entry(__func__, pLine, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineGetAddressStatus - Invalid Line Handle");
            return LINEERR_INVALLINEHANDLE;
        }
        lpAddressStatus->dwNeededSize = LINEADDRESSSTATUS_SIZE;
        lpAddressStatus->dwUsedSize = LINEADDRESSSTATUS_SIZE;
        count_active_calls(pLine, lpAddressStatus->dwNumActiveCalls);
        lpAddressStatus->dwAddressFeatures = LINEADDRFEATURE_MAKECALL;
        return 0;
    });
}

extern "C" LONG WINAPI TSPI_lineGetLineDevStatus(HDRVLINE hdLine, LPLINEDEVSTATUS lpLineDevStatus) {
    LineRec* pLine = line_of(hdLine);
    if (!pLine) return null_line_query(__func__);
    return line_entry(__func__, pLine, [&](LineEntry&) -> LONG {
        lpLineDevStatus->dwNeededSize = LINEDEVSTATUS_SIZE;
        lpLineDevStatus->dwUsedSize = LINEDEVSTATUS_SIZE;
        count_active_calls(pLine, lpLineDevStatus->dwNumActiveCalls);
        lpLineDevStatus->dwDevStatusFlags = LINEDEVSTATUSFLAGS_CONNECTED | LINEDEVSTATUSFLAGS_INSERVICE;
        return 0;
    });
}

// Every call is on the line's one address.
extern "C" LONG WINAPI TSPI_lineGetCallAddressID(HDRVCALL hdCall, LPDWORD lpdwAddressID) {
    return line_entry(__func__, line_of(hdCall), [&](LineEntry&) -> LONG {
        *lpdwAddressID = 0;
        return 0;
    });
}

extern "C" LONG WINAPI TSPI_lineGetCallStatus(HDRVCALL hdCall, LPLINECALLSTATUS lpCallStatus) {
    LineRec* pLine = line_of(hdCall);
    return line_entry(__func__, pLine, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineGetCallStatus - Invalid CallHandle");
            return LINEERR_INVALCALLHANDLE;
        }
        lpCallStatus->dwUsedSize = LINECALLSTATUS_SIZE;
        lpCallStatus->dwNeededSize = LINECALLSTATUS_SIZE;
        // Read before the lock is taken: state and features may come from two sides of a change.
        lpCallStatus->dwCallState = pLine->dwCallState;
        const LineLock lock(pLine);
        if (pLine->dwCallState == LINECALLSTATE_IDLE) return 0;
        lpCallStatus->dwCallStateMode = pLine->dwCallStateMode;
        lpCallStatus->dwCallFeatures = call_features(pLine);
        return 0;
    });
}

extern "C" LONG WINAPI TSPI_lineGetCallInfo(HDRVCALL hdCall, LPLINECALLINFO lpCallInfo) {
    LineRec* pLine = line_of(hdCall);
    return line_entry(__func__, pLine, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_ERROR, "TSPI_lineGetCallInfo - Invalid Call Handle");
            DumpCallInfo(pLine, lpCallInfo);
            return LINEERR_INVALCALLHANDLE;
        }
        CallInfo info(lpCallInfo);
        fill_call_info(pLine, info);
        DumpCallInfo(pLine, info.get());
        return 0;
    });
}
