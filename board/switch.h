// The switch: calls between channels and stations. All functions are called with the board's lock held, none blocks.
#pragma once

#include <calddlld.h>

#include <memory>
#include <string>

#include "board.h"

namespace softboard {

enum class CallState { ringing, connected, ended };

constexpr size_t CALLER = 0;
constexpr size_t CALLED = 1;

// One end of a call: a channel or a station.
struct Side {
    Channel* channel = nullptr;
    const StationConfig* station = nullptr;
    std::shared_ptr<FaxSession> session;
    bool expected = false;  // a session is still to come: fast time stands still for it, within bounds
};

struct Call {
    CallState state = CallState::ringing;
    Side sides[2];  // CALLER, CALLED
    std::string called_number;
    std::string calling_number;
    std::string calling_name;
    std::string information;
    Clock::time_point ringing_since;
    uint64_t rings_taken = 0;  // of those that have rung so far; what rings unheard is not rung later
    std::weak_ptr<ClockTask> audio;
    Condition changed;  // for a station's thread that waits on it
};

enum class DialResult { ringing, connected, busy, no_such_number };

// What a call is placed with.
struct Dialling {
    Side caller;
    std::string digits;
    std::string calling_number;
    std::string calling_name;
    std::string information;  // empty = what the called line has
};

// Places a call. With ringing and connected, the call is in `call` and, for a calling channel, on the channel.
DialResult dial(Board& board, const Dialling& dialling, std::shared_ptr<Call>& call);

// The called end of a ringing call takes it.
void answer(Board& board, const std::shared_ptr<Call>& call);

// One end hangs up, or gives up calling. A connected far end keeps the released call until it hangs up itself.
void hang_up(Board& board, std::shared_ptr<Call> call, size_t side);

// Ends the channel's session and call: it is idle afterwards. Only a call that rings unheard goes on ringing, so that
// opening a line, which resets it, does not turn away who has just called it.
void clear_channel(Board& board, Channel& channel);

size_t side_of(const Call& call, const Channel& channel);
bool is_connected(const Channel& channel);

// Takes a ring that is due on the channel. If none is, next says when to look again (unchanged when no call rings).
bool take_ring(const Board& board, Channel& channel, Clock::time_point& next);

}  // namespace softboard
