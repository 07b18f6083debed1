#include "fax_session.h"

#include "fax_results.h"
#include "link.h"
#include "log.h"
#include "switch.h"

namespace softboard {

// ---- what the engine says, on a thread of the clock ----------------------------------------------------------------

static std::string name_of(const FaxSession& session) {
    return session.channel == nullptr ? "station" : "channel " + std::to_string(session.channel->config.number);
}

static void report(const FaxSession& session, Report report) {
    if (session.reports != nullptr) session.reports->push(std::move(report));
}

template <class Change>
static void progress(Board& board, FaxSession& session, Change change) {
    const Guard guard(board.lock);
    change();
    if (session.channel != nullptr) session.channel->changed.notify_all();
}

static EngineEvents engine_events(Board& board, FaxSession& session) {
    EngineEvents events;
    events.frame = [&session](bool sent, const uint8_t* frame, size_t length) {
        BOARD_LOG(LOG_INFO, name_of(session) + (sent ? " sends " : " receives ") + t30_frametype(frame[2]));
        if (session.observer) session.observer(sent, frame, length);
        report(session, frame_report(sent, frame, length));
    };
    events.remote_known = [&](const RemoteIdentity& remote) {
        progress(board, session, [&] {
            session.remote_known = true;
            session.remote = remote;
        });
    };
    events.trained = [&] { progress(board, session, [&] { session.trained = true; }); };
    events.partial_page_end = [&session] { report(session, end_of_page_report(true)); };
    events.page_confirmed = [&] {
        report(session, end_of_page_report(false));
        progress(board, session, [&] { ++session.pages_confirmed; });
    };
    events.page_received = [&](ReceivedPage page, bool last) {
        report(session, end_of_page_report(false));
        progress(board, session, [&] {
            ++session.pages_received;
            session.received.push_back(std::move(page));
            session.document_ended = last;
        });
    };
    events.finished = [&](int completion) {
        BOARD_LOG(LOG_INFO, name_of(session) + " is through: " + t30_completion_code_to_str(completion));
        progress(board, session, [&] {
            session.finished = true;
            session.completion = completion;
        });
    };
    return events;
}

// ---- life ---------------------------------------------------------------------------------------------------------

std::shared_ptr<FaxSession> make_session(Board& board, const SessionPlan& plan) {
    auto session = std::make_shared<FaxSession>();
    session->channel = plan.channel;
    session->sending = !plan.send_path.empty();
    EngineSettings settings;
    settings.calling = plan.calling;
    settings.ecm = plan.fax.ecm;
    settings.max_rate = plan.fax.max_rate;
    settings.local_id = plan.local_id;
    settings.sub_address = plan.fax.sub_address;
    if (session->sending) {
        session->document = prepare_document(plan.send_path, plan.first_page, plan.header);
        session->pages = session->document->pages;
        settings.send_path = session->document->file.path();
    }
    session->engine = std::make_unique<FaxEngine>(settings, engine_events(board, *session));
    return session;
}

void attach_session(Board& board, Channel& channel, const std::shared_ptr<FaxSession>& session) {
    const std::shared_ptr<Call> call = channel.call;
    board.report_threads.start();
    session->reports = std::make_shared<ReportQueue>(channel.line, board.report_threads);
    link_audio(board, call);

    channel.session = session;
    channel.reception_failed = false;
    const size_t side = side_of(*call, channel);
    call->sides[side].session = session;
    call->sides[side].expected = false;
    // An end that has had a session before will have another one. The earlier one may be over and still be on the call.
    Side& other = call->sides[1 - side];
    if (other.channel != nullptr && (other.session == nullptr || is_over(*other.session))) other.expected = true;
    wake_link(board, *call);
}

void break_session(Board& board, Channel& channel, KXResult result) {
    if (!channel.session->broken.has_value()) channel.session->broken = result;
    channel.changed.notify_all();
    if (channel.call != nullptr) wake_link(board, *channel.call);
}

void leave_session(Channel& channel) {
    channel.session->reports->close();
    channel.session.reset();
    channel.settings = FaxSettings();
}

bool is_over(const FaxSession& session) {
    return session.finished || session.broken.has_value();
}

KXResult session_result(const FaxSession& session) {
    return session.broken.has_value() ? *session.broken : fax_result(session.completion);
}

std::string session_error(const FaxSession& session, KXResult result) {
    if (!session.broken.has_value()) return t30_completion_code_to_str(session.completion);
    if (result.status == KX_STATUS_ALERT) return "the session was ended by an alert";
    return result.status == KX_STATUS_USER_TERMINATED ? "the call was cleared" : "the page could not be stored";
}

}  // namespace softboard
