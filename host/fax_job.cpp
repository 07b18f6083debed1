// Fax jobs through the device-specific command channel.
#include "fax_job.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>

#include "record_finder.h"
#include "text.h"

namespace {

constexpr DWORD COMMAND_TIMEOUT = 30000;     // milliseconds
constexpr DWORD ABORT_INTERVAL = 1000;       // between two ABORT commands
constexpr DWORD ABORT_TIMEOUT = 60000;       // until an aborted job must have ended
constexpr DWORD DISCONNECT_TIMEOUT = 10000;  // from the end notification to the end of the call

// The strings of the command block are in the system's code page and end within their field.
template <size_t SIZE>
bool put_text(char (&field)[SIZE], const std::string& text) {
    const std::optional<std::string> bytes = ansi(text);
    if (!bytes || bytes->size() >= SIZE) return false;
    std::memcpy(field, bytes->c_str(), bytes->size() + 1);
    return true;
}

std::unique_ptr<TspCmdBlock> new_block(eTspCmd command) {
    auto block = std::make_unique<TspCmdBlock>();
    std::memset(block.get(), 0, sizeof(TspCmdBlock));
    block->dwCommand = command;
    return block;
}

Failure event_never_set(const Line& line) {
    return {EXIT_FAX_FAILED, "LINEERR_OPERATIONFAILED",
            format("the provider did not set the completion event of line %lu", line.dwDeviceID),
            "use --completion tapi"};
}

Failure send_with_event(Line& line, TspCmdBlock& block) {
    static std::atomic<uint64_t> gNextKey{1};
    block.dwSignalEvent = 1;
    block.qwEventKey = (static_cast<uint64_t>(GetCurrentProcessId()) << 32) | gNextKey++;
    wchar_t name[64];
    _snwprintf(name, 64, COMMAND_EVENT_NAME, static_cast<unsigned long long>(block.qwEventKey));
    const OwnedHandle finished(CreateEventW(nullptr, TRUE, FALSE, name));
    if (!finished) return event_never_set(line);

    // The request id is never completed in this mode.
    const DRV_REQUESTID dwRequestID = hub_new_request(line.htLine, "TSPI_lineDevSpecific");
    const LONG result =
        line.provider->tspi.lineDevSpecific(dwRequestID, line.hdLine, 0, line.hdCall, &block, sizeof(block));
    hub_forget_request(dwRequestID);
    if (result < 0) return line_error_failure(result, "sending a fax command", EXIT_FAX_FAILED);
    return WaitForSingleObject(finished.get(), COMMAND_TIMEOUT) == WAIT_OBJECT_0 ? Failure() : event_never_set(line);
}

Failure send_with_tapi(Line& line, TspCmdBlock& block) {
    const LONG result = line_request(line, "TSPI_lineDevSpecific", [&](DRV_REQUESTID dwRequestID) {
        return line.provider->tspi.lineDevSpecific(dwRequestID, line.hdLine, 0, line.hdCall, &block, sizeof(block));
    });
    return result == 0 ? Failure() : line_error_failure(result, "carrying out a fax command", EXIT_FAX_FAILED);
}

Failure open_file(Line& line, const FaxJob& job) {
    const auto block = new_block(eTspCmd_TIFFOPEN);
    if (!put_text(block->open.szFile, job.file)) {
        return {EXIT_FILE, "APIERR_FILEIO", job.file + " cannot be handed to the provider",
                "give it a path of less than 260 characters, all of them in the system's code page"};
    }
    put_text(block->open.szMode, job.receiving ? "w+" : "r");
    if (Failure failure = command_send(line, job.completion, *block)) return failure;
    if (block->dwResult == 0) return {};
    return {EXIT_FILE, "APIERR_FILEIO", "the board cannot open " + job.file, "check the file and its folder"};
}

Failure start_job(Line& line, const FaxJob& job) {
    const auto block = new_block(job.receiving ? eTspCmd_FAXRECEIVE : eTspCmd_FAXSEND);
    if (!put_text(block->fax.szHeaderText, job.header_text) || !put_text(block->fax.szLocalId, job.local_id)) {
        return {EXIT_USAGE, "APIERR_BADPARAMETER", "the header text or the station id is too long",
                "49 characters of the system's code page are the most"};
    }
    block->fax.dwAddHeader = job.add_header ? 1 : 0;
    if (Failure failure = command_send(line, job.completion, *block)) return failure;
    if (block->dwResult == 0) return {};
    return {EXIT_FAX_FAILED, "LINEERR_OPERATIONFAILED", "the provider did not start the job", "look with --trace 1-4"};
}

Failure close_file(Line& line, const FaxJob& job) {
    const auto block = new_block(eTspCmd_TIFFCLOSE);
    block->dwJobCommand = job.receiving ? JOB_RECEIVED : 0;
    if (Failure failure = command_send(line, job.completion, *block)) return failure;
    if (block->dwResult == 0) return {};
    return {EXIT_FILE, "APIERR_FILEIO", "the board could not finish " + job.file, "check the free space of its folder"};
}

bool is_notification(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_CALLDEVSPECIFIC;
}

bool is_disconnect(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_CALLSTATE && event.dwParam1 == LINECALLSTATE_DISCONNECTED;
}

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

void learn_unit(Following& following) {
    if (following.line.unit) return;
    const ScopedLock lock(following.reader.lock);
    following.line.unit = finder_look(following.finder, following.reader.units);
    if (following.line.unit) following.reader.units.push_back(*following.line.unit);
}

// Notifications that come before the first page: the numbers of a received call that has any, and the remote id.
unsigned opening_notifications(const FaxJob& job) {
    const bool numbers = job.receiving && (!job.call.called_id.empty() || !job.call.caller_id.empty());
    return numbers ? 2 : 1;
}

void read_status(Following& following) {
    if (following.line.unit) {
        const FaxStatus status = fax_status_of(following.reader.segment.records[*following.line.unit]);
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
    const auto block = new_block(eTspCmd_GETSTATUS);
    const Failure refused = command_send(following.line, following.job.completion, *block);
    if (!refused && following.reader.segment.records) learn_unit(following);
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
        const auto block = new_block(eTspCmd_ABORT);
        if (Failure failure = command_send(following.line, following.job.completion, *block)) return failure;
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

Failure command_send(Line& line, Completion completion, TspCmdBlock& block) {
    return completion == Completion::event ? send_with_event(line, block) : send_with_tapi(line, block);
}

Failure fax_job_run(Line& line, const FaxJob& job, StatusReader& reader, const ProgressObserver& observer, HANDLE stop,
                    FaxResult& result) {
    status_reader_open(reader);
    if (Failure failure = open_file(line, job)) return failure;

    Following following = {line, job, reader, observer, {}, {}, 0};
    if (reader.segment.records) finder_begin(following.finder, reader.segment, job.receiving, job.call.caller_id);
    const ULONGLONG start = GetTickCount64();
    if (Failure failure = start_job(line, job)) {
        const Failure ignored = close_file(line, job);
        return failure;
    }
    TapiEvent end;
    if (Failure failure = follow(following, stop, end)) return failure;
    take_result(following, end, start, result);
    return close_file(line, job);
}
