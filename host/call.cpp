// The end of calls, and what is known of them meanwhile.
#include "call.h"

#include "own_process.h"
#include "text.h"

namespace {

constexpr DWORD FAX_THREAD_TIMEOUT = 5000;  // milliseconds
// Three texts of 256 characters at most stand behind the fixed part of the call information.
constexpr DWORD CALL_TEXTS_SIZE = sizeof(wchar_t[3][256]);
constexpr DWORD DROP_RETRY_INTERVAL = 10;
constexpr DWORD DROP_PATIENCE = 500;
// The provider's pause after a ring, and a little more for its thread to come to itself.
constexpr ULONGLONG RING_PAUSE = 6000 + 250;

// A drop is refused for as long as the fax thread has not let go of the call; that it is taken is how one knows that
// the thread has.
void drop(Line& line) {
    const Patience until = patience(FAX_THREAD_TIMEOUT);
    LONG result = 0;
    do {
        result = line_request(line, "TSPI_lineDrop", [&](DRV_REQUESTID dwRequestID) {
            return line.provider->tspi.lineDrop(dwRequestID, line.hdCall, nullptr, 0);
        });
        if (result == static_cast<LONG>(LINEERR_INVALCALLSTATE)) Sleep(DROP_RETRY_INTERVAL);
    } while (result == static_cast<LONG>(LINEERR_INVALCALLSTATE) && GetTickCount64() < until.deadline);
}

bool is_being_placed(DWORD dwCallState) {
    return dwCallState == LINECALLSTATE_UNKNOWN || dwCallState == LINECALLSTATE_DIALING ||
           dwCallState == LINECALLSTATE_PROCEEDING;
}

// A drop alerts the board once and then waits for the thread that places the call. An alert that falls between two
// calls of the board is lost, and the drop would last until somebody answers or the board gives up. Closing the call
// alerts again, by which time that thread waits in the board.
void drop_while_placing(Line& line) {
    const OwnedThread dropping = thread_start([&line] { drop(line); });
    if (WaitForSingleObject(dropping.get(), DROP_PATIENCE) == WAIT_TIMEOUT) {
        line.provider->tspi.lineCloseCall(line.hdCall);
    }
}

}  // namespace

void call_end(Line& line) {
    if (!line.hdCall) return;
    const DWORD dwCallState = queue_call_state(line.queue);
    if (is_being_placed(dwCallState)) {
        drop_while_placing(line);
    } else if (dwCallState != LINECALLSTATE_IDLE) {
        drop(line);
    }
    queue_clear(line.queue);
    line.provider->tspi.lineCloseCall(line.hdCall);
    line.hdCall = nullptr;
    line.free_since = GetTickCount64();
}

void call_end_for_next(Line& line, HANDLE stop) {
    const ULONGLONG quiet = line.last_ring + RING_PAUSE;
    const ULONGLONG now = GetTickCount64();
    if (line.hdCall && now < quiet) stopped_within(static_cast<DWORD>(quiet - now), stop);
    call_end(line);
}

CallInfo call_info(const Line& line) {
    CallInfo info;
    const RecordBuffer<LINECALLINFO> record = call_info_record(line);
    info.called_id = record.text(record->dwCalledIDOffset, record->dwCalledIDSize);
    info.caller_id = record.text(record->dwCallerIDOffset, record->dwCallerIDSize);
    info.caller_name = record.text(record->dwCallerIDNameOffset, record->dwCallerIDNameSize);
    info.dwRate = record->dwRate;
    return info;
}

RecordBuffer<LINECALLINFO> call_info_record(const Line& line) {
    RecordBuffer<LINECALLINFO> record(LINECALLINFO_SIZE, CALL_TEXTS_SIZE);
    if (line.provider->tspi.lineGetCallInfo(line.hdCall, record.get()) == 0) return record;
    return RecordBuffer<LINECALLINFO>(LINECALLINFO_SIZE);
}
