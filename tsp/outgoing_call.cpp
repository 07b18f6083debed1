// Outgoing calls: TSPI_lineMakeCall takes the line from ring_det_thread, out_call_thread does the slow part,
// TSPI_lineDial gives it further digits. The progress of the call reaches TAPI through LINE_CALLSTATE only.
#include <process.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "diag/diag.h"
#include "entry_point.h"
#include "provider.h"
#include "reset/LumLineResetReg.h"

namespace {

constexpr char OUT_THREAD[] = "out_call_thread";
constexpr int STAND_ASIDE_ATTEMPTS = 5;
constexpr DWORD STAND_ASIDE_WAIT = 500;  // ms
constexpr size_t MAX_DIAL_STRING = 255;
constexpr uint32_t CALL_KIND = 4;
constexpr uint32_t COMPLETION_TIMEOUT = 1000000;

struct OutCall {
    LineRec* pLine;
    std::unique_ptr<char[]> szDialString;  // null = go off hook and wait for digits
    uint32_t dwCountryCode;
    uint8_t callParams[LINECALLPARAMS_SIZE];  // the caller's, zero when none were given
    uint32_t dwRequestID;
    uint32_t bFromMakeCall;
};

// ---- dial strings -------------------------------------------------------------------------------------------------

struct RefusedCharacter {
    char character;
    LONG error;
};
constexpr RefusedCharacter REFUSED_CHARACTERS[] = {
    {'$', static_cast<LONG>(LINEERR_DIALBILLING)},
    {'?', static_cast<LONG>(LINEERR_DIALPROMPT)},
    {'@', static_cast<LONG>(LINEERR_DIALQUIET)},
};

LONG refusal_of(char character) {
    for (const RefusedCharacter& refused : REFUSED_CHARACTERS)
        if (refused.character == character) return refused.error;
    return 0;
}

// 0, or the LINEERR_* code of the first character that the board cannot honour.
LONG CheckDialCharacters(const char* dial_string) {
    constexpr char name[] = "CheckDialCharacters";
    TRACE(TRACE_FUNCTION_ENTER, name);
    LONG result = 0;
    for (const char* c = dial_string; c && *c && result == 0; ++c) result = refusal_of(*c);
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, result);
    return result;
}

// TAPI's address as the driver wants it; null stays null.
class DialString {
  public:
    explicit DialString(const wchar_t* address) : given(address != nullptr) {
        if (!given) return;
        wcstombs(text, address, MAX_DIAL_STRING);
        text[MAX_DIAL_STRING] = '\0';
    }
    const char* get() const { return given ? text : nullptr; }

  private:
    bool given;
    char text[MAX_DIAL_STRING + 1] = {};
};

// Removes each blank and steps past the character that moves into its place, so that of two adjacent blanks one stays:
// exchanges behind these boards have been set up for it.
void remove_blanks(char* text) {
    for (char* c = text; *c; ++c)
        if (*c == ' ') {
            memmove(c, c + 1, strlen(c));
            if (!*c) return;
        }
}

// ISDN protocols take neither the dialling prefix nor blanks.
void adapt_to_protocol(DornLine* channel, char* dial_string) {
    DornProtocolRecord protocol{};
    DornLineCCProtocolGet(channel, &protocol);
    if (protocol.status != 0 || protocol.dwProtocol < 12 || protocol.dwProtocol > 20) return;
    const int first = toupper(static_cast<unsigned char>(dial_string[0]));
    if (first == 'T' || first == 'P') memmove(dial_string, dial_string + 1, strlen(dial_string));
    remove_blanks(dial_string);
}

// ---- outcomes -----------------------------------------------------------------------------------------------------

struct CallState {
    uint32_t state;
    uint32_t mode;
};
struct Outcome {
    uint32_t first_cause;
    uint32_t last_cause;
    CallState call_state;
};

constexpr CallState UNAVAILABLE = {LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_UNAVAIL};
constexpr CallState NO_DIAL_TONE = {LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NODIALTONE};
constexpr uint32_t CAUSE_ANSWERED = 339;

