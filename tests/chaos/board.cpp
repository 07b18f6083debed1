#include "board.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

#include "board_state.h"
#include "driver_calls.h"
#include "journal.h"
#include "objects.h"
#include "text.h"
#include "world.h"

namespace chaos {

using harness::text;

uint32_t failures = 5;
bool resets_take_long = true;

namespace {

std::deque<Channel> channels;
std::deque<DornLine> lines;  // detached ones stay: nobody may use their addresses again
std::map<const DornLine*, Channel*> attached;
int initialised = 0;

}  // namespace

Channel& channel_of(uint32_t number) {
    if (number < FIRST_CHANNEL || number - FIRST_CHANNEL >= channels.size())
        give_up(text("the driver is asked for channel %u", number));
    return channels[number - FIRST_CHANNEL];
}

Channel& channel_of(DornLine* line) {
    if (is_from_a_freed_record(line)) give_up("a driver call with a line from a record that was freed");
    const auto found = attached.find(line);
    if (found == attached.end()) give_up("a driver call with a line that is not attached");
    return *found->second;
}

bool goes_wrong() {
    return chance().percent(failures);
}

KXResult some_failure() {
    constexpr uint32_t STATUSES[] = {KX_STATUS_ERROR, KX_STATUS_ERROR_DIAL, KX_STATUS_ERROR_HANGUP, KX_STATUS_TIMEOUT,
                                     KX_STATUS_USER_TERMINATED};
    return {STATUSES[chance().below(5)], chance().below(18)};
}

bool lasts(Channel& channel, Milliseconds time, const char* call) {
    const uint64_t alerts = channel.alerts;
    ++channel.calls_in_progress;
    const bool alerted = wait(
        text("%s on channel %u", call, channel.number), [&channel, alerts] { return channel.alerts != alerts; }, time);
    --channel.calls_in_progress;
    return alerted;
}

namespace {

int initialize() {
    return ++initialised, 0;
}

void shutdown() {
    --initialised;
}

int module_info(void*, DornModuleInfoRecord* record) {
    record->status = record->dwModule == 2 ? KX_STATUS_OK : KX_STATUS_ERROR;
    std::fill(record->dwPresence, record->dwPresence + 3, 1u);
    record->dwFirstChannel = FIRST_CHANNEL;
    record->dwChannelCount = static_cast<uint32_t>(channels.size());
    return 0;
}

DornLine* attach(DornAttachRecord* record) {
    Channel& channel = channel_of(record->dwChannel);
    if (channel.line) give_up(text("channel %u is attached a second time", channel.number));
    if (goes_wrong()) return nullptr;
    lines.push_back({});
    channel.line = &lines.back();
    channel.handler = nullptr;
    attached[channel.line] = &channel;
    return channel.line;
}

int detach(DornLine* line, DornAttachRecord*) {
    Channel& channel = channel_of(line);
    if (channel.calls_in_progress > 0)
        give_up(text("channel %u is detached under a call of the driver", channel.number));
    attached.erase(line);
    channel.line = nullptr;
    channel.in_session = false;
    return 0;
}

uint32_t unit_get(DornLine* line) {
    return channel_of(line).number + UNIT_OF_CHANNEL;
}

int capability_check(DornLine* line, int capability) {
    const Channel& channel = channel_of(line);
    return capability == 14 ? !goes_wrong() : (channel.number + static_cast<uint32_t>(capability)) % 3 != 0;
}

int alert(DornAlertRecord* record) {
    Channel& channel = channel_of(record->dwUnit - UNIT_OF_CHANNEL);
    if (!channel.line) give_up("an alert for a channel that is not attached");
    if (channel.calls_in_progress > 0)
        ++channel.alerts;
    else if (channel.in_session)
        channel.alert_kept = true;
    return 0;
}

int reset(DornLine* line, DornResetRecord* record) {
    Channel& channel = channel_of(line);
    if (resets_take_long) wait_for_those_on_their_way(channel.number);
    sleep(chance().below(700));
    channel.in_session = false;
    channel.state_word = 0;
    if (!goes_wrong()) return 0;
    record->status = some_failure().status;
    return -1;
}

uint32_t* state_access(DornLine* line) {
    return &channel_of(line).state_word;
}

DornIncomingCmdFunc* handler_access(DornLine* line) {
    return &channel_of(line).handler;
}

const uint8_t* dcs_get(DornLine* line) {
    Channel& channel = channel_of(line);
    channel.dcs[2] = static_cast<uint8_t>(chance().below(14));
    return channel.dcs;
}

const char* error_message(DornLine* line) {
    channel_of(line);
    return "100 %s of nothing";
}

// ---- calls --------------------------------------------------------------------------------------------------------

std::string some_number(uint32_t longest) {
    std::string number;
    for (uint32_t length = chance().below(longest); number.size() < length;)
        number += static_cast<char>('0' + chance().below(10));
    return number;
}

template <size_t N>
void fill(char (&field)[N], const std::string& text) {
    std::memset(field, chance().percent(50) ? 0 : 'x', N);
    std::memcpy(field, text.c_str(), std::min(N, text.size() + 1));
}

void announce(Channel& channel, DornCallData& data) {
    // A text that fills its field has no end.
    ArrivedCall& call = channel.arrived;
    call.called = some_number(chance().one_in(8) ? 300 : 12);
    call.calling = some_number(chance().one_in(8) ? 300 : 12);
    call.calling_name = chance().percent(50) ? "A NAME" : "";
    call.routing = some_number(chance().one_in(8) ? 1500 : 20);
    fill(data.szCalledNumber, call.called);
    fill(data.szSecondCalled, chance().one_in(8) ? "77" : "");
    fill(data.szCallingNumber, call.calling);
    fill(data.szCallingName, call.calling_name);
    fill(data.szInformation, call.routing);
}

// What comes of a wait for a call, when nobody alerts it: a ring, silence, or an error, after some time.
int wait_for_call(DornLine* line, DornWaitForCallRecord* record) {
    Channel& channel = channel_of(line);
    const Milliseconds longest = record->dwTimeout == 0 ? FOR_EVER : record->dwTimeout;
    const uint32_t fate = chance().below(100);
    const bool something = fate < 60 || record->dwTimeout != 0;
    const Milliseconds time = something ? std::min<Milliseconds>(longest, chance().below(15000)) : longest;
    if (lasts(channel, time, "the wait for a call")) {
        on_its_way_from(channel.number);
        record->status = KX_STATUS_ALERT;
    } else if (time == record->dwTimeout) {
        record->line_status = WAIT_FOR_CALL_TIMEOUT;
    } else if (goes_wrong()) {
        record->status = some_failure().status;
    } else {
        record->line_status = 1;
        announce(channel, record->callData);
    }
    return 0;
}

int answer(DornLine* line, DornLineResultRecord* record) {
    Channel& channel = channel_of(line);
    sleep(chance().below(300));
    if (goes_wrong()) record->status = some_failure().status;
    channel.state_word = DORN_LINE_STATE_CONNECTED;
    return 0;
}

int terminate(DornLine* line, DornLineResultRecord* record) {
    Channel& channel = channel_of(line);
    channel.state_word = 0;
    sleep(chance().below(300));
    if (chance().one_in(4)) {
        record->status = KX_STATUS_ALERT;
        record->sub_status = 1;
    }
    return 0;
}

int wait_for_release(DornLine* line, DornCallRecord* record) {
    channel_of(line);
    sleep(chance().below(300));
    if (chance().percent(50)) {
        record->status = KX_STATUS_ALERT;
        record->cause = 1;
    }
    return 0;
}

int protocol_get(DornLine* line, DornProtocolRecord* record) {
    channel_of(line);
    record->dwProtocol = chance().below(24);
    if (goes_wrong()) record->status = KX_STATUS_ERROR;
    return 0;
}

int call_setup(DornLine* line, DornCallRecord* record) {
    Channel& channel = channel_of(line);
    constexpr uint32_t CAUSES[] = {0, 258, 259, 261, 265, 266, 300};
    if (lasts(channel, chance().below(3000), "the call's setup")) {
        record->status = KX_STATUS_ALERT;
    } else if (goes_wrong()) {
        record->status = chance().percent(70) ? uint32_t{KX_STATUS_ERROR_DIAL} : some_failure().status;
        record->cause = CAUSES[chance().below(7)];
    }
    return 0;
}

int wait_for_complete(DornLine* line, DornCallRecord* record) {
    Channel& channel = channel_of(line);
    constexpr uint32_t CAUSES[] = {301, 302, 303, 308, 309, 325, 327, 329, 330, 331, 339, 1000};
    if (lasts(channel, chance().below(40000), "the far end")) {
        record->status = KX_STATUS_ALERT;
    } else if (goes_wrong()) {
        record->status = some_failure().status;
        record->cause = chance().below(6);
    } else {
        record->cause = chance().percent(75) ? 339 : CAUSES[chance().below(12)];
        channel.state_word = chance().percent(95) ? DORN_LINE_STATE_CONNECTED : 1;
    }
    return 0;
}

}  // namespace

void add_board_lines(Handlers& board) {
    board.DornInitialize = initialize;
    board.DornShutdown = shutdown;
    board.DornModuleInfo = module_info;
    board.DornLineAttach = attach;
    board.DornSessionDetach = detach;
    board.DornLineUnitGet = unit_get;
    board.DornLineCapCheck = capability_check;
    board.DornLineAlert = alert;
    board.DornLineReset = reset;
    board.DornLineStateAccess = state_access;
    board.DornLineIncomingCmdFuncAccess = handler_access;
    board.DornLineDcsGet = dcs_get;
    board.DornErrorMessage = error_message;
    board.DornLineWaitForCallISDN = wait_for_call;
    board.DornLineAnswerISDN = answer;
    board.DornLineTerminateCallISDN = terminate;
    board.DornLineCCProtocolGet = protocol_get;
    board.DornCallSetup = call_setup;
    board.DornCallWaitForComplete = wait_for_complete;
    board.DornCallWaitForRelease = wait_for_release;
}

namespace {

// ---- what the provider reaches ------------------------------------------------------------------------------------

Handlers board;

// The name of a call and the channel that it is for, in the journal.
struct Told {
    const char* function;

