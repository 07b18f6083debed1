// Outgoing calls: placing them, and telling why nobody answered.
#include "call.h"
#include "call_events.h"
#include "names.h"
#include "text.h"

namespace {

constexpr int PLACE_ATTEMPTS = 3;
constexpr DWORD SETTLING_TIME = 100;  // milliseconds

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

Failure refused(LONG result, const std::string& number, const Line& line) {
    Failure failure =
        line_error_failure(result, format("calling %s on line %lu", number.c_str(), line.dwDeviceID), EXIT_FAX_FAILED);
    if (result == static_cast<LONG>(LINEERR_RESOURCEUNAVAIL)) failure.advice = "the line was not free; try again";
    return failure;
}

// A line that was opened or released a moment ago may not have begun to wait for calls yet, which nothing tells; the
// provider then cannot take it for an outgoing one, says LINEERR_RESOURCEUNAVAIL after 2.5 s and keeps the call, which
// has to be closed before a retry. So the line is given a moment first.
LONG make_call_with_retries(Line& line, const std::wstring& number, HANDLE stop) {
    const ULONGLONG free_for = GetTickCount64() - line.free_since;
    if (free_for < SETTLING_TIME) stopped_within(static_cast<DWORD>(SETTLING_TIME - free_for), stop);
    for (int attempt = 1;; ++attempt) {
        const LONG result = make_call(line, number);
        if (result != static_cast<LONG>(LINEERR_RESOURCEUNAVAIL) || attempt == PLACE_ATTEMPTS) return result;
        if (line.hdCall) line.provider->tspi.lineCloseCall(line.hdCall);
        line.hdCall = nullptr;
        if (stopped_within(0, stop)) return result;
    }
}

// Follows the call to CONNECTED, or to IDLE by way of the state that says why.
Failure wait_until_connected(Line& line, const std::string& number, DWORD timeout, HANDLE stop) {
    CallOutcome outcome;
    const Patience until = patience(timeout, stop);
    TapiEvent event;
    while (true) {
        const auto any_state = [](const TapiEvent& candidate) { return is_call_state(candidate); };
        switch (queue_take(line.queue, any_state, until, event)) {
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

}  // namespace

Failure call_place(Line& line, const std::string& number, DWORD timeout, HANDLE stop) {
    queue_clear(line.queue);
    const LONG result = make_call_with_retries(line, wide(number), stop);
    // Who interrupts the placing is not told that the line was not ready yet.
    if (result != 0) return stopped_within(0, stop) ? interrupted_failure() : refused(result, number, line);
    return wait_until_connected(line, number, timeout, stop);
}
