// The command channel: the fax service drives every fax through command blocks passed to TSPI_lineDevSpecific, and
// learns through TAPI or through a named event that a command is finished.
#include <process.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>

#include "diag/diag.h"
#include "entry_point.h"
#include "fax/qorv_fax.h"

namespace {

constexpr char NAME[] = "TSPI_lineDevSpecific";
constexpr DWORD LINE_CALLDEVSPECIFIC_MESSAGE = 501;
static_assert(LINE_CALLDEVSPECIFIC == LINE_CALLDEVSPECIFIC_MESSAGE, "message of the fax notifications");
constexpr size_t EVENT_NAME_LENGTH = 260;

// ---- commands -----------------------------------------------------------------------------------------------------

void open_job_file(LineRec* pLine, TspCmdBlock* block) {
    memcpy(pLine->szTiffFile, block->tiff.szPath, sizeof pLine->szTiffFile);
    // An earlier handle is dropped unclosed: the fax service may have closed the call under it.
    pLine->hTiff = open_tiff(block->tiff.szPath, block->tiff.szMode);
    block->dwResult = pLine->hTiff ? 0 : 1;
}

void close_job_file(LineRec* pLine, TspCmdBlock* block) {
    if (!pLine->hTiff) {
        block->dwResult = 1;
        return;
    }
    block->dwResult = static_cast<uint32_t>(close_tiff(pLine->hTiff));
    pLine->hTiff = nullptr;
    if (block->dwJobCommand == eTspCmd_FAXRECEIVE) UpdateFaxStatus(pLine);
}

// `reporter` names this start in the trace when the event log cannot be written.
void start_fax_thread(LineRec* pLine, TspCmdBlock* block, void(__cdecl* thread)(void*), const char* complaint) {
    if (!pLine->hTiff) {
        block->dwResult = 1;
        return;
    }
    auto* args = static_cast<FaxThreadArgs*>(GlobalAlloc(GMEM_FIXED, sizeof(FaxThreadArgs)));
    if (!args) {
        TRACE(TRACE_ERROR, "Mem allocation error");
        block->dwResult = 1;
        if (report_event(EVENT_SYSTEM_FAILURE, EVENT_NO_MEMORY, 0, nullptr) != 0) TRACE(TRACE_INFO, "%s", complaint);
        return;
    }
    args->pLine = pLine;
    args->parameters = block->fax;
    _beginthread(thread, THREAD_STACK_SIZE, args);
    pLine->bFaxActive = 1;
}

LONG refuse_command(TspCmdBlock* block) {
    TRACE(TRACE_ERROR, "Unknown DevSpecific command %d!", block->dwCommand);
    block->dwResult = 1;
    // Known to administrators under this ID, whose text speaks of something else.
    report_event_num(EVENT_NOT_CLASSIFIED, EVENT_UNKNOWN_DEVSPECIFIC, static_cast<uint32_t>(block->dwCommand));
    return LINEERR_OPERATIONUNAVAIL;
}

// Carries the command out; returns what the request completes with. Failures of a known command show in dwResult only.
LONG carry_out(LineRec* pLine, TspCmdBlock* block) {
    switch (block->dwCommand) {
        case eTspCmd_TIFFOPEN:
            open_job_file(pLine, block);
            return 0;
        case eTspCmd_TIFFCLOSE:
            close_job_file(pLine, block);
            return 0;
        case eTspCmd_FAXSEND:
            start_fax_thread(pLine, block, Thread_Send_Fax, "TSPI_lineDevSpecific called report_event with error #2");
            return 0;
        case eTspCmd_FAXRECEIVE:
            start_fax_thread(pLine, block, Thread_Receive_Fax, "TSPI_lineDevSpecific called report_event with error");
            return 0;
        case eTspCmd_ABORT:
            if (pLine->eLineState == LINE_CONNECTED) alert_line(pLine);
            return 0;
        case eTspCmd_GETSTATUS:
            UpdateSharedMemory(pLine);
            return 0;
        default:
            return refuse_command(block);
    }
}

// ---- completion ---------------------------------------------------------------------------------------------------

void trace_last_error(DWORD error) {
    TRACE(TRACE_ERROR, "GetLastError() = %d", error);
}

void format_event_name(wchar_t (&name)[EVENT_NAME_LENGTH], uint64_t key) {
    const int length =
        _snwprintf(name, EVENT_NAME_LENGTH - 1, L"HalvorsundEventForLine%p", reinterpret_cast<void*>(key));
    if (length < 0) {
        TRACE(TRACE_ERROR, "TSPI_lineDevSpecific snwprintf error");
        wcscpy(name, L"HalvorsundEventForLineERROR");
    }
    name[EVENT_NAME_LENGTH - 1] = L'\0';
}

void set_and_close(HANDLE event, const wchar_t* name) {
    if (SetEvent(event)) {
        TRACE(TRACE_INFO, "Good! - Event was set.");
    } else {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "Not Good - Did not SetEvent(%ls)", name);
        trace_last_error(error);
    }
    if (!CloseHandle(event)) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "ERROR: Could not close hGlobalEvent (%ls)", name);
        trace_last_error(error);
    }
}

