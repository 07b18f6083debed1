// Line open and close: a line is one board channel with a record, a lock, three events and a thread of its own.
#include <process.h>

#include <initializer_list>
#include <memory>
#include <new>

#include "diag/diag.h"
#include "entry_point.h"
#include "provider.h"
#include "reset/LumLineResetReg.h"

namespace {

// What TSPI_lineOpen has built so far. undo() takes back whatever is still in it, newest first; what is taken back once
// is not taken back again.
struct OpeningLine {
    DornLine* channel = nullptr;
    std::unique_ptr<LineRec> record;

    void detach() {
        DornLine* attached = channel;
        channel = nullptr;
        if (attached) detach_channel(attached);
    }

    void undo() {
        close_handles();
        record.reset();
        detach();
    }

    // A second exception on the way back goes no further.
    void undo_after_exception() {
        if (!completes([this] { undo(); })) TRACE(TRACE_PANIC, "%s: Exception 2", "TSPI_lineOpen");
    }

    // The line is open and lives on its own.
    LineRec* release() {
        channel = nullptr;
        return record.release();
    }

  private:
    void close_handles() {
        if (!record) return;
        for (HANDLE handle :
             {record->ring_det_wait_event, record->drop_done_event, record->worker_idle_event, record->line_mutex})
            if (handle) CloseHandle(handle);
    }
};

bool attach_channel(OpeningLine& opening, int32_t channel) {
    DornAttachRecord attach{};
    attach.dwChannel = static_cast<uint32_t>(channel);
    opening.channel = DornLineAttach(&attach);
    if (opening.channel) return true;
    TRACE(TRACE_INFO, "Open err, attach failure, chan %d", channel);
    report_event_num(EVENT_HARDWARE_FAILURE, EVENT_ATTACH_FAILURE, static_cast<uint32_t>(channel));
    return false;
}

uint32_t permanent_line_id(DWORD dwDeviceID, DWORD dwTSPIVersion) {
    LINEDEVCAPS caps{};
    caps.dwTotalSize = caps.dwUsedSize = LINEDEVCAPS_SIZE;
    TSPI_lineGetDevCaps(dwDeviceID, dwTSPIVersion, 0, &caps);
    return caps.dwPermanentLineID;
}

bool reset_opened_channel(OpeningLine& opening) {
    LineRec* pLine = opening.record.get();
    if (LumLineResetReg(pLine) >= 0 && DornLineCapCheck(opening.channel, CAPABILITY_FIRMWARE) != 0) {
        // Whatever the reset stored in the record is not wanted in an open line.
        const uint32_t dwDeviceID = pLine->dwDeviceID;
        const uint32_t dwPermanentLineID = pLine->dwPermanentLineID;
        *pLine = {};
        pLine->dwDeviceID = dwDeviceID;
        pLine->dwPermanentLineID = dwPermanentLineID;
        return true;
    }
    TRACE(TRACE_PANIC, "Reset failure or no fw on LumChannel(%d), dwDeviceID(0x%x)", DornLineUnitGet(opening.channel),
          pLine->dwDeviceID);
    opening.detach();
    return false;
}

// A handle that the system shares with somebody is none of this line's.
HANDLE unless_shared(HANDLE handle, DWORD error, const char* complaint) {
    if (error != ERROR_ALREADY_EXISTS) return handle;
    TRACE(TRACE_INFO, "%s", complaint);
    return nullptr;
}

bool create_line_mutex(LineRec* pLine, uint32_t index) {
    pLine->line_mutex_CreatedInThreadId = GetCurrentThreadId();
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
    const DWORD error = GetLastError();
    pLine->line_mutex = unless_shared(mutex, error, "TSPI_lineOpen mutex already exists, reporting error");
    TRACE(TRACE_INFO, "TSPI_lineOpen() After CreateMutex() pLine->line_mutex= 0x%p ", pLine->line_mutex);
    TRACE(TRACE_INFO, "pLine->line_mutex_CreatedInThreadId= 0x%p",
          reinterpret_cast<void*>(static_cast<uintptr_t>(pLine->line_mutex_CreatedInThreadId)));
    TRACE(TRACE_INFO, "Halvorsund Line #%d", index + 1);
    if (pLine->line_mutex) return true;
    report_event_num(EVENT_SYSTEM_FAILURE, EVENT_MUTEX_NOT_CREATED, error);
    return false;
}

struct LineEvent {
    HANDLE LineRec::*handle;
    const char* already_exists;
};
constexpr LineEvent LINE_EVENTS[] = {
    {&LineRec::worker_idle_event, "TSPI_lineOpen - erroralreadyexists #1"},
    {&LineRec::drop_done_event, "TSPI_lineOpen - erroralreadyexists #2"},
    {&LineRec::ring_det_wait_event, "TSPI_lineOpen - erroralreadyexists #3"},
};

bool create_line_events(LineRec* pLine) {
    for (const LineEvent& event : LINE_EVENTS) {
        const HANDLE created = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        const DWORD error = GetLastError();
        pLine->*event.handle = unless_shared(created, error, event.already_exists);
        if (pLine->*event.handle) continue;
        report_event_num(EVENT_SYSTEM_FAILURE, EVENT_EVENT_NOT_CREATED, error);
        return false;
    }
    return true;
}

void fill_line(LineRec* pLine, HTAPILINE htLine, LINEEVENT lpfnEventProc, DWORD dwDeviceID, DornLine* channel,
               uint32_t index) {
    pLine->htLine = htLine;
    pLine->htCall = nullptr;
    pLine->lpfnEventProc = lpfnEventProc;
    pLine->dwDeviceID = dwDeviceID;
    pLine->hChannel = channel;
    pLine->eLineState = LINE_IDLE;
    pLine->line_closing = 0;
    pLine->call_closing = 0;
    pLine->pending_ops = 0;
    pLine->worker_busy = 0;
    pLine->dwCallState = LINECALLSTATE_IDLE;
    pLine->dwRate = line_max_rate(index);
}

// The longest pause of ring_det_thread that no alert ends is 8 s: two vain offers and the one after a ring.
constexpr int PASSES_UNTIL_WOKEN = 30;

// Ends the call that is still on the line, or waits until another thread has ended it; that thread may be there first
// when this one has just given up the lock. A close that broke off, for want of memory or because the driver raised
// something, has left its mark on the line, and is tried once more.
void close_remaining_call(LineRec* pLine, LineLock& lock) {
    while (pLine->htCall) {
        if (pLine->call_closing && pLine->closer_inside) {
            TRACE(TRACE_INFO, "TSPI_lineClose - Unlock #02");
            lock.unlock();
            Sleep(500);
            lock.lock();
            continue;
        }
        pLine->call_closing = 0;
        TRACE(TRACE_INFO, "TSPI_lineClose - Unlock #01");
        lock.unlock();
        const LONG result = TSPI_lineCloseCall(reinterpret_cast<HDRVCALL>(pLine));
        lock.lock();
        if (result != 0 || !pLine->call_closing) return;
    }
}

// Alerts the channel again and again, since the thread may just be between two waits. A thread that does not answer for
// longer than any pause of its own lasts is parked, because of a request that was given up or of an alert that it saw
// too late, and nobody else will wake it. One that answers without having ended has signalled a collision late.
void stop_ring_det_thread(LineRec* pLine, LineLock& lock) {
    ResetEvent(pLine->worker_idle_event);
    pLine->line_closing = 1;
    for (int pass = 1;; ++pass) {
        alert_line(pLine);
        TRACE(TRACE_INFO, "TSPI_lineClose - Unlock #03");
        lock.unlock();
        const DWORD result = WaitForSingleObject(pLine->worker_idle_event, 1000);
        lock.lock();
        const bool is_too_early = result == WAIT_OBJECT_0 && !pLine->ring_det_ended;
        if (result != WAIT_TIMEOUT && !is_too_early) break;
        if (is_too_early) ResetEvent(pLine->worker_idle_event);
        if (is_too_early || pass >= PASSES_UNTIL_WOKEN) SetEvent(pLine->ring_det_wait_event);
    }
    TRACE(TRACE_INFO, "ring_det_thread should be IDLE");
}

void free_line(LineRec* pLine) {
    for (HANDLE handle :
         {pLine->line_mutex, pLine->worker_idle_event, pLine->drop_done_event, pLine->ring_det_wait_event})
        if (handle) CloseHandle(handle);
    delete pLine;
}

}  // namespace