constexpr Outcome SETUP_OUTCOMES[] = {
    {258, 259, NO_DIAL_TONE},
    {261, 261, {LINECALLSTATE_BUSY, LINEBUSYMODE_TRUNK}},
    {265, 266, NO_DIAL_TONE},
};
constexpr Outcome COMPLETION_OUTCOMES[] = {
    {301, 302, {LINECALLSTATE_BUSY, LINEBUSYMODE_STATION}},
    {303, 303, {LINECALLSTATE_BUSY, LINEBUSYMODE_TRUNK}},
    {308, 309, {LINECALLSTATE_RINGBACK, 0}},
    {325, 325, {LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NOANSWER}},
    {327, 327, {LINECALLSTATE_SPECIALINFO, LINESPECIALINFO_CUSTIRREG}},
    {329, 329, {LINECALLSTATE_SPECIALINFO, LINESPECIALINFO_CUSTIRREG}},
    {330, 330, {LINECALLSTATE_SPECIALINFO, LINESPECIALINFO_REORDER}},
    {331, 331, {LINECALLSTATE_SPECIALINFO, LINESPECIALINFO_NOCIRCUIT}},
};

template <size_t N>
CallState outcome_of(const Outcome (&outcomes)[N], uint32_t cause) {
    for (const Outcome& outcome : outcomes)
        if (cause >= outcome.first_cause && cause <= outcome.last_cause) return outcome.call_state;
    return UNAVAILABLE;
}

CallState setup_failure(const DornCallRecord& setup) {
    return setup.status == KX_STATUS_ERROR_DIAL ? outcome_of(SETUP_OUTCOMES, setup.cause) : UNAVAILABLE;
}

CallState completion_failure(const DornCallRecord& wait) {
    if (wait.status == KX_STATUS_OK) return outcome_of(COMPLETION_OUTCOMES, wait.cause);
    if (wait.status == KX_STATUS_ERROR_HANGUP && wait.cause == 3) return NO_DIAL_TONE;
    return UNAVAILABLE;
}

void report(LineRec* pLine, const CallState& outcome) {
    SetCallState(pLine, outcome.state, outcome.mode);
}

// ---- the call -----------------------------------------------------------------------------------------------------

void set_line_state(LineRec* pLine, uint32_t state) {
    const LineLock lock(pLine);
    pLine->eLineState = state;
}

// Waits for the far end and reports what became of the call. 0 = connected.
LONG wait_for_answer(LineRec* pLine) {
    SetCallState(pLine, LINECALLSTATE_PROCEEDING, 0);
    DornCallRecord wait{};
    wait.dwKind = CALL_KIND;
    wait.dwOption = 0;
    wait.dwTimeout = COMPLETION_TIMEOUT;
    DornCallWaitForComplete(pLine->hChannel, &wait);
    const bool answered = wait.status == KX_STATUS_OK && wait.cause == CAUSE_ANSWERED &&
                          *DornLineStateAccess(pLine->hChannel) == DORN_LINE_STATE_CONNECTED;
    if (!answered) {
        report(pLine, completion_failure(wait));
        return LINEERR_OPERATIONFAILED;
    }
    set_line_state(pLine, LINE_CONNECTED);
    SetCallState(pLine, LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE);
    return 0;
}

// Dials, or goes off hook, and reports every call state on the way. 0 = connected, or waiting for (further) digits.
LONG place_call(const OutCall& call) {
    LineRec* pLine = call.pLine;
    char* dial_string = call.szDialString.get();
    bool complete = false;
    if (dial_string) {
        char* more_follows = strchr(dial_string, ';');
        if (more_follows) *more_follows = '\0';
        complete = !more_follows;
        adapt_to_protocol(pLine->hChannel, dial_string);
        SetCallState(pLine, LINECALLSTATE_DIALING, 0);
    }
    set_line_state(pLine, LINE_DIALING);

    DornCallRecord setup{};
    setup.dwKind = CALL_KIND;
    setup.szDialString = dial_string;
    DornCallSetup(pLine->hChannel, &setup);
    if (setup.status != KX_STATUS_OK) {
        report(pLine, setup_failure(setup));
        return LINEERR_OPERATIONFAILED;
    }
    if (complete) return wait_for_answer(pLine);
    SetCallState(pLine, LINECALLSTATE_DIALTONE, 0);
    return 0;
}

