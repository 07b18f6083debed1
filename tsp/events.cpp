// The provider's only path for telling TAPI that something happened on a line. TAPI's event procedure is called from
// here and nowhere else, fax notifications apart.
#include "diag/diag.h"
#include "fault_guard.h"
#include "provider.h"

namespace {

// TAPI's procedure may throw; nobody below it can do anything about that.
void call_event_procedure(const char* name, LineRec* pLine, HTAPICALL htCall, DWORD message, DWORD_PTR param1,
                          DWORD_PTR param2, DWORD_PTR param3) {
    completes_or_traces(name, [&] { pLine->lpfnEventProc(pLine->htLine, htCall, message, param1, param2, param3); });
}

}  // namespace

void SetCallState(LineRec* pLine, uint32_t dwCallState, uint32_t dwCallStateMode) {
    constexpr char name[] = "SetCallState";
    with_line(name, pLine, [&] {
        const LineLock lock(pLine);
        if (pLine->dwCallState == dwCallState || !pLine->htCall) return;
        TRACE_LINE(TRACE_INFO, pLine, "Sending LINE_CALLSTATE, dwCallState=0x%X, dwCallStateMode=0x%X", dwCallState,
                   dwCallStateMode);
        pLine->dwCallState = dwCallState;
        pLine->dwCallStateMode = dwCallStateMode;
        call_event_procedure(name, pLine, pLine->htCall, LINE_CALLSTATE, dwCallState, dwCallStateMode,
                             pLine->dwMediaMode);
    });
}

void send_linedevstate(LineRec* pLine, uint32_t newstate, uint32_t parm2, uint32_t parm3) {
    constexpr char name[] = "send_linedevstate";
    with_line(name, pLine, [&] {
        TRACE_LINE(TRACE_INFO, pLine, "Sending LINE_LINEDEVSTATE, newstate=0x%X, Parm2=0x%X, Parm3=0x%X", newstate,
                   parm2, parm3);
        // A line message that carries the call handle: clients of this provider have always had it so.
        call_event_procedure(name, pLine, pLine->htCall, LINE_LINEDEVSTATE, newstate, parm2, parm3);
    });
}

void send_addrstate(LineRec* pLine, uint32_t addr, uint32_t newstate, uint32_t parm3) {
    constexpr char name[] = "send_addrstate";
    with_line(name, pLine, [&] {
        TRACE_LINE(TRACE_INFO, pLine, "Sending LINE_ADDRESSSTATE addr=0x%X, newstate=0x%X, Parm3=0x%X", addr, newstate,
                   parm3);
        call_event_procedure(name, pLine, nullptr, LINE_ADDRESSSTATE, addr, newstate, parm3);
    });
}

void send_linecallinfo(LineRec* pLine, uint32_t callinfo_state) {
    constexpr char name[] = "send_linecallinfo";
    with_line(name, pLine, [&] {
        TRACE_LINE(TRACE_INFO, pLine, "Sending LINE_CALLINFO callinfo_state=0x%X", callinfo_state);
        call_event_procedure(name, pLine, pLine->htCall, LINE_CALLINFO, callinfo_state, 0, 0);
    });
}

void send_linenewcall(LineRec* pLine) {
    constexpr char name[] = "send_linenewcall";
    with_line(name, pLine, [&] {
        TRACE_LINE(TRACE_INFO, pLine, "%s", "Sending LINE_NEWCALL");
        call_event_procedure(name, pLine, nullptr, LINE_NEWCALL, reinterpret_cast<DWORD_PTR>(pLine),
                             reinterpret_cast<DWORD_PTR>(&pLine->htCall), 0);
        TRACE_LINE(TRACE_INFO, pLine, "%s", "Sent LINE_NEWCALL");
    });
}

void send_numcalls(LineRec* pLine) {
    send_linedevstate(pLine, LINEDEVSTATE_NUMCALLS, 0, 0);
    send_addrstate(pLine, 0, LINEADDRESSSTATE_NUMCALLS, 0);
}

void send_call_ended(LineRec* pLine) {
    SetCallState(pLine, LINECALLSTATE_IDLE, 0);
    send_numcalls(pLine);
}
