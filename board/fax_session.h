// One end's fax session on a call: the engine that does the work and how far it has come. The progress is written when
// the call's audio has its turn on the clock, and waited for by the driver's fax calls.
#pragma once

#include <calddlld.h>

#include <deque>
#include <memory>
#include <optional>

#include "board.h"
#include "document.h"
#include "fax_engine.h"
#include "report.h"

namespace softboard {

struct FaxSession {
    Channel* channel = nullptr;  // null = a station's
    bool sending = false;
    uint32_t pages = 0;    // of the document, when sending
    uint32_t handled = 0;  // pages that the channel's calls have sent or fetched; theirs alone

    // The call's turns alone work on these, once the session is attached.
    std::optional<Document> document;  // that is sent
    std::unique_ptr<FaxEngine> engine;
    std::function<void(bool sent, const uint8_t* frame, size_t length)> observer;  // sees every T.30 frame first

    std::shared_ptr<ReportQueue> reports;  // null = a station's

    // Progress, under the board's lock.
    bool remote_known = false;
    RemoteIdentity remote;
    bool trained = false;
    uint32_t pages_confirmed = 0;
    uint32_t pages_received = 0;
    std::deque<ReceivedPage> received;  // not fetched yet
    bool document_ended = false;        // the last page has been received
    bool finished = false;              // the engine is through, with
    int completion = 0;                 // T30_ERR_*
    std::optional<KXResult> broken;     // alerted, or hung up on this end

    // What the driver call in progress waits for; null = there is none.
    bool (*awaited)(const FaxSession& session) = nullptr;
};

// What a session is begun with. For a station the channel is null.
struct SessionPlan {
    Channel* channel = nullptr;
    bool calling = false;
    FaxConfig fax;
    std::string local_id;
    std::string send_path;  // empty = receive
    uint32_t first_page = 0;
    std::string header;
};

// Called without the lock: prepares the document and makes the engine. Throws Failure.
std::shared_ptr<FaxSession> make_session(Board& board, const SessionPlan& plan);

// The rest is called with the lock held.

// Puts a channel's new session on its call, which must be connected, and sees to it that its audio is carried.
void attach_session(Board& board, Channel& channel, const std::shared_ptr<FaxSession>& session);

// Ends the channel's session for this end; the far end keeps its own. The channel's fax call in progress, or its next
// one, returns the result.
void break_session(Board& board, Channel& channel, KXResult result);

// The channel has no session any more, and nothing of it is reported any more.
void leave_session(Channel& channel);

bool is_over(const FaxSession& session);
KXResult session_result(const FaxSession& session);
// Why the session has ended with this result.
std::string session_error(const FaxSession& session, KXResult result);

}  // namespace softboard