LONG place_call_guarded(const OutCall& call) {
    LONG result = LINEERR_OPERATIONFAILED;
    completes_or_traces(OUT_THREAD, [&] { result = place_call(call); });
    return result;
}

// Gives the worker's claim to the line up; the record may be gone right after. ring_det_thread stays parked until
// TSPI_lineCloseCall.
LineIdentity finish_call(LineRec* pLine, LONG result) {
    const LineLock lock(pLine);
    if (result != 0) {
        completes_or_traces(OUT_THREAD, [&] { LumLineResetReg(pLine); });
        pLine->eLineState = LINE_IDLE;
        SetCallState(pLine, LINECALLSTATE_IDLE, 0);
    }
    pLine->pending_ops -= 1;
    pLine->worker_busy = 0;
    SetEvent(pLine->worker_idle_event);
    return identity_of(pLine);
}

// Frees the request and its dial string.
void __cdecl out_call_thread(void* request) {
    const std::unique_ptr<OutCall> call(static_cast<OutCall*>(request));
    LineRec* pLine = call->pLine;
    if (!pLine) {
        TRACE_NULL_LINE(OUT_THREAD);
        return;
    }
    TRACE_ENTER(pLine, OUT_THREAD);
    const LineIdentity identity = finish_call(pLine, place_call_guarded(*call));
    TRACE_EXIT(identity, OUT_THREAD);
}

// Null when memory ran out.
std::unique_ptr<OutCall> new_out_call(LineRec* pLine, const char* dial_string, DWORD dwCountryCode,
                                      DRV_REQUESTID dwRequestID) {
    std::unique_ptr<OutCall> call(new (std::nothrow) OutCall{});
    if (!call) return nullptr;
    if (dial_string) {
        const size_t size = strlen(dial_string) + 1;
        call->szDialString.reset(new (std::nothrow) char[size]);
        if (!call->szDialString) return nullptr;
        memcpy(call->szDialString.get(), dial_string, size);
    }
    call->pLine = pLine;
    call->dwCountryCode = dwCountryCode;
    call->dwRequestID = dwRequestID;
    return call;
}

void start_out_call(std::unique_ptr<OutCall> call) {
    ResetEvent(call->pLine->worker_idle_event);
    _beginthread(out_call_thread, THREAD_STACK_SIZE, call.release());
}

// The worker has the line from here on. Lock held.
void count_worker(LineRec* pLine) {
    pLine->pending_ops += 1;
    pLine->worker_busy = 1;
}

// Waits until ring_det_thread has left the driver.
bool wait_until_stood_aside(LineRec* pLine) {
    for (int attempt = 0; attempt < STAND_ASIDE_ATTEMPTS; ++attempt) {
        const DWORD result = WaitForSingleObject(pLine->worker_idle_event, STAND_ASIDE_WAIT);
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "!!!!!! Did you know !!!!!!!!!");
        TRACE(TRACE_INFO, "TSPI_lineMakeCall - WaitForSingleObject() result= (%ls)", wait_result_name(result));
        if (result == WAIT_OBJECT_0) return true;
        if (result == WAIT_FAILED)
            TRACE(TRACE_INFO, "TSPI_lineMakeCall - WaitForSingleObject() LastError= 0x%X", error);
    }
    return false;
}

// Gives the line back to ring_det_thread. Lock held.
void give_line_up(LineRec* pLine) {
    pLine->htCall = nullptr;
    SetEvent(pLine->ring_det_wait_event);
}

}  // namespace

