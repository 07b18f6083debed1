#include "link.h"

#include <algorithm>
#include <utility>

#include "failure.h"
#include "fax_session.h"
#include "line_faults.h"
#include "log.h"
#include "station.h"
#include "switch.h"

namespace softboard {

static const FaxConfig& fax_config(const Side& side) {
    return side.channel != nullptr ? side.channel->config.fax : side.station->fax;
}

// What both ends' lines let through together.
static uint32_t rate_limit(const Call& call) {
    for (const Side& side : call.sides) {
        if (side.station != nullptr && !side.station->trains) return 0;
    }
    return std::min(fax_config(call.sides[CALLER]).max_rate, fax_config(call.sides[CALLED]).max_rate);
}

static uint32_t hangup_page(const Side& side) {
    return side.station == nullptr ? 0 : side.station->hangup_page;
}

struct LinkEnd {
    LinkEnd(const Call& call, size_t side)
        : training(rate_limit(call)), hang_up(hangup_page(call.sides[side])), file(call.sides[side].station) {}

    std::shared_ptr<FaxSession> session;  // that is being carried; null = silence
    TrainingFault training;               // on what this end sends
    HangUpDuringPage hang_up;
    StationFile file;                       // of what this end receives, if it is a station
    std::shared_ptr<FaxSession> taken_off;  // to be let go of without the lock
};

struct Link {
    Link(Board& on, const std::shared_ptr<Call>& of)
        : board(on), call(of), ends{LinkEnd(*of, CALLER), LinkEnd(*of, CALLED)} {}

