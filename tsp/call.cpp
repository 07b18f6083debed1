// Taking up and ending the line's call: accept, answer, drop and close. The three asynchronous functions report their
// completion before they return.
#include <process.h>

#include <memory>
#include <new>

#include "diag/diag.h"
#include "entry_point.h"
#include "fax/qorv_fax.h"
#include "provider.h"
#include "reset/LumLineResetReg.h"

namespace {

constexpr char DROP_THREAD[] = "drop_call_thread";
// Marks the end of a wait for a worker in the log; support has searched for it for years.
constexpr char WORKER_WOKE_US[] = "!!!!!! Did you know !!!!!!!!!";

struct DropCall {
    LineRec* pLine;
    uint32_t dwRequestID;  // request to complete, 0 = none
    uint32_t bSkipAlert;   // 1 = a drop was in progress already, the channel has been alerted
};
static_assert(sizeof(DropCall) == 16, "drop request");

void complete_request(const char* format, DRV_REQUESTID dwRequestID, LONG result) {
    TRACE(TRACE_INFO, format, dwRequestID, result);
    globals.glpfnCompletionProc(dwRequestID, result);
}

// The record may be gone when the last lock is released: its identity is kept for the exit trace.
LineIdentity clear_call(DropCall& drop) {
    LineRec* pLine = drop.pLine;
    if (!drop.bSkipAlert) alert_line(pLine);
    WaitForSingleObject(pLine->worker_idle_event, INFINITE);
    TRACE(TRACE_INFO, WORKER_WOKE_US);
    // The lock stays held while the driver clears the call: nobody may touch the line before it is free.
    LineLock lock(pLine);
    terminate_call(pLine->hChannel);
    pLine->eLineState = LINE_IDLE;
    SetCallState(pLine, LINECALLSTATE_IDLE, 0);
    if (drop.dwRequestID != 0) {
        const uint32_t dwRequestID = drop.dwRequestID;
        drop.dwRequestID = 0;
        complete_request("drop_call_thread() Async completion requestID= 0x%X: result= 0x%X", dwRequestID, 0);
        // out_call_thread counts down as well when the drop interrupted it; every test is for "below 1".
        pLine->pending_ops -= 1;
        SetEvent(pLine->worker_idle_event);
        send_numcalls(pLine);
    }
    pLine->worker_busy = 0;
    SetEvent(pLine->drop_done_event);
    return identity_of(pLine);
}

// After an exception nobody may be left waiting for the drop or for its request.
LineIdentity give_up_drop(const DropCall& drop) {
    LineLock lock(drop.pLine);
    if (drop.dwRequestID != 0) {
        globals.glpfnCompletionProc(drop.dwRequestID, LINEERR_OPERATIONFAILED);
        drop.pLine->pending_ops -= 1;
    }
    drop.pLine->worker_busy = 0;
    SetEvent(drop.pLine->drop_done_event);
    return identity_of(drop.pLine);
}

LineIdentity clear_call_or_give_up(DropCall& drop) {
    LineIdentity identity;
    const bool cleared = completes_or_traces(DROP_THREAD, [&] { identity = clear_call(drop); });
    return cleared ? identity : give_up_drop(drop);
}

// Ends the call of a line whose worker is busy: makes the worker let go of the driver, waits for it, clears the call.
// Frees the request. TSPI_lineDrop starts it as a thread, TSPI_lineCloseCall runs it on its own.
void __cdecl drop_call_thread(void* request) {
    const std::unique_ptr<DropCall> drop(static_cast<DropCall*>(request));
    if (!drop) {
        TRACE_NULL_ARGUMENT(DROP_THREAD, "pDropCall");
        return;
    }
    LineRec* pLine = drop->pLine;
    if (!pLine) {
        TRACE_NULL_LINE(DROP_THREAD);
        return;
    }
    TRACE_ENTER(pLine, DROP_THREAD);
    const LineIdentity identity = clear_call_or_give_up(*drop);
    TRACE_EXIT(identity, DROP_THREAD);
}

void end_call_unless_idle(LineRec* pLine) {
    if (pLine->dwCallState != LINECALLSTATE_IDLE) send_call_ended(pLine);
}

// Waits until the worker has cleared its pending operations. Takes the lock released, leaves it held.
void wait_for_pending_operations(LineRec* pLine, LineLock& lock) {
    for (;;) {
        lock.lock();
        if (pLine->pending_ops < 1) return;
        ResetEvent(pLine->worker_idle_event);
        lock.unlock();
        WaitForSingleObject(pLine->worker_idle_event, INFINITE);
        TRACE(TRACE_INFO, WORKER_WOKE_US);
    }
}

// Stops the worker that owns the line. Lock held on both sides. False when memory ran out.
bool stop_worker(LineRec* pLine, LineLock& lock) {
    if (pLine->eLineState == LINE_DROPPING) {
        lock.unlock();
        WaitForSingleObject(pLine->drop_done_event, INFINITE);
    } else {
        auto* drop = new (std::nothrow) DropCall{pLine, 0, 0};
        lock.unlock();
        if (!drop) {
            report_no_memory("tspi_lineclosecall");
            return false;
        }
        drop_call_thread(drop);
    }
    wait_for_pending_operations(pLine, lock);
    return true;
}

void close_open_tiff(LineRec* pLine) {
    if (!pLine->hTiff) return;
    close_tiff(pLine->hTiff);
    pLine->hTiff = nullptr;
}

void forget_call(LineRec* pLine) {
    pLine->eLineState = LINE_IDLE;
    pLine->htCall = nullptr;
    pLine->call_closing = 0;
    InterlockedExchange(&pLine->closer_inside, 0);
    pLine->FaxStatus = {};
    ZeroMemory(pLine->szCalledID, sizeof pLine->szCalledID);
    ZeroMemory(pLine->szCallerID, sizeof pLine->szCallerID);
    ZeroMemory(pLine->szCallerIDName, sizeof pLine->szCallerIDName);
    UpdateSharedMemory(pLine);
}

}  // namespace

