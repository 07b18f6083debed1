#include "link.h"

#include <algorithm>

#include "failure.h"
#include "fax_session.h"
#include "line_faults.h"
#include "log.h"
#include "station.h"
#include "switch.h"

namespace softboard {

// Against the clock, audio is carried in bursts: both ends see the same frames in the same order, and a tenth of the
// wake-ups is a tenth of the cost.
constexpr Milliseconds TICK(100);
constexpr int FRAMES_PER_TICK = 5;

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
    bool holding = false;
    Clock::time_point held_since;
    bool ticking = false;
    Clock::time_point next_tick;
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
        side.expected = side.channel != nullptr && end.session->broken.has_value();
        side.session.reset();
        end.taken_off = std::move(end.session);
        end.session.reset();
    }
}

// The engine and its files go with the audio thread's work, not when the last call has looked at the result.
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

static bool fast_time_passes(Link& link, Guard& guard) {
    if (!keeps_time_standing(link.call->sides[CALLER]) && !keeps_time_standing(link.call->sides[CALLED])) {
        link.holding = false;
        return true;
    }
    if (!link.holding) link.held_since = Clock::now();
    link.holding = true;
    const Clock::time_point until = link.held_since + Milliseconds(link.board.config.hold_ms);
    if (Clock::now() >= until) return true;
    link.call->changed.wait_until(guard, until);
    return false;
}

static bool clock_time_passes(Link& link, Guard& guard) {
    const Clock::time_point now = Clock::now();
    if (!link.ticking) link.next_tick = now + TICK;
    link.ticking = true;
    if (now < link.next_tick) {
        link.call->changed.wait_until(guard, link.next_tick);
        return false;
    }
    // A process that was stopped does not make up for it.
    link.next_tick = std::max(link.next_tick + TICK, now - TICK);
    return true;
}

// How many frames may be carried now; waits when it is none. The lock is held.
static int frames_due(Link& link, Guard& guard) {
    if (link.ends[CALLER].session == nullptr && link.ends[CALLED].session == nullptr) {
        link.ticking = false;
        link.call->changed.wait(guard);
        return 0;
    }
    const uint32_t pace = link.board.config.pace;
    if (pace == PACE_FAST) return fast_time_passes(link, guard) ? 1 : 0;
    return clock_time_passes(link, guard) ? FRAMES_PER_TICK * static_cast<int>(pace) : 0;
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

// ---- the thread ---------------------------------------------------------------------------------------------------

static void begin_stations(Link& link) {
    for (size_t i = 0; i < 2; ++i) {
        const StationConfig* const station = link.call->sides[i].station;
        if (station == nullptr || station->silent) continue;
        try {
            const auto session = make_station_session(link.board, *station, i == CALLER);
            const Guard guard(link.board.lock);
            link.call->sides[i].session = session;
        } catch (const Failure& failure) {
            BOARD_LOG(LOG_ERROR, "station " + station->section + ": " + failure.text);
            const Guard guard(link.board.lock);
            hang_up(link.board, link.call, i);
        }
    }
}

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

static void carry_call(Board& board, const std::shared_ptr<Call>& call) {
    Link link(board, call);
    begin_stations(link);
    Guard guard(board.lock);
    while (call->state == CallState::connected) {
        follow_sessions(link);
        const int frames = frames_due(link, guard);
        guard.unlock();
        for (LinkEnd& end : link.ends) let_go(end);
        carry_frames(link, frames);
        store_station_pages(link);
        guard.lock();
        let_stations_hang_up(link);
    }
    follow_sessions(link);
    guard.unlock();
    end_link(link);
}

// Out of memory: the call ends here, and nobody waits for a session that nothing carries.
static void give_up(Board& board, const std::shared_ptr<Call>& call) {
    const Guard guard(board.lock);
    for (const Side& side : call->sides) {
        if (side.session == nullptr) continue;
        side.session->finished = true;
        side.session->completion = T30_ERR_NOMEM;
    }
    hang_up(board, call, CALLED);
}

void link_audio(Board& board, const std::shared_ptr<Call>& call) {
    if (call->linked) return;
    start_thread(board, [&board, call] {
        try {
            carry_call(board, call);
        } catch (const std::bad_alloc&) {
            give_up(board, call);
        }
    });
    call->linked = true;
}

}  // namespace softboard
