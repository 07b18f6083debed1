// Incoming calls: letting them ring, and answering them.
#include "call.h"
#include "call_events.h"
#include "text.h"

namespace {

constexpr DWORD STATE_TIMEOUT = 5000;  // milliseconds

// True when the call has rung often enough, false when its caller gave up; a failure when `stop` came.
Failure let_ring(Line& line, unsigned rings, HANDLE stop, bool& rung) {
    const auto rings_or_ends = [](const TapiEvent& event) {
        return is_ring(event) || is_call_state(event, LINECALLSTATE_IDLE);
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
    const auto connected = [](const TapiEvent& candidate) { return is_call_state(candidate, LINECALLSTATE_CONNECTED); };
    if (queue_take(line.queue, connected, patience(STATE_TIMEOUT), event) == Taken::event) return {};
    return {EXIT_FAX_FAILED, "LINEERR_INVALCALLSTATE",
            format("line %lu was answered but not connected", line.dwDeviceID), "wait for the next call"};
}

}  // namespace

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