void alert_line(LineRec* pLine) {
    DornAlertRecord alert{};
    alert.dwUnit = DornLineUnitGet(pLine->hChannel);
    DornLineAlert(&alert);
}

void detach_channel(DornLine* channel) {
    DornAttachRecord detach{};
    DornSessionDetach(channel, &detach);
}

extern "C" LONG WINAPI TSPI_lineAccept(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCSTR, DWORD) {
    LineRec* pLine = line_of(hdCall);
    return async_line_entry(__func__, pLine, dwRequestID, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineAccept - Invalid Call handle");
            return LINEERR_INVALCALLHANDLE;
        }
        const LineLock lock(pLine);
        if (!pLine->htCall) return LINEERR_INVALCALLSTATE;
        if (pLine->eLineState != LINE_RINGING) return LINEERR_INUSE;
        pLine->eLineState = LINE_ACCEPTED;
        SetCallState(pLine, LINECALLSTATE_ACCEPTED, 0);
        complete_request("TSPI_lineAccept() Async completion requestID= 0x%X: result= 0x%X", dwRequestID, 0);
        return static_cast<LONG>(dwRequestID);
    });
}

extern "C" LONG WINAPI TSPI_lineAnswer(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCSTR, DWORD) {
    LineRec* pLine = line_of(hdCall);
    const auto answer = [&]() -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_ERROR, "TSPI_lineAnswer - Invalid call handle.");
            return LINEERR_INVALCALLHANDLE;
        }
        const LineLock lock(pLine);
        if (!pLine->htCall) return LINEERR_INVALCALLSTATE;
        if (pLine->eLineState != LINE_RINGING && pLine->eLineState != LINE_ACCEPTED) return LINEERR_INUSE;
        // The call is reported connected whatever the driver says: a failure shows in the fax session that follows.
        DornLineResultRecord result{};
        DornLineAnswerISDN(pLine->hChannel, &result);
        pLine->eLineState = LINE_CONNECTED;
        SetCallState(pLine, LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE);
        complete_request("TSPI_lineAnswer - Async completion requestID= 0x%X: result= 0x%X", dwRequestID, 0);
        return static_cast<LONG>(dwRequestID);
    };
    return async_line_entry(__func__, pLine, dwRequestID, [&](LineEntry&) -> LONG {
        LONG result = LINEERR_OPERATIONFAILED;
        if (!completes([&] { result = answer(); })) TRACE(TRACE_INFO, "TSPI_lineAnswer - Catch Error");
        return result;
    });
}

