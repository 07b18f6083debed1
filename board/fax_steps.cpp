#include "fax_steps.h"

#include <algorithm>

#include "fax_session.h"
#include "link.h"
#include "page_writer.h"
#include "switch.h"
#include "tiff_handles.h"

namespace softboard {

static std::shared_ptr<FaxSession> session_of(LineCall& call) {
    if (call.channel.session == nullptr) fail(APIERR_BADSTATE, "there is no fax session");
    return call.channel.session;
}

static std::shared_ptr<FaxSession> session_of(LineCall& call, bool sending) {
    const std::shared_ptr<FaxSession> session = session_of(call);
    if (session->sending != sending) {
        fail(APIERR_BADSTATE, sending ? "the session receives" : "the session sends");
    }
    return session;
}

// Everything that the session has reported is with the line's handler before the call returns.
static void flush_reports(LineCall& call, const FaxSession& session) {
    call.guard.unlock();
    session.reports->flush();
    call.guard.lock();
}

// Throws what the session has come to, and leaves it.
[[noreturn]] static void end_in_failure(LineCall& call, const std::shared_ptr<FaxSession>& session, KXResult result) {
    flush_reports(call, *session);
    const std::string error = session_error(*session, result);
    if (call.channel.session == session) {
        leave_session(call.channel);
        call.channel.reception_failed = !session->sending;
    }
    throw Failure{result, error};
}

static KXResult failed_result(const FaxSession& session) {
    const KXResult result = session_result(session);
    // An engine that is content has not done what it was waited for.
    if (result.status == KX_STATUS_OK) return {KX_STATUS_ERROR, APIERR_UNCLASSIFIED};
    return result;
}

// Waits until the session has come to where `reached` says. Throws when it never will.
static void wait_until(LineCall& call, const std::shared_ptr<FaxSession>& session, bool (*reached)(const FaxSession&)) {
    session->awaited = reached;
    if (call.channel.call != nullptr) wake_link(call.board, *call.channel.call);
    while (!session->broken.has_value() && !reached(*session) && !is_over(*session)) {
        call.channel.changed.wait(call.guard);
    }
    session->awaited = nullptr;
    if (session->broken.has_value() || !reached(*session)) end_in_failure(call, session, failed_result(*session));
    flush_reports(call, *session);
}

// ---- beginning ----------------------------------------------------------------------------------------------------

static void check_ready(const LineCall& call) {
    if (!is_connected(call.channel)) fail(APIERR_NOTCONNECTED, "there is no connected call");
    if (call.channel.session != nullptr) fail(APIERR_BADSTATE, "a fax session is running already");
}

static void check_capability(const LineCall& call) {
    const bool forced = (call.line->head.bOptions & DORN_OPTION_FAX_SESSION) != 0;
    if (!forced && !has_capability(call.channel.config, CAPABILITY_FAX)) {
        fail(APIERR_BOARDCAPABILITY, "the channel does no fax unless its option bit 0x10 is set");
    }
}

void begin_fax(LineCall& call, const std::string& send_path, uint32_t first_page) {
    check_ready(call);
    check_capability(call);
    SessionPlan plan;
    plan.channel = &call.channel;
    plan.calling = side_of(*call.channel.call, call.channel) == CALLER;
    plan.fax = call.channel.config.fax;
    if (!has_capability(call.channel.config, CAPABILITY_V17)) {
        plan.fax.max_rate = std::min(plan.fax.max_rate, MAX_RATE_WITHOUT_V17);
    }
    plan.local_id = call.channel.settings.local_id;
    plan.header = call.channel.settings.header;
    plan.send_path = send_path;
    plan.first_page = first_page;
    call.guard.unlock();
    const std::shared_ptr<FaxSession> session = make_session(call.board, plan);
    call.guard.lock();
    check_ready(call);
    attach_session(call.board, call.channel, session);
    call.line->head.wPageNumber = 0;
    call.line->head.wPageCount = static_cast<uint16_t>(session->pages);
}

// ---- sending ------------------------------------------------------------------------------------------------------

void send_page(LineCall& call, const DornFaxRecord& record) {
    const std::shared_ptr<FaxSession> session = session_of(call, true);
    if (session->handled == session->pages && !is_over(*session)) fail(APIERR_BADSTATE, "there is no further page");
    wait_until(call, session, [](const FaxSession& s) { return s.pages_confirmed > s.handled; });
    ++session->handled;
    ++call.line->head.wPageNumber;
    if (const std::shared_ptr<TiffFile> file = find_tiff(record.hTiff)) ++file->head.dwPageCursor;
}

int next_page(LineCall& call) {
    const std::shared_ptr<FaxSession> session = session_of(call, true);
    if (session->broken.has_value()) end_in_failure(call, session, session_result(*session));
    return session->handled < session->pages ? 1 : 0;
}

static bool is_finished(const FaxSession& session) {
    return session.finished;
}

void end_of_document(LineCall& call) {
    const std::shared_ptr<FaxSession> session = session_of(call, true);
    wait_until(call, session, is_finished);
    const KXResult result = session_result(*session);
    if (result.status != KX_STATUS_OK) end_in_failure(call, session, result);
    if (call.channel.session == session) leave_session(call.channel);
}

// ---- receiving ----------------------------------------------------------------------------------------------------

static void write_received(const DornFaxRecord& record, const ReceivedPage& page, uint32_t number) {
    const std::shared_ptr<TiffFile> file = find_tiff(record.hTiff);
    if (file == nullptr) fail(APIERR_BADPARAMETER, "the TIFF handle is not open");
    if (!write_page(*file, page, static_cast<uint16_t>(number), record.extraTags, record.dwExtraTagCount)) {
        fail(APIERR_FILEIO, "the page cannot be written to " + file->path);
    }
    ++file->head.dwPageCounter;
    ++file->head.dwPageCursor;
}

int receive_page(LineCall& call, const DornFaxRecord& record) {
    const std::shared_ptr<FaxSession> session = session_of(call, false);
    wait_until(call, session, [](const FaxSession& s) { return !s.received.empty() || s.document_ended; });
    if (session->received.empty()) return 0;
    const ReceivedPage page = std::move(session->received.front());
    session->received.pop_front();
    call.line->head.wRowCount = static_cast<uint16_t>(page.rows);
    const uint32_t number = session->handled++;
    call.guard.unlock();
    const KXResult written = run(__func__, call.line.get(), [&] { write_received(record, page, number); });
    call.guard.lock();
    if (written.status != KX_STATUS_OK) {
        // What cannot be stored is not received any further.
        if (call.channel.session == session) break_session(call.board, call.channel, written);
        end_in_failure(call, session, written);
    }
    ++call.line->head.wPageNumber;
    ++call.line->head.wPageCount;
    return 1;
}

void end_reception(LineCall& call) {
    if (call.channel.session == nullptr && call.channel.reception_failed) {
        call.channel.reception_failed = false;  // the failure has been told already
        return;
    }
    const std::shared_ptr<FaxSession> session = session_of(call, false);
    wait_until(call, session, is_finished);
    // A complete document stays one however the far end then hangs up.
    const KXResult result = session_result(*session);
    if (result.status != KX_STATUS_OK && !session->document_ended) end_in_failure(call, session, result);
    if (call.channel.session == session) leave_session(call.channel);
}

// ---- both ---------------------------------------------------------------------------------------------------------

void get_remote_info(LineCall& call, DornRemoteInfo& info) {
    const std::shared_ptr<FaxSession> session = session_of(call);
    wait_until(call, session, [](const FaxSession& s) { return s.remote_known; });
    info = DornRemoteInfo();
    session->remote.station_id.copy(info.szStationId, sizeof info.szStationId);
    session->remote.sub_address.copy(info.szSecondId, sizeof info.szSecondId - 1);
}

void wait_for_training(LineCall& call) {
    wait_until(call, session_of(call), [](const FaxSession& s) { return s.trained; });
}

}  // namespace softboard
