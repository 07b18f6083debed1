#include "switch.h"

#include "fax_session.h"
#include "link.h"
#include "log.h"

namespace softboard {

static void set_state_word(Channel& channel, uint32_t word) {
    if (channel.line != nullptr) channel.line->state_word = word;
}

static void notify(Board& board, Call& call) {
    for (const Side& side : call.sides) {
        if (side.channel != nullptr) side.channel->changed.notify_all();
    }
    call.changed.notify_all();
    wake_link(board, call);
}

static std::shared_ptr<Call> new_call(const Dialling& dialling) {
    auto call = std::make_shared<Call>();
    call->sides[CALLER] = dialling.caller;
    call->called_number = dialling.digits;
    call->calling_number = dialling.calling_number;
    call->calling_name = dialling.calling_name;
    call->information = dialling.information;
    call->ringing_since = Clock::now();
    return call;
}

static bool is_engaged(const Board& board, const StationConfig& station) {
    return board.busy_stations.count(station.section) != 0;
}

static const StationConfig* find_station(const Board& board, const std::string& digits) {
    for (const StationConfig& station : board.config.stations) {
        if (station.number == digits) return &station;
    }
    return nullptr;
}

static void place(Board& board, const std::shared_ptr<Call>& call) {
    board.calls.insert(call);
    for (const Side& side : call->sides) {
        if (side.station != nullptr) board.busy_stations.insert(side.station->section);
        if (side.channel != nullptr) side.channel->call = call;
    }
    if (Channel* const caller = call->sides[CALLER].channel) {
        caller->off_hook = false;
        set_state_word(*caller, LINE_STATE_CALLING);
    }
    notify(board, *call);
}

static DialResult ring_channel(Board& board, Channel& called, const Dialling& dialling, std::shared_ptr<Call>& call) {
    if (called.call != nullptr || called.off_hook || &called == dialling.caller.channel) return DialResult::busy;
    call = new_call(dialling);
    call->sides[CALLED].channel = &called;
    if (call->information.empty()) call->information = called.config.information;
    place(board, call);
    return DialResult::ringing;
}

static DialResult ring_station(Board& board, const StationConfig& station, const Dialling& dialling,
                               std::shared_ptr<Call>& call) {
    if (station.busy || is_engaged(board, station)) return DialResult::busy;
    call = new_call(dialling);
    call->sides[CALLED].station = &station;
    place(board, call);
    if (!station.answers) return DialResult::ringing;
    answer(board, call);
    return DialResult::connected;
}

DialResult dial(Board& board, const Dialling& dialling, std::shared_ptr<Call>& call) {
    BOARD_LOG(LOG_INFO, dialling.calling_number + " dials " + dialling.digits);
    const StationConfig* const caller = dialling.caller.station;
    if (caller != nullptr && is_engaged(board, *caller)) return DialResult::busy;
    const auto channel = board.by_phone.find(dialling.digits);
    if (channel != board.by_phone.end()) return ring_channel(board, *channel->second, dialling, call);
    const StationConfig* const station = find_station(board, dialling.digits);
    return station == nullptr ? DialResult::no_such_number : ring_station(board, *station, dialling, call);
}

void answer(Board& board, const std::shared_ptr<Call>& call) {
    BOARD_LOG(LOG_INFO, call->called_number + " answers " + call->calling_number);
    call->state = CallState::connected;
    bool with_station = false;
    for (Side& side : call->sides) {
        with_station |= side.station != nullptr;
        side.expected = side.station == nullptr || !side.station->silent;
        if (side.channel == nullptr) continue;
        set_state_word(*side.channel, DORN_LINE_STATE_CONNECTED);
    }
    if (with_station) link_audio(board, call);
    notify(board, *call);
}

// Holds the call itself: the caller's pointer may be one of those that are reset here.
void hang_up(Board& board, std::shared_ptr<Call> held, size_t side) {
    const std::shared_ptr<Call> call = std::move(held);
    if (call->state == CallState::ended) return;
    const bool was_connected = call->state == CallState::connected;
    BOARD_LOG(LOG_INFO, (side == CALLER ? call->calling_number : call->called_number) + " hangs up");
    call->state = CallState::ended;
    board.calls.erase(call);
    for (size_t i = 0; i < 2; ++i) {
        if (call->sides[i].station != nullptr) board.busy_stations.erase(call->sides[i].station->section);
        Channel* const channel = call->sides[i].channel;
        if (channel == nullptr) continue;
        const bool keeps_it = was_connected && i != side;
        set_state_word(*channel, keeps_it ? LINE_STATE_RELEASED : LINE_STATE_IDLE);
        if (!keeps_it) channel->call.reset();
    }
    notify(board, *call);
}

// Nobody on the called line has heard it ring yet.
static bool is_unheard(const Call& call, const Channel& channel) {
    return call.state == CallState::ringing && side_of(call, channel) == CALLED && call.rings_taken == 0;
}

void clear_channel(Board& board, Channel& channel) {
    if (channel.session != nullptr) {
        break_session(board, channel, {KX_STATUS_USER_TERMINATED, 0});
        leave_session(channel);
    }
    const std::shared_ptr<Call> call = channel.call;
    if (call != nullptr && !is_unheard(*call, channel)) {
        hang_up(board, call, side_of(*call, channel));
        channel.call.reset();
    }
    channel.off_hook = false;
    channel.digits.clear();
    channel.settings = FaxSettings();
    channel.reception_failed = false;
    set_state_word(channel, LINE_STATE_IDLE);
    channel.changed.notify_all();
}

size_t side_of(const Call& call, const Channel& channel) {
    return call.sides[CALLER].channel == &channel ? CALLER : CALLED;
}

bool is_connected(const Channel& channel) {
    return channel.call != nullptr && channel.call->state == CallState::connected;
}

bool take_ring(const Board& board, Channel& channel, Clock::time_point& next) {
    Call* const call = channel.call.get();
    if (call == nullptr || call->state != CallState::ringing || call->sides[CALLED].channel != &channel) return false;
    const Milliseconds interval(board.config.ring_interval_ms);
    const uint64_t rung = static_cast<uint64_t>((Clock::now() - call->ringing_since) / interval) + 1;
    if (rung > call->rings_taken) {
        call->rings_taken = rung;
        return true;
    }
    next = call->ringing_since + interval * rung;
    return false;
}

}  // namespace softboard
