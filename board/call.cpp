// Calls: waiting for one, answering, placing, clearing. All of these are judged by their record.
#include <algorithm>
#include <cstdio>

#include "entry.h"
#include "switch.h"

namespace softboard {

// Causes of DornCallSetup's KX_STATUS_ERROR_DIAL and of DornCallWaitForComplete.
constexpr uint32_t CAUSE_NO_DIAL_TONE = 258;
constexpr uint32_t CAUSE_BUSY = 301;
constexpr uint32_t CAUSE_NO_ANSWER = 325;
constexpr uint32_t CAUSE_NO_SUCH_NUMBER = 327;  // the special information tone before "the number is not in service"
constexpr uint32_t CAUSE_CONNECTED = 339;

constexpr Clock::time_point FOR_EVER = Clock::time_point::max();

static Clock::time_point deadline(uint32_t milliseconds) {
    return milliseconds == 0 ? FOR_EVER : Clock::now() + Milliseconds(milliseconds);
}

// A blocking call on a channel: what ends it besides the event that it waits for.
struct Blocking {
    LineCall& call;
    const uint64_t alerts;
    explicit Blocking(LineCall& of) : call(of), alerts(of.channel.alerts) {}

    // Waits until something has changed on the channel or the time has come. Throws Failure when the call must end.
    void wait(Clock::time_point until) {
        if (until == FOR_EVER) {
            call.channel.changed.wait(call.guard);
        } else {
            call.channel.changed.wait_until(call.guard, until);
        }
        if (call.board.closing) fail(APIERR_BADSTATE, "the library has been shut down");
        if (call.channel.line != call.line) fail(APIERR_BADSTATE, "the line has been detached");
        if (call.channel.alerts != alerts) throw Failure{{KX_STATUS_ALERT, 0}, "alerted"};
    }
};

// ---- incoming -----------------------------------------------------------------------------------------------------

template <size_t Size>
static void put_text(char (&field)[Size], const std::string& text) {
    snprintf(field, Size, "%s", text.c_str());
}

static void put_call_data(const Channel& channel, DornCallData& data) {
    const Call& call = *channel.call;
    data = DornCallData();
    put_text(data.szCalledNumber, call.called_number);
    put_text(data.szSecondCalled, channel.config.second_called);
    put_text(data.szCallingNumber, call.calling_number);
    put_text(data.szCallingName, call.calling_name);
    put_text(data.szInformation, call.information);
}

static void wait_for_ring(LineCall& call, DornWaitForCallRecord& record, KXResult& result) {
    const Clock::time_point give_up = deadline(record.dwTimeout);
    Blocking blocking(call);
    call.channel.has_waited = true;
    call.channel.changed.notify_all();
    for (;;) {
        Clock::time_point next = give_up;
        if (take_ring(call.board, call.channel, next)) {
            put_call_data(call.channel, record.callData);
            return;
        }
        if (Clock::now() >= give_up) {
            result.line_status = WAIT_FOR_CALL_TIMEOUT;
            return;
        }
        blocking.wait(std::min(next, give_up));
    }
}

static void take_call(LineCall& call) {
    const std::shared_ptr<Call> ringing = call.channel.call;
    const bool rings =
        ringing != nullptr && ringing->state == CallState::ringing && side_of(*ringing, call.channel) == CALLED;
    if (!rings) fail(APIERR_BADSTATE, "no call is ringing");
    answer(call.board, ringing);
}

// ---- outgoing -----------------------------------------------------------------------------------------------------

// Digits may come in several pieces, so they are only collected here; the call is placed when its end is waited for.
static void set_up(LineCall& call, const DornCallRecord& record) {
    Channel& channel = call.channel;
    if (channel.call != nullptr) {
        const bool rings = channel.call->state == CallState::ringing && side_of(*channel.call, channel) == CALLED;
        fail(rings ? APIERR_RINGING : APIERR_BADSTATE, rings ? "a call is ringing" : "the line has a call");
    }
    if (!channel.config.dial_tone) throw Failure{{KX_STATUS_ERROR_DIAL, CAUSE_NO_DIAL_TONE}, "no dial tone"};
    channel.off_hook = true;
    call.line->state_word = LINE_STATE_CALLING;
    if (record.szDialString != nullptr) channel.digits += dialled_digits(record.szDialString);
}

static DialResult place_call(LineCall& call, std::shared_ptr<Call>& placed) {
    Channel& channel = call.channel;
    if (!channel.off_hook) fail(APIERR_BADSTATE, "no call has been set up");
    Dialling dialling;
    dialling.caller.channel = &channel;
    dialling.digits.swap(channel.digits);
    dialling.calling_number = channel.config.phone;
    dialling.calling_name = channel.config.name;
    return dial(call.board, dialling, placed);
}

static void give_up_calling(LineCall& call) {
    call.channel.off_hook = false;
    call.line->state_word = LINE_STATE_IDLE;
}

// Gives the cause.
static uint32_t wait_for_answer(LineCall& call, uint32_t timeout_ms) {
    std::shared_ptr<Call> placed;
    const DialResult result = place_call(call, placed);
    if (result == DialResult::busy || result == DialResult::no_such_number) {
        give_up_calling(call);
        return result == DialResult::busy ? CAUSE_BUSY : CAUSE_NO_SUCH_NUMBER;
    }
    const Clock::time_point no_answer = Clock::now() + Milliseconds(call.board.config.no_answer_ms);
    const Clock::time_point time_out = deadline(timeout_ms);
    Blocking blocking(call);
    while (placed->state == CallState::ringing) {
        const Clock::time_point now = Clock::now();
        if (now >= time_out || now >= no_answer) {
            hang_up(call.board, placed, CALLER);
            if (now >= no_answer) return CAUSE_NO_ANSWER;
            throw Failure{{KX_STATUS_TIMEOUT, API_TO_TIME}, "the call was not answered in time"};
        }
        blocking.wait(std::min(time_out, no_answer));
    }
    if (placed->state == CallState::ended) throw Failure{{KX_STATUS_ERROR_HANGUP, 0}, "the call was cleared"};
    return CAUSE_CONNECTED;
}

static void wait_for_release(LineCall& call, uint32_t timeout_ms) {
    const Clock::time_point time_out = deadline(timeout_ms);
    Blocking blocking(call);
    while (call.channel.call != nullptr && call.channel.call->state != CallState::ended) {
        if (Clock::now() >= time_out) throw Failure{{KX_STATUS_TIMEOUT, API_TO_TIME}, "the call is still up"};
        blocking.wait(time_out);
    }
}

}  // namespace softboard

using namespace softboard;

int DornLineWaitForCallISDN(DornLine* line, DornWaitForCallRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult& result) {
        wait_for_ring(call, *record, result);
        return 0;
    });
}

int DornLineAnswerISDN(DornLine* line, DornLineResultRecord* record) {
    return line_call(__func__, line, record, [](LineCall& call, KXResult&) {
        take_call(call);
        return 0;
    });
}

int DornLineTerminateCallISDN(DornLine* line, DornLineResultRecord* record) {
    return line_call(__func__, line, record, [](LineCall& call, KXResult&) {
        clear_channel(call.board, call.channel);
        return 0;
    });
}

int DornLineCCProtocolGet(DornLine* line, DornProtocolRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        record->dwProtocol = call.channel.config.protocol;
        return 0;
    });
}

int DornCallSetup(DornLine* line, DornCallRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        set_up(call, *record);
        return 0;
    });
}

int DornCallWaitForComplete(DornLine* line, DornCallRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult& result) {
        result.line_status = wait_for_answer(call, record->dwTimeout);
        return 0;
    });
}

int DornCallWaitForRelease(DornLine* line, DornCallRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        wait_for_release(call, record->dwTimeout);
        return 0;
    });
}