// Nobody is told when the event does not exist; the request then never completes.
void complete_by_event(uint64_t key) {
    TRACE(TRACE_INFO, "Do SetEvent here.");
    wchar_t name[EVENT_NAME_LENGTH] = {};
    format_event_name(name, key);
    TRACE(TRACE_INFO, "OpenEvent (%ls)", name);
    const HANDLE event = OpenEventW(EVENT_ALL_ACCESS, TRUE, name);
    const DWORD error = GetLastError();
    TRACE(TRACE_INFO, "hGlobalEvent = 0x%p", event);
    if (!event) {
        TRACE(TRACE_INFO, "Could not open event %ls", name);
        trace_last_error(error);
        return;
    }
    set_and_close(event, name);
}

void complete(DRV_REQUESTID dwRequestID, const TspCmdBlock* block, LONG result) {
    if (block->dwSignalEvent != 0) {
        complete_by_event(block->qwEventKey);
        return;
    }
    TRACE(TRACE_INFO, "TSPI_lineDevSpecific() Async completion requestID= 0x%X: result= 0x%X", dwRequestID, result);
    globals.glpfnCompletionProc(dwRequestID, result);
}

}  // namespace

// The handle is trusted and the size of the block is not looked at.
extern "C" LONG WINAPI TSPI_lineDevSpecific(DRV_REQUESTID dwRequestID, HDRVLINE hdLine, DWORD, HDRVCALL,
                                            LPVOID lpParams, DWORD) {
    LineRec* pLine = line_of(hdLine);
    return async_line_entry(NAME, pLine, dwRequestID, [&](LineEntry&) -> LONG {
        if (!pLine) {
            TRACE(TRACE_ERROR, "TSPI_lineDevSpecific pLine=NULL");
            return LINEERR_INVALLINEHANDLE;
        }
        auto* block = static_cast<TspCmdBlock*>(lpParams);
        TRACE(TRACE_INFO, "Dev Specific cmd %d (%ls)", block->dwCommand, eTspCmd_name(block->dwCommand));
        // Held across the whole command, driver calls included, and not given back by an exception: a line whose
        // command broke off half-way serves nobody.
        lock_line(pLine);
        block->dwDeviceIDBase = globals.gdwLineDeviceIDBase;
        block->dwResult = 0;
        const LONG result = carry_out(pLine, block);
        complete(dwRequestID, block, result);
        unlock_line(pLine);
        return static_cast<LONG>(dwRequestID);
    });
}

void Send_CallDevSpecific(LineRec* pLine, uint32_t dwParam1, uint32_t dwParam2, uint32_t dwParam3) {
    constexpr char name[] = "Send_CallDevSpecific";
    with_line(name, pLine, [&] {
        TRACE(TRACE_INFO, "Send_CallDevSpecific %X,%X,%X", dwParam1, dwParam2, dwParam3);
        completes_or_traces(name, [&] {
            pLine->lpfnEventProc(pLine->htLine, pLine->htCall, LINE_CALLDEVSPECIFIC, dwParam1, dwParam2, dwParam3);
        });
    });
}