extern "C" LONG WINAPI TSPI_lineDrop(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCSTR, DWORD) {
    LineRec* pLine = line_of(hdCall);
    return async_line_entry(__func__, pLine, dwRequestID, [&](LineEntry&) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineDrop - Invalid CallHandle");
            return LINEERR_INVALCALLHANDLE;
        }
        LineLock lock(pLine);
        if (!pLine->htCall || pLine->call_closing || pLine->bFaxActive) return LINEERR_INVALCALLSTATE;
        if (!pLine->worker_busy) {
            // No driver call here: TSPI_lineCloseCall releases the line when it resets the channel.
            end_call_unless_idle(pLine);
            complete_request("TSPI_lineDrop() Async completion requestID= 0x%X: result= 0x%X", dwRequestID, 0);
            return static_cast<LONG>(dwRequestID);
        }
        const uint32_t bSkipAlert = pLine->eLineState == LINE_DROPPING ? 1 : 0;
        auto* drop = new (std::nothrow) DropCall{pLine, dwRequestID, bSkipAlert};
        if (!drop) {
            lock.unlock();
            // The text of another function, under which this failure has always been logged.
            report_no_memory("TSPI_lineDevSpecific");
            return LINEERR_NOMEM;
        }
        ResetEvent(pLine->drop_done_event);
        pLine->eLineState = LINE_DROPPING;
        _beginthread(drop_call_thread, THREAD_STACK_SIZE, drop);
        lock.unlock();
        WaitForSingleObject(pLine->drop_done_event, INFINITE);
        return static_cast<LONG>(dwRequestID);
    });
}

extern "C" LONG WINAPI TSPI_lineCloseCall(HDRVCALL hdCall) {
    LineRec* pLine = line_of(hdCall);
    bool is_closing = false;
    const LONG result = line_entry(__func__, pLine, [&](LineEntry& entry) -> LONG {
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "TSPI_lineCloseCall - Invalid CallHandle");
            return LINEERR_INVALCALLHANDLE;
        }
        LineLock lock(pLine);
        TRACE(TRACE_INFO, "Closing call on line %d", DornLineUnitGet(pLine->hChannel) + 1);
        if (!pLine->htCall || pLine->call_closing || pLine->line_closing) {
            entry.leave_line();
            return 0;
        }
        pLine->call_closing = 1;
        InterlockedExchange(&pLine->closer_inside, 1);
        is_closing = true;
        close_open_tiff(pLine);
        alert_line(pLine);
        lock.unlock();
        lock.lock();
        if (!pLine->worker_busy) {
            end_call_unless_idle(pLine);
            alert_line(pLine);
        } else if (!stop_worker(pLine, lock)) {
            return LINEERR_NOMEM;
        }
        lock.unlock();
        LumLineResetReg(pLine);
        lock.lock();
        SetEvent(pLine->ring_det_wait_event);
        forget_call(pLine);
        SetEvent(pLine->ring_det_wait_event);
        // TSPI_lineClose may wait for this close, and frees the record then.
        entry.leave_line();
        is_closing = false;
        return 0;
    });
    // A close that broke off is nobody's to wait for.
    if (is_closing) InterlockedExchange(&pLine->closer_inside, 0);
    return result;
}