    template <class... Rest>
    void operator()(DornLine* line, Rest...) const {
        harness::add_entry({harness::DRIVER, text("%s(channel %u)", function, channel_of(line).number)});
    }
    template <class... Others>
    void operator()(Others...) const {
        harness::add_entry({harness::DRIVER, function});
    }
};

bool is_log_or_lookup(const char* function) {
    return std::strncmp(function, "Qorv", 4) == 0 || std::strcmp(function, "DornLineUnitGet") == 0;
}

#define X(result, name, parameters, arguments) \
    result called##name parameters {           \
        if (!is_log_or_lookup(#name)) {        \
            point();                           \
            Told{#name} arguments;             \
        }                                      \
        return board.name arguments;           \
    }
DRIVER_FUNCTIONS(X)
#undef X

const DriverTable door_table = {
#define X(result, name, parameters, arguments) called##name,
    DRIVER_FUNCTIONS(X)
#undef X
};

}  // namespace

void install_board(uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        channels.emplace_back();
        channels.back().number = FIRST_CHANNEL + i;
    }
    add_board_lines(board);
    add_board_fax(board);
    add_board_files(board);
    add_board_log(board);
    driver_door_install(&door_table);
}

const Session& session_of(uint32_t channel) {
    return channel_of(channel).session;
}

const ArrivedCall& arrived_call(uint32_t channel) {
    return channel_of(channel).arrived;
}

size_t attached_lines() {
    return attached.size();
}

int initialisations() {
    return initialised;
}

}  // namespace chaos
