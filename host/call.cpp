// The calls' side of the telephony service.
#include "call.h"

#include <algorithm>
#include <vector>

#include "fax_status.h"
#include "names.h"
#include "own_process.h"
#include "text.h"

namespace {

constexpr DWORD FAX_THREAD_TIMEOUT = 5000;  // milliseconds
constexpr DWORD DROP_RETRY_INTERVAL = 10;
constexpr DWORD DROP_PATIENCE = 500;
constexpr DWORD STATE_TIMEOUT = 5000;
constexpr int PLACE_ATTEMPTS = 3;
constexpr ULONGLONG SETTLING_TIME = 100;
// The provider's pause after a ring, and a little more for its thread to come to itself.
constexpr ULONGLONG RING_PAUSE = 6000 + 250;

struct CallFailure {
    DWORD state;
    DWORD mode;  // 0 = any
    const char* name;
    const char* text;
    const char* advice;
};

// How a call that nobody answered ends, as the fax service names it. The first row that fits decides.
constexpr CallFailure CALL_FAILURES[] = {
    {LINECALLSTATE_BUSY, LINEBUSYMODE_TRUNK, "FS_LINE_UNAVAILABLE", "all trunks are busy", "try again later"},
    {LINECALLSTATE_BUSY, 0, "FS_BUSY", "is busy", "try again later"},
    {LINECALLSTATE_SPECIALINFO, LINESPECIALINFO_CUSTIRREG, "FS_BAD_ADDRESS", "nobody has this number",
     "check the number"},
    {LINECALLSTATE_SPECIALINFO, 0, "FS_BAD_ADDRESS", "the network cannot connect this number", "check the number"},
    {LINECALLSTATE_RINGBACK, 0, "FS_NO_ANSWER", "rings, but nobody answers", "try again later"},
    {LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NOANSWER, "FS_NO_ANSWER", "nobody answers", "try again later"},
    {LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NODIALTONE, "FS_NO_DIAL_TONE", "no dial tone",
     "check the cable of the line"},
    {LINECALLSTATE_DISCONNECTED, 0, "FS_LINE_UNAVAILABLE", "the call could not be set up",
     "check the number and the line"},
};

struct CallOutcome {
    DWORD state = LINECALLSTATE_IDLE;
    DWORD mode = 0;
};

Failure outcome_failure(const std::string& number, const CallOutcome& outcome) {
    std::string states = call_state_name(outcome.state);
    const std::string mode = call_state_mode_name(outcome.state, outcome.mode);
    if (!mode.empty()) states += ", " + mode;
    for (const CallFailure& row : CALL_FAILURES) {
        if (row.state != outcome.state || (row.mode != 0 && row.mode != outcome.mode)) continue;
        return {EXIT_FAX_FAILED, row.name, number + ": " + row.text + " (" + states + ")", row.advice};
    }
    return {EXIT_FAX_FAILED, "FS_LINE_UNAVAILABLE", number + ": the call ended (" + states + ")", "try again"};
}

bool is_call_state(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_CALLSTATE;
}

bool is_ring(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_LINEDEVSTATE && event.dwParam1 == LINEDEVSTATE_RINGING;
}

bool is_new_call(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_NEWCALL;
}

void fill_call_parameters(LINECALLPARAMS& parameters) {
    parameters.dwTotalSize = LINECALLPARAMS_SIZE;
    parameters.dwBearerMode = LINEBEARERMODE_VOICE;
    parameters.dwMediaMode = LINEMEDIAMODE_G3FAX;
    parameters.dwAddressMode = LINEADDRESSMODE_ADDRESSID;
}

LONG make_call(Line& line, const std::wstring& number) {
    LINECALLPARAMS parameters = {};
    fill_call_parameters(parameters);
    const HTAPICALL htCall = hub_new_call();
    // The provider reports no state before the call is being dialled, and then there is a call already.
    queue_set_call_state(line.queue, LINECALLSTATE_UNKNOWN);
    const LONG result = line_request(line, "TSPI_lineMakeCall", [&](DRV_REQUESTID dwRequestID) {
        return line.provider->tspi.lineMakeCall(dwRequestID, line.hdLine, htCall, &line.hdCall, number.c_str(), 0,
                                                &parameters);
    });
    if (result != 0) queue_set_call_state(line.queue, LINECALLSTATE_IDLE);
    return result;
}

// A line that was opened or released a moment ago may not have begun to wait for calls yet, which nothing tells; the
// provider then cannot take it for an outgoing one, says LINEERR_RESOURCEUNAVAIL after 2.5 s and keeps the call, which
// has to be closed before a retry. So the line is given a moment first.
LONG make_call_with_retries(Line& line, const std::wstring& number, HANDLE stop) {
    const ULONGLONG free_for = GetTickCount64() - line.free_since;
    if (free_for < SETTLING_TIME) WaitForSingleObject(stop, static_cast<DWORD>(SETTLING_TIME - free_for));
    for (int attempt = 1;; ++attempt) {
        const LONG result = make_call(line, number);
        if (result != static_cast<LONG>(LINEERR_RESOURCEUNAVAIL) || attempt == PLACE_ATTEMPTS) return result;
        if (line.hdCall) line.provider->tspi.lineCloseCall(line.hdCall);
        line.hdCall = nullptr;
        if (WaitForSingleObject(stop, 0) == WAIT_OBJECT_0) return result;
    }
}

// Follows the call to CONNECTED, or to IDLE by way of the state that says why.
Failure wait_until_connected(Line& line, const std::string& number, DWORD timeout, HANDLE stop) {
    CallOutcome outcome;
    const Patience until = patience(timeout, stop);
    TapiEvent event;
    while (true) {
        switch (queue_take(line.queue, is_call_state, until, event)) {
            case Taken::stopped:
                return interrupted_failure();
            case Taken::timeout:
                return outcome_failure(number, {LINECALLSTATE_RINGBACK, 0});
            case Taken::event:
                break;
        }
        if (event.dwParam1 == LINECALLSTATE_CONNECTED) return {};
        if (event.dwParam1 == LINECALLSTATE_IDLE) return outcome_failure(number, outcome);
        outcome = {static_cast<DWORD>(event.dwParam1), static_cast<DWORD>(event.dwParam2)};
    }
}

// True when the call has rung often enough, false when its caller gave up; a failure when `stop` came.
Failure let_ring(Line& line, unsigned rings, HANDLE stop, bool& rung) {
    const auto rings_or_ends = [](const TapiEvent& event) {
        return is_ring(event) || (is_call_state(event) && event.dwParam1 == LINECALLSTATE_IDLE);
    };
    TapiEvent event;
    for (unsigned count = 0; count < rings; ++count) {
        if (queue_take(line.queue, rings_or_ends, endless_patience(stop), event) != Taken::event) {
            return interrupted_failure();
        }
        rung = is_ring(event);
        if (!rung) return {};
        line.last_ring = event.tick;
    }
    return {};
}

Failure answer(Line& line) {
    const LONG result = line_request(line, "TSPI_lineAnswer", [&](DRV_REQUESTID dwRequestID) {
        return line.provider->tspi.lineAnswer(dwRequestID, line.hdCall, nullptr, 0);
    });
    if (result != 0) {
        return line_error_failure(result, format("answering on line %lu", line.dwDeviceID), EXIT_FAX_FAILED);
    }
    TapiEvent event;
    const auto connected = [](const TapiEvent& candidate) {
        return is_call_state(candidate) && candidate.dwParam1 == LINECALLSTATE_CONNECTED;
    };
    if (queue_take(line.queue, connected, patience(STATE_TIMEOUT), event) == Taken::event) return {};
    return {EXIT_FAX_FAILED, "LINEERR_INVALCALLSTATE",
            format("line %lu was answered but not connected", line.dwDeviceID), "wait for the next call"};
}

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

Failure call_place(Line& line, const std::string& number, DWORD timeout, HANDLE stop) {
    queue_clear(line.queue);
    const LONG result = make_call_with_retries(line, wide(number), stop);
    if (result != 0) {
        return line_error_failure(result, format("calling %s on line %lu", number.c_str(), line.dwDeviceID),
                                  EXIT_FAX_FAILED);
    }
    return wait_until_connected(line, number, timeout, stop);
}

Failure call_answer(Line& line, unsigned rings, HANDLE stop, CallInfo& info) {
    bool rung = false;
    while (!rung) {
        TapiEvent event;
        if (queue_take(line.queue, is_new_call, endless_patience(stop), event) != Taken::event) {
            return interrupted_failure();
        }
        line.hdCall = reinterpret_cast<HDRVCALL>(event.dwParam1);
        line.last_ring = event.tick;
        if (Failure failure = let_ring(line, rings, stop, rung)) return failure;
        if (!rung) call_end(line);
    }
    info = call_info(line);
    return answer(line);
}

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
    if (line.hdCall && now < quiet) WaitForSingleObject(stop, static_cast<DWORD>(quiet - now));
    call_end(line);
}

CallInfo call_info(const Line& line) {
    // Three texts of 256 characters at most stand behind the fixed part.
    std::vector<unsigned char> buffer(LINECALLINFO_SIZE + 3 * 256 * sizeof(wchar_t));
    auto* record = reinterpret_cast<LINECALLINFO*>(buffer.data());
    record->dwTotalSize = static_cast<DWORD>(buffer.size());
    record->dwUsedSize = LINECALLINFO_SIZE;
    if (line.provider->tspi.lineGetCallInfo(line.hdCall, record) != 0) return {};
    const auto text = [&](DWORD offset, DWORD size) {
        return size == 0
                   ? std::string()
                   : utf8_of_wide(reinterpret_cast<const wchar_t*>(buffer.data() + offset), size / sizeof(wchar_t));
    };
    CallInfo info;
    info.called_id = text(record->dwCalledIDOffset, record->dwCalledIDSize);
    info.caller_id = text(record->dwCallerIDOffset, record->dwCallerIDSize);
    info.caller_name = text(record->dwCallerIDNameOffset, record->dwCallerIDNameSize);
    info.dwRate = record->dwRate;
    return info;
}
