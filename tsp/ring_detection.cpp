// The line's own thread. It sits in the driver waiting for calls for as long as the line is open, counts rings, offers
// each call to TAPI, and stands aside (parks) while a call is in progress or being placed. Whoever wants the line
// alerts the channel; the thread answers through worker_idle_event and goes on when ring_det_wait_event is signalled.
#include <cstdio>
#include <cstring>

#include "diag/diag.h"
#include "fault_guard.h"
#include "provider.h"
#include "reset/LumLineResetReg.h"

namespace {

constexpr char NAME[] = "ring_det_thread";
constexpr uint32_t OFFERED_CALL_TIMEOUT = 12000;  // ms without a ring after which an offered call is over
constexpr uint32_t MAX_RINGS = 20;
constexpr DWORD RING_PAUSE = 6000;
constexpr DWORD NEWCALL_PAUSE = 1000;
constexpr int NEWCALL_ATTEMPTS = 2;
constexpr DWORD EXCEPTION_PAUSE = 1000;  // keeps a driver that throws at every call from filling the panic file

struct RingDetection {
    LineRec* pLine;
    uint32_t rings;    // rings of the current call
    uint32_t timeout;  // ms that the next wait for a call may take, 0 = for ever
    DornWaitForCallRecord call;

    void forget_call() {
        rings = 0;
        timeout = 0;
    }
};

// What the log calls a call that nobody took, and the two lines around the wait for its end.
struct AbandonedCall {
    const char* previous;
    const char* waiting;
    const char* idle;
};
constexpr AbandonedCall RINGS_STOPPED = {
    "Previous NEWCALL has not been picked up.",
    "RING_DET_THREAD: call not answered wait for idle",
    "RING_DET_THREAD: call not answered and now idle",
};
constexpr AbandonedCall TOO_MANY_RINGS = {
    "Previous NEWCALL has not been pickep up.",
    "RING_DET_THREAD: max rings, call not answered wait for idle",
    "RING_DET_THREAD: max rings, call not answered and now idle",
};
constexpr AbandonedCall WAIT_TIMED_OUT = {
    "Previous NEWCALL has not been pickep up.",
    "RING_DET_THREAD: timeout, call not answered wait for idle",
    "RING_DET_THREAD: timeoutrings, call not answered and now idle",
};

void park(LineRec* pLine) {
    WaitForSingleObject(pLine->ring_det_wait_event, INFINITE);
}

// TAPI never took the offered call: ends it and parks until TAPI has closed it. Takes the lock held, leaves it
// released.
void abandon_call(LineRec* pLine, LineLock& lock, const AbandonedCall& texts) {
    TRACE(TRACE_INFO, "%s", texts.previous);
    send_call_ended(pLine);
    lock.unlock();
    TRACE(TRACE_INFO, "%s", texts.waiting);
    park(pLine);
    TRACE(TRACE_INFO, "%s", texts.idle);
}

// Whether the line is closing; the thread must then end without another look at the record. Lock held; if so, released.
bool must_exit(LineRec* pLine, LineLock& lock) {
    if (!pLine->line_closing) return false;
    pLine->ring_det_ended = 1;
    lock.unlock();
    TRACE_EXIT(pLine, NAME);
    // TSPI_lineClose frees the record as soon as it sees this.
    SetEvent(pLine->worker_idle_event);
    return true;
}

void copy_text(char (&destination)[256], const char (&source)[256]) {
    memset(destination, 0, sizeof destination);
    memcpy(destination, source, strnlen(source, sizeof source - 1));
}

void store_routing_info(LineRec* pLine, const DornCallData& call) {
    // The driver may fill the field to its last byte.
    char information[sizeof call.szInformation + 1] = {};
    memcpy(information, call.szInformation, sizeof call.szInformation);
    memset(pLine->szRoutingInfo, 0, sizeof pLine->szRoutingInfo);
    decode_hex_escapes(information, pLine->szRoutingInfo, sizeof pLine->szRoutingInfo);
}

void announce_parties(LineRec* pLine, const DornCallData& call) {
    if (call.szCalledNumber[0] || call.szSecondCalled[0]) {
        copy_text(pLine->szCalledID, call.szCalledNumber);
        send_linecallinfo(pLine, LINECALLINFOSTATE_CALLEDID);
    }
    if (call.szCallingNumber[0]) {
        copy_text(pLine->szCallerID, call.szCallingNumber);
        copy_text(pLine->szCallerIDName, call.szCallingName);
        send_linecallinfo(pLine, LINECALLINFOSTATE_CALLERID);
    }
}

// Asks TAPI for a call handle. Lock held, released only for the pauses between attempts.
bool offer_new_call(LineRec* pLine, LineLock& lock) {
    for (int attempt = 0; attempt < NEWCALL_ATTEMPTS && !pLine->htCall; ++attempt) {
        send_linenewcall(pLine);
        if (pLine->htCall) break;
        TRACE_LINE(TRACE_INFO, pLine, "%s", "LINE_NEWCALL return NULL");
        lock.unlock();
        Sleep(NEWCALL_PAUSE);
        lock.lock();
    }
    return pLine->htCall != nullptr;
}

void announce_call(RingDetection& detection) {
    LineRec* pLine = detection.pLine;
    pLine->dwMediaMode = LINEMEDIAMODE_G3FAX;
    ResetEvent(pLine->ring_det_wait_event);
    SetCallState(pLine, LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE);
    send_numcalls(pLine);
    store_routing_info(pLine, detection.call.callData);
    announce_parties(pLine, detection.call.callData);
    detection.timeout = OFFERED_CALL_TIMEOUT;
}

// An outgoing call was requested at the same moment: the incoming call wins. TSPI_lineMakeCall sees state 4, backs off
// and lets the thread go on. Lock held.
void win_collision(LineRec* pLine, LineLock& lock) {
    pLine->eLineState = LINE_RINGING;
    ResetEvent(pLine->ring_det_wait_event);
    lock.unlock();
    SetEvent(pLine->worker_idle_event);
    TRACE(TRACE_INFO, "r_d_t: Collision detected");
    park(pLine);
    lock.lock();
}

// Tells TAPI of the ring and gives the fax service time to answer. Lock held, released for the pause.
void report_ring(RingDetection& detection, LineLock& lock) {
    LineRec* pLine = detection.pLine;
    uint32_t wanted = 1;
    findNringsFromLineID(pLine->dwPermanentLineID, &wanted);
    TRACE(TRACE_INFO, "RING_DET_THREAD: number of incoming rings = %d  NRINGS = %d", detection.rings, wanted);
    // The product, not the ring: the fax service answers when the count reaches what it asked for.
    send_linedevstate(pLine, LINEDEVSTATE_RINGING, 1, wanted * detection.rings);
    lock.unlock();
    Sleep(RING_PAUSE);
    lock.lock();
}

// Each handler below returns whether the thread goes on.

bool handle_ring(RingDetection& detection) {
    LineRec* pLine = detection.pLine;
    TRACE(TRACE_INFO, "Did not Timeout");
    TRACE(TRACE_INFO, "res.line_status = %d", detection.call.line_status);
    LineLock lock(pLine);
    if (must_exit(pLine, lock)) return false;
    if (pLine->eLineState == LINE_CALL_REQUESTED)
        win_collision(pLine, lock);
    else
        pLine->eLineState = LINE_RINGING;

    if (detection.rings == 1) {
        if (!offer_new_call(pLine, lock)) {
            TRACE(TRACE_INFO, "NEWCALL returned NULL htCall, go back to waitforcall");
            pLine->eLineState = LINE_IDLE;
            lock.unlock();
            detection.rings = 0;
            return true;
        }
        announce_call(detection);
    }
    report_ring(detection, lock);

    const uint32_t state = pLine->eLineState;
    if (state == LINE_ACCEPTED || state == LINE_CONNECTED) {
        lock.unlock();
        TRACE(TRACE_INFO, "pLine->eLineState = 0x%X Wait for ring_det_wait_event.", state);
        TRACE(TRACE_INFO, "RING_DET_THREAD: call connected");
        park(pLine);
        TRACE(TRACE_INFO, "RING_DET_THREAD: call connected and now idle");
        detection.forget_call();
        return true;
    }
    TRACE(TRACE_INFO, "RING_DET_THREAD: call not connected, eLineState(%d)", state);
    if (detection.rings <= MAX_RINGS) return true;
    if (must_exit(pLine, lock)) return false;
    if (pLine->htCall) abandon_call(pLine, lock, TOO_MANY_RINGS);
    detection.forget_call();
    return true;
}

bool handle_end_of_rings(RingDetection& detection, const AbandonedCall& texts) {
    LineRec* pLine = detection.pLine;
    LineLock lock(pLine);
    if (must_exit(pLine, lock)) return false;
    detection.forget_call();
    if (pLine->htCall) abandon_call(pLine, lock, texts);
    return true;
}

bool handle_ok(RingDetection& detection) {
    TRACE(TRACE_INFO, "LumLineWaitForCall res.status = KX_STATUS_OK");
    detection.rings += 1;
    if (detection.call.line_status != WAIT_FOR_CALL_TIMEOUT) return handle_ring(detection);
    TRACE(TRACE_INFO, "LumLineWaitForCall res.line_status = WAIT_FOR_CALL_TIMEOUT(%d)", detection.call.line_status);
    return handle_end_of_rings(detection, RINGS_STOPPED);
}

// Somebody wants the line: says that the driver is free, and parks.
bool handle_alert(RingDetection& detection) {
    LineRec* pLine = detection.pLine;
    TRACE(TRACE_INFO, "LumLineWaitForCall res.status = KX_STATUS_ALERT");
    LineLock lock(pLine);
    if (must_exit(pLine, lock)) return false;
    ResetEvent(pLine->ring_det_wait_event);
    SetEvent(pLine->worker_idle_event);
    TRACE(TRACE_INFO, "Ring_det received alert");
    lock.unlock();
    park(pLine);
    return true;
}

bool handle_timeout(RingDetection& detection) {
    TRACE(TRACE_INFO, "LumLineWaitForCall res.status = KX_STATUS_TIMEOUT");
    return handle_end_of_rings(detection, WAIT_TIMED_OUT);
}

bool handle_error(RingDetection& detection) {
    LineLock lock(detection.pLine);
    TRACE(TRACE_INFO, "Ring_det received error!");
    LumLineResetReg(detection.pLine);
    return true;
}

// One wait in the driver and what came of it.
bool wait_for_call(RingDetection& detection) {
    detection.call = {};
    detection.call.dwTimeout = detection.timeout;
    DornLineWaitForCallISDN(detection.pLine->hChannel, &detection.call);
    switch (detection.call.status) {
        case KX_STATUS_OK:
            return handle_ok(detection);
        case KX_STATUS_ALERT:
            return handle_alert(detection);
        case KX_STATUS_TIMEOUT:
            return handle_timeout(detection);
        default:
            return handle_error(detection);
    }
}

// The thread goes on after an exception, since TSPI_lineClose waits for nobody else.
bool recover(LineRec* pLine) {
    {
        LineLock lock(pLine);
        if (must_exit(pLine, lock)) return false;
    }
    Sleep(EXCEPTION_PAUSE);
    return true;
}

bool wait_for_call_or_recover(RingDetection& detection) {
    bool go_on = true;
    return completes_or_traces(NAME, [&] { go_on = wait_for_call(detection); }) ? go_on : recover(detection.pLine);
}

}  // namespace

void __cdecl ring_det_thread(void* line) {
    if (!line) {
        TRACE_NULL_LINE(NAME);
        return;
    }
    RingDetection detection{static_cast<LineRec*>(line), 0, 0, {}};
    TRACE_ENTER(detection.pLine, NAME);
    while (wait_for_call_or_recover(detection)) {
    }
}

int decode_hex_escapes(const char* source, char* destination, size_t capacity) {
    for (size_t written = 0; written < capacity && *source; ++written) {
        if (source[0] == '%' && source[1] && source[2]) {
            const char digits[3] = {source[1], source[2], '\0'};
            unsigned value = 0;
            sscanf(digits, "%x", &value);
            destination[written] = static_cast<char>(value);
            source += 3;
        } else {
            destination[written] = *source++;
        }
    }
    return 0;
}