    Board& board;
    const std::shared_ptr<Call> call;
    LinkEnd ends[2];
    bool begun = false;
    bool holding = false;
    Clock::time_point held_since;
    Ticks ticks;
};

// ---- which sessions are carried -----------------------------------------------------------------------------------

static uint32_t pages_done(const FaxSession& session) {
    return session.sending ? session.pages_confirmed : session.pages_received;
}

static void put_on(LinkEnd& end, const std::shared_ptr<FaxSession>& session) {
    end.session = session;
    session->observer = [&end](bool sent, const uint8_t* frame, size_t length) {
        end.training.on_frame(sent, frame, length);
        end.hang_up.on_frame(frame, length);
    };
}

// Takes up sessions that have begun and drops those that are over. The lock is held.
static void follow_sessions(Link& link) {
    for (size_t i = 0; i < 2; ++i) {
        Side& side = link.call->sides[i];
        LinkEnd& end = link.ends[i];
        if (side.session != nullptr && side.session != end.session) {
            end.taken_off = end.session;
            put_on(end, side.session);
        }
        if (end.session == nullptr || !is_over(*end.session)) continue;
        // Who has broken off on a call that is still up is expected to clear it.
        if (side.channel != nullptr && end.session->broken.has_value()) side.expected = true;
        side.session.reset();
        end.taken_off = std::move(end.session);
        end.session.reset();
    }
}

// The engine and its files go with the call's turn, not when the last driver call has looked at the result.
static void let_go(LinkEnd& end) {
    if (end.taken_off == nullptr) return;
    end.taken_off->engine.reset();
    end.taken_off->document.reset();
    end.taken_off.reset();
}

// ---- time ---------------------------------------------------------------------------------------------------------

// Fast time passes only while every channel is inside a fax call that waits for it: otherwise T.30's timers would run
// out in no time while a caller is still on its way from one call to the next.
static bool keeps_time_standing(const Side& side) {
    if (side.session == nullptr) return side.expected;
    const FaxSession& session = *side.session;
    return session.channel != nullptr && (session.awaited == nullptr || session.awaited(session));
}

// What a turn of the call has to do: so many frames now, and then the next turn.
struct Due {
    int frames;
    Clock::time_point next;
};

static Due fast_time(Link& link, Clock::time_point now) {
    if (!keeps_time_standing(link.call->sides[CALLER]) && !keeps_time_standing(link.call->sides[CALLED])) {
        link.holding = false;
        return {1, now};
    }
    if (!link.holding) link.held_since = now;
    link.holding = true;
    const Clock::time_point until = link.held_since + Milliseconds(link.board.config.hold_ms);
    return now < until ? Due{0, until} : Due{1, now};
}

static Due clock_time(Link& link, Clock::time_point now) {
    const bool due = link.ticks.take(now, link.board.missed_ticks);
    return {due ? static_cast<int>(link.board.config.pace) : 0, link.ticks.next()};
}

// The lock is held.
static Due what_is_due(Link& link, Clock::time_point now) {
    if (link.ends[CALLER].session == nullptr && link.ends[CALLED].session == nullptr) {
        link.ticks.pause();
        return {0, WHEN_WOKEN};
    }
    return link.board.config.pace == PACE_FAST ? fast_time(link, now) : clock_time(link, now);
}

// ---- audio --------------------------------------------------------------------------------------------------------

static void carry_frame(Link& link) {
    int16_t audio[2][FRAME_SAMPLES] = {};
    for (size_t i = 0; i < 2; ++i) {
        if (link.ends[i].session != nullptr) link.ends[i].session->engine->transmit(audio[i]);
        link.ends[i].training.spoil(audio[i]);
    }
    for (size_t i = 0; i < 2; ++i) {
        LinkEnd& end = link.ends[i];
        if (end.session == nullptr) continue;
        const FaxSession& session = *end.session;
        end.hang_up.on_audio(audio[session.sending ? i : 1 - i], session.trained, pages_done(session));
        session.engine->receive(audio[1 - i]);
    }
}

static void carry_frames(Link& link, int frames) {
    for (int i = 0; i < frames; ++i) {
        carry_frame(link);
        if (link.ends[CALLER].hang_up.is_due() || link.ends[CALLED].hang_up.is_due()) return;
    }
}

// A station hangs up when it is through or is told to. The lock is held.
static void let_stations_hang_up(Link& link) {
    for (size_t i = 0; i < 2; ++i) {
        if (link.call->sides[i].station == nullptr) continue;
        const FaxSession* const session = link.ends[i].session.get();
        const bool through = session != nullptr && is_over(*session);
        if (through || link.ends[i].hang_up.is_due()) hang_up(link.board, link.call, i);
    }
}

// ---- a call's turns on the clock ----------------------------------------------------------------------------------

static void end_link(Link& link) {
    for (LinkEnd& end : link.ends) {
        let_go(end);
        if (end.session != nullptr) end.session->engine->hang_up();
        end.taken_off = std::move(end.session);
        let_go(end);
    }
}

static void store_station_pages(Link& link) {
    for (LinkEnd& end : link.ends) {
        if (end.session != nullptr && !end.hang_up.is_due()) end.file.store_pages(link.board, *end.session);
    }
}

// Called with the lock held, as the rest.
static Clock::time_point take_turn(Link& link, Guard& guard) {
    follow_sessions(link);
    const Clock::time_point now = Clock::now();
    const Due due = what_is_due(link, now);
    const std::string late = link.board.missed_ticks.news(now, false);
    guard.unlock();
    if (!late.empty()) BOARD_LOG(LOG_WARNING, late);
    for (LinkEnd& end : link.ends) let_go(end);
    carry_frames(link, due.frames);
    store_station_pages(link);
    guard.lock();
    let_stations_hang_up(link);
    return due.next;
}

static std::optional<Clock::time_point> next_turn(Link& link, Guard& guard) {
    if (!std::exchange(link.begun, true)) {
        guard.unlock();
        begin_station(link.board, link.call, CALLED);
        guard.lock();
    }
    if (link.call->state == CallState::connected) return take_turn(link, guard);
    follow_sessions(link);
    guard.unlock();
    end_link(link);
    guard.lock();
    return std::nullopt;
}

// Out of memory, or worse: the call ends here, and nobody waits for a session that nothing carries.
static void give_up(Board& board, const std::shared_ptr<Call>& call) {
    for (const Side& side : call->sides) {
        if (side.session == nullptr) continue;
        side.session->finished = true;
        side.session->completion = T30_ERR_NOMEM;
    }
    hang_up(board, call, CALLED);
}

void link_audio(Board& board, const std::shared_ptr<Call>& call) {
    if (!call->audio.expired()) return;
    auto link = std::make_shared<Link>(board, call);
    call->audio = board.clock.add(board.lock, [link](Guard& guard) -> std::optional<Clock::time_point> {
        try {
            return next_turn(*link, guard);
        } catch (...) {
            if (!guard.owns_lock()) guard.lock();
            give_up(link->board, link->call);
            return std::nullopt;
        }
    });
}

void wake_link(Board& board, Call& call) {
    if (const std::shared_ptr<ClockTask> task = call.audio.lock()) board.clock.wake(task);
}

}  // namespace softboard
