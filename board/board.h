// The board's state: channels and what is attached to them, calls of the switch, and the rules of access.
//
// One lock, Board::lock, guards everything below except where a field says otherwise; it is held for moments only,
// never across file access, signal processing or a caller's function. Whoever waits for something on a channel waits
// on the channel's condition.
#pragma once

#include <calddlld.h>

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "config.h"
#include "line_clock.h"
#include "report.h"
#include "sync.h"

namespace softboard {

struct Call;
struct Channel;
struct FaxSession;

// What DornLineAttach hands out. Lives until the last call and the last report that use it are done.
struct Line {
    DornLine head{};  // what the handle points to
    uint32_t state_word = 0;
    DornIncomingCmdFunc handler = nullptr;  // written by the caller at any time
    uint8_t dcs[24] = {};                   // rate index at 2; written by the thread that delivers reports
    char error[256] = "no error";
    Channel* channel = nullptr;
};

// States of the line state word besides DORN_LINE_STATE_CONNECTED.
constexpr uint32_t LINE_STATE_IDLE = 0;
constexpr uint32_t LINE_STATE_CALLING = 1;
constexpr uint32_t LINE_STATE_RELEASED = 3;  // the far end has hung up

// What DornFaxHeader and DornFaxSetLocalId have set for the next session.
struct FaxSettings {
    std::string local_id;
    std::string header;
};

struct Channel {
    ChannelConfig config;
    Condition changed;
    std::shared_ptr<Line> line;  // null = not attached
    std::shared_ptr<Call> call;
    bool off_hook = false;
    std::string digits;       // dialled so far
    bool has_waited = false;  // somebody has waited for calls
    uint64_t alerts = 0;      // so far: a blocking call ends when it sees one more
    FaxSettings settings;
    std::shared_ptr<FaxSession> session;
    bool reception_failed = false;  // a failed reception is still to be closed by DornFaxEndReception
};

struct Board {
    explicit Board(BoardConfig configuration);

    const BoardConfig config;
    Mutex lock;
    bool closing = false;
    std::vector<std::unique_ptr<Channel>> channels;
    std::map<uint32_t, Channel*> by_number;    // fixed
    std::map<uint32_t, Channel*> by_unit;      // fixed
    std::map<std::string, Channel*> by_phone;  // fixed
    std::map<const DornLine*, std::shared_ptr<Line>> lines;
    std::set<std::shared_ptr<Call>> calls;  // that have not ended
    std::set<std::string> busy_stations;    // by section
    LineClock clock;                        // of the calls' audio
    MissedTicks missed_ticks;               // of real time
    ReportThreads report_threads;           // with a lock of their own
    std::list<Thread> threads;              // of the stations that call
};

// The board between DornInitialize and DornShutdown, else null.
std::shared_ptr<Board> current_board();

// Starts a thread that the board's closing waits for. The lock is held. Throws std::bad_alloc.
void start_thread(Board& board, std::function<void()> body);

}  // namespace softboard
