// Fax jobs, followed from their beginning to their end.
#include "fax_job.h"

#include "call_events.h"
#include "fax_command.h"
#include "record_finder.h"

namespace {

constexpr DWORD ABORT_INTERVAL = 1000;       // milliseconds between two ABORT commands
constexpr DWORD ABORT_TIMEOUT = 60000;       // until an aborted job must have ended
constexpr DWORD DISCONNECT_TIMEOUT = 10000;  // from the end notification to the end of the call

// A running job as its follower sees it.
struct Following {
    Line& line;
    const FaxJob& job;
    StatusReader& reader;
    const ProgressObserver& observer;
    RecordFinder finder;
    FaxProgress progress;
    unsigned notifications = 0;
};

// The line's record, looked for among those that are not known to be other lines'.
const FaxStatusBlock* find_record(Following& following) {
    StatusReader& reader = following.reader;
    if (!reader.segment.records) return nullptr;
    const ScopedLock lock(reader.lock);
    const auto known = reader.units.find(following.line.dwDeviceID);
    if (known != reader.units.end()) return reader.segment.records + known->second;
    const std::optional<uint32_t> unit = finder_look(following.finder, reader.units);
    if (!unit) return nullptr;
    reader.units[following.line.dwDeviceID] = *unit;
    return reader.segment.records + *unit;
}

// Notifications that come before the first page: the numbers of a received call that has any, and the remote id.
unsigned opening_notifications(const FaxJob& job) {
    const bool numbers = job.receiving && (!job.call.called_id.empty() || !job.call.caller_id.empty());
    return numbers ? 2 : 1;
}

void read_status(Following& following) {
    if (const FaxStatusBlock* record = find_record(following)) {
        const FaxStatus status = fax_status_of(*record);
        following.progress.pages = status.dwPageCount;
        following.progress.remote_id = status.remote_id;
        following.progress.called_id = status.called_id;
        following.progress.caller_id = status.caller_id;
    } else {
        const unsigned opening = opening_notifications(following.job);
        following.progress.pages = following.notifications > opening ? following.notifications - opening : 0;
    }
}

// As the fax service does on every notification: have the provider publish the status, then read it.
void follow_progress(Following& following) {
    ++following.notifications;
    // A refusal leaves the record as the provider has published it on its own.
    const Failure refused = fax_get_status(following.line, following.job.completion);
    read_status(following);
    following.progress.dwRate = call_info(following.line).dwRate;
    following.observer(following.progress);
}

// An abort that comes while the session is between two states of the board is lost, so it is repeated until the job
// has ended.
Failure abort_and_wait(Following& following, TapiEvent& end) {
    const auto is_end = [](const TapiEvent& event) {
        return is_notification(event) && event.dwParam1 == NOTIFICATION_JOB_END;
    };
    const Patience until = patience(ABORT_TIMEOUT);
    while (GetTickCount64() < until.deadline) {
        if (Failure failure = fax_abort(following.line, following.job.completion)) return failure;
        if (queue_take(following.line.queue, is_end, patience(ABORT_INTERVAL), end) == Taken::event) return {};
    }
    return {EXIT_FAX_FAILED, "LINEERR_OPERATIONFAILED", "the aborted job did not end", "look with --trace 1-4"};
}

// Until the end notification, which it hands out.
Failure follow(Following& following, HANDLE stop, TapiEvent& end) {
    while (true) {
        TapiEvent event;
        if (queue_take(following.line.queue, is_notification, endless_patience(stop), event) != Taken::event) {
            return abort_and_wait(following, end);
        }
        if (event.dwParam1 == NOTIFICATION_JOB_END) {
            end = event;
            return {};
        }
        if (event.dwParam1 == NOTIFICATION_PROGRESS) follow_progress(following);
    }
}

// The provider publishes the result after the end notification and before the call's end, and reads it there again
// when the file is closed: hence the wait.
void take_result(Following& following, const TapiEvent& end, ULONGLONG start, FaxResult& result) {
    TapiEvent disconnect;
    const auto is_disconnect = [](const TapiEvent& event) { return is_call_state(event, LINECALLSTATE_DISCONNECTED); };
    queue_take(following.line.queue, is_disconnect, patience(DISCONNECT_TIMEOUT), disconnect);
    result.status = static_cast<uint32_t>(end.dwParam2);
    result.line_status = static_cast<uint32_t>(end.dwParam3);
    result.seconds = static_cast<double>(end.tick - start) / 1000.0;
    read_status(following);
    // The last page of a document is not counted.
    if (result.status == 0) ++following.progress.pages;
    following.progress.dwRate = call_info(following.line).dwRate;
    following.observer(following.progress);
    result.progress = following.progress;
}

}  // namespace

uint32_t status_reader_open(StatusReader& reader) {
    const ScopedLock lock(reader.lock);
    if (!reader.tried) reader.error = fax_segment_open(reader.segment);
    reader.tried = true;
    return reader.error;
}

Failure fax_job_run(Line& line, const FaxJob& job, StatusReader& reader, const ProgressObserver& observer, HANDLE stop,
                    FaxResult& result) {
    status_reader_open(reader);
    if (Failure failure = tiff_open(line, job)) return failure;

    Following following = {line, job, reader, observer, {}, {}, 0};
    if (reader.segment.records) finder_begin(following.finder, reader.segment, job.receiving, job.call.caller_id);
    const ULONGLONG start = GetTickCount64();
    if (Failure failure = fax_start(line, job)) {
        const Failure ignored = tiff_close(line, job);
        return failure;
    }
    TapiEvent end;
    if (Failure failure = follow(following, stop, end)) return failure;
    take_result(following, end, start, result);
    return tiff_close(line, job);
}