extern "C" LONG WINAPI TSPI_lineOpen(DWORD dwDeviceID, HTAPILINE htLine, LPHDRVLINE lphdLine, DWORD dwTSPIVersion,
                                     LINEEVENT lpfnEventProc) {
    constexpr char name[] = "TSPI_lineOpen";
    OpeningLine opening;
    const auto open = [&](LineEntry& entry) -> LONG {
        // An invalid device does not end the open; its result is kept, so that even a success returns it.
        LONG result = 0;
        const uint32_t index = dwDeviceID - globals.gdwLineDeviceIDBase;
        if (!device_in_range(dwDeviceID)) {
            result = LINEERR_INVALDEVICEHANDLE;
            trace_invalid_device(name, dwDeviceID);
        }
        const int32_t channel = line_channel(index);
        if (channel < 0) {
            TRACE(TRACE_INFO,
                  "Open err, channel previously marked bad, chan= %d  dwDeviceID= %d  gdwLineDeviceIDBase= %d", index,
                  dwDeviceID, globals.gdwLineDeviceIDBase);
            TRACE(TRACE_INFO, "Open err, channel marked bad, val= %d", channel);
            return LINEERR_RESOURCEUNAVAIL;
        }
        if (!attach_channel(opening, channel)) return LINEERR_RESOURCEUNAVAIL;
        opening.record.reset(new (std::nothrow) LineRec{});
        if (!opening.record) {
            TRACE(TRACE_INFO, "Open err, allocation");
            opening.detach();
            report_no_memory("tspi_lineopen");
            return LINEERR_NOMEM;
        }
        LineRec* pLine = opening.record.get();
        pLine->hChannel = opening.channel;
        pLine->dwPermanentLineID = permanent_line_id(dwDeviceID, dwTSPIVersion);
        pLine->dwDeviceID = dwDeviceID;
        if (!reset_opened_channel(opening)) return LINEERR_OPERATIONUNAVAIL;
        if (!create_line_mutex(pLine, index)) return LINEERR_RESOURCEUNAVAIL;
        if (!create_line_events(pLine)) return LINEERR_RESOURCEUNAVAIL;
        fill_line(pLine, htLine, lpfnEventProc, dwDeviceID, opening.channel, index);
        *lphdLine = reinterpret_cast<HDRVLINE>(pLine);
        set_line_by_unit(DornLineUnitGet(pLine->hChannel), pLine);
        entry.line = opening.release();
        _beginthread(ring_det_thread, THREAD_STACK_SIZE, pLine);
        return result;
    };
    LONG result = 0;
    const bool done = completes([&] {
        LineEntry entry{name, nullptr};
        TRACE(TRACE_LINE_ENTER, "dwDeviceID(%d): %s(TSPIVersion(0x%x))", dwDeviceID, name, dwTSPIVersion);
        result = open(entry);
        opening.undo();
        trace_line_exit(entry, result, 0);
    });
    if (done) return result;
    opening.undo_after_exception();
    return exception_result(name);
}

extern "C" LONG WINAPI TSPI_lineClose(HDRVLINE hdLine) {
    LineRec* pLine = line_of(hdLine);
    return line_entry(__func__, pLine, [&](LineEntry& entry) -> LONG {
        // Not LINEERR_INVALLINEHANDLE, unlike everywhere else.
        if (!IsValidLine(pLine)) {
            TRACE(TRACE_INFO, "Invalid line handle");
            return LINEERR_OPERATIONFAILED;
        }
        LineLock lock(pLine);
        close_remaining_call(pLine, lock);
        stop_ring_det_thread(pLine, lock);
        set_line_by_unit(DornLineUnitGet(pLine->hChannel), nullptr);
        detach_channel(pLine->hChannel);
        TRACE(TRACE_INFO, "TSPI_lineClose - Unlock #04");
        lock.unlock();
        free_line(pLine);
        entry.line = nullptr;
        return 0;
    });
}