extern "C" LONG WINAPI TSPI_lineMakeCall(DRV_REQUESTID dwRequestID, HDRVLINE hdLine, HTAPICALL htCall,
                                         LPHDRVCALL lphdCall, LPCWSTR lpszDestAddress, DWORD dwCountryCode,
                                         LPLINECALLPARAMS const lpCallParams) {
    LineRec* pLine = line_of(hdLine);
    return async_line_entry(__func__, pLine, dwRequestID, [&](LineEntry& entry) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineMakeCall - Invalid line handle.");
            return LINEERR_INVALLINEHANDLE;
        }
        LineLock lock(pLine);
        if (pLine->htCall) return LINEERR_INUSE;
        pLine->htCall = htCall;
        *lphdCall = reinterpret_cast<HDRVCALL>(pLine);
        ResetEvent(pLine->worker_idle_event);
        alert_line(pLine);
        pLine->eLineState = LINE_CALL_REQUESTED;
        lock.unlock();
        // Nothing is rolled back here: the call stays TAPI's to close, and closing it sets the line right.
        if (!wait_until_stood_aside(pLine)) return LINEERR_RESOURCEUNAVAIL;
        lock.lock();
        if (pLine->eLineState == LINE_RINGING) {
            TRACE(TRACE_INFO, "MakeCall: collision detected, backing off");
            give_line_up(pLine);
            return LINEERR_CALLUNAVAIL;
        }
        const DialString dial_string(lpszDestAddress);
        if (const LONG refused = CheckDialCharacters(dial_string.get())) {
            give_line_up(pLine);
            return refused;
        }
        std::unique_ptr<OutCall> call = new_out_call(pLine, dial_string.get(), dwCountryCode, dwRequestID);
        if (!call) {
            give_line_up(pLine);
            lock.unlock();
            report_no_memory("tspi_linemakecall");
            return LINEERR_NOMEM;
        }
        call->bFromMakeCall = 1;
        if (lpCallParams) memcpy(call->callParams, lpCallParams, sizeof call->callParams);
        // Without a message, so that the first LINECALLSTATE_DIALING is always sent.
        pLine->dwCallState = LINECALLSTATE_UNKNOWN;
        pLine->dwMediaMode = lpCallParams ? lpCallParams->dwMediaMode : LINEMEDIAMODE_G3FAX;
        start_out_call(std::move(call));
        TRACE(TRACE_INFO, "TSPI_lineMakeCall() Async completion requestID= 0x%X: result= 0x%X", dwRequestID, 0);
        globals.glpfnCompletionProc(dwRequestID, 0);
        count_worker(pLine);
        send_numcalls(pLine);
        lock.unlock();
        if (*lphdCall != reinterpret_cast<HDRVCALL>(pLine))
            TRACE(TRACE_INFO, "Note: *lphdCall 0x%p, pLine 0x%p", *lphdCall, pLine);
        entry.line = nullptr;
        return static_cast<LONG>(dwRequestID);
    });
}

extern "C" LONG WINAPI TSPI_lineDial(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCWSTR lpszDestAddress,
                                     DWORD dwCountryCode) {
    LineRec* pLine = line_of(hdCall);
    return async_line_entry(__func__, pLine, dwRequestID, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineDial - Invalid call handle.");
            return LINEERR_INVALCALLHANDLE;
        }
        LineLock lock(pLine);
        if (!pLine->htCall) return LINEERR_INVALCALLHANDLE;
        if (pLine->eLineState != LINE_DIALING) return LINEERR_INUSE;
        if (pLine->dwCallState != LINECALLSTATE_DIALTONE) return LINEERR_INVALCALLSTATE;
        const DialString dial_string(lpszDestAddress);
        if (const LONG refused = CheckDialCharacters(dial_string.get())) return refused;
        std::unique_ptr<OutCall> call = new_out_call(pLine, dial_string.get(), dwCountryCode, dwRequestID);
        if (!call) {
            lock.unlock();
            report_no_memory("tspi_linedial");
            return LINEERR_NOMEM;
        }
        // No alert: ring_det_thread stands aside since the call was made.
        start_out_call(std::move(call));
        TRACE(TRACE_INFO, "TSPI_lineDial() Async completion requestID= 0x%X: result= 0x%X", dwRequestID, 0);
        globals.glpfnCompletionProc(dwRequestID, 0);
        count_worker(pLine);
        return static_cast<LONG>(dwRequestID);
    });
}
