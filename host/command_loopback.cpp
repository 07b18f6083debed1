// faxhost loopback: a fax from one line to another, and the comparison of what came with what was sent.
#include <memory>

#include "commands.h"
#include "fax_file.h"
#include "own_process.h"
#include "program.h"
#include "session.h"
#include "text.h"
#include "transfer.h"

namespace {

// Both ends of one run, and what the comparison found.
struct Loopback {
    Transfer sent;
    Transfer received;
    std::vector<FaxPage> received_pages;
    std::optional<std::string> stamp;
    std::vector<PageComparison> comparisons;
};

// The software board numbers its channels from 100 unless told otherwise.
constexpr DWORD FIRST_NUMBER = 100;
// A real line needs this and more for a call; what is done sooner was done as fast as the processor goes.
constexpr double REAL_TIME_SECONDS = 5;

Failure number_of_line(const Session& session, DWORD dwDeviceID, std::string& number) {
    LineInfo info;
    if (Failure failure = line_query(session.provider, dwDeviceID, info)) return failure;
    number = std::to_string(FIRST_NUMBER + info.dwChannel);
    return {};
}

// What each end goes by: the number that is called is the receiver's station id, too.
struct Numbers {
    std::string receiving;
    std::string sending_id;
};

Failure find_numbers(const Session& session, Numbers& numbers) {
    const Arguments& arguments = session.arguments;
    if (Failure failure = number_of_line(session, arguments.from, numbers.sending_id)) return failure;
    if (Failure failure = number_of_line(session, arguments.to_line, numbers.receiving)) return failure;
    if (!arguments.id.empty()) numbers.sending_id = arguments.id;
    if (!arguments.number.empty()) numbers.receiving = arguments.number;
    return {};
}

// Whoever fails before the fax has begun leaves the other end waiting for nothing.
void release_other_end(const Transfer& transfer, const Failure& failure, HANDLE stop) {
    if (failure && !transfer.job_ran) SetEvent(stop);
}

Failure send_end(Session& session, Line& line, const Numbers& numbers, HANDLE stop, Transfer& transfer) {
    Failure failure = transfer_send(session, line, {session.arguments.files[0], numbers.sending_id}, numbers.receiving,
                                    stop, transfer);
    release_other_end(transfer, failure, stop);
    call_end(line);
    return failure;
}

Failure receive_end(Session& session, Line& line, const Numbers& numbers, HANDLE stop, Transfer& transfer) {
    Failure failure = transfer_answer(session, line, stop, transfer);
    if (!failure) {
        failure = transfer_receive(session, line, {session.arguments.files[1], numbers.receiving}, stop, transfer);
    }
    release_other_end(transfer, failure, stop);
    call_end(line);
    return failure;
}

// The failure that says most: of the end that failed for a reason of its own.
Failure worse_of(const Failure& sending, const Failure& receiving) {
    if (interrupted()) return interrupted_failure();
    const bool sending_was_released = sending.exit_status == EXIT_INTERRUPTED;
    return sending && !sending_was_released ? sending : receiving ? receiving : sending;
}

// Both ends at once, each on a thread of its own. The lines are closed when both are done.
Failure run_both_ends(Session& session, const Numbers& numbers, Loopback& loopback) {
    const Arguments& arguments = session.arguments;
    const HANDLE stop = stop_event();
    Line sending_line;
    Line receiving_line;
    if (Failure failure = line_open(sending_line, session.provider, arguments.from, false)) return failure;
    if (Failure failure = line_open(receiving_line, session.provider, arguments.to_line, true)) return failure;

    Failure receiving;
    OwnedThread receiver =
        thread_start([&] { receiving = receive_end(session, receiving_line, numbers, stop, loopback.received); });
    const Failure sending = send_end(session, sending_line, numbers, stop, loopback.sent);
    receiver.reset();
    return worse_of(sending, receiving);
}

std::string page_list(const std::vector<PageComparison>& comparisons) {
    std::string list;
    for (const PageComparison& comparison : comparisons) {
        if (comparison.identical) list += (list.empty() ? "" : ", ") + std::to_string(comparison.page);
    }
    return list.empty() ? "none" : list;
}

void show_report(const Arguments& arguments, const Loopback& loopback) {
    const FaxResult& sent = loopback.sent.result;
    const FaxResult& received = loopback.received.result;
    const std::string sent_result = kx_result_text(sent.status, sent.line_status);
    const std::string received_result = kx_result_text(received.status, received.line_status);
    const std::string stamp = loopback.stamp.value_or("none");
    const std::string stamp_name = loopback.stamp ? fs_code_name(stamp_code(*loopback.stamp)) : "";
    const bool real_time = sent.seconds >= REAL_TIME_SECONDS;

    std::string text = format("pages     %u sent, %zu received\n", sent.progress.pages, loopback.received_pages.size());
    text += format("rate      %lu bit/s\n", sent.progress.dwRate);
    text += format("time      %.3f s from FAXSEND to the end notification%s\n", sent.seconds,
                   real_time ? ", which is what T.30 takes on the line" : "");
    text += "result    " + sent_result + " sending, " + received_result + " receiving\n";
    text += "stamp     " + stamp + " " + stamp_name + "\n";
    text += "file      " + arguments.files[1] + "\n";
    for (const PageComparison& comparison : loopback.comparisons) {
        if (!comparison.identical)
            text += format("page %u    differs: %s\n", comparison.page, comparison.difference.c_str());
    }
    text += "identical: page " + page_list(loopback.comparisons);

    std::vector<uint32_t> identical;
    for (const PageComparison& comparison : loopback.comparisons) {
        if (comparison.identical) identical.push_back(comparison.page);
    }
    JsonObject facts;
    json_text(facts, "type", "loopback");
    json_number(facts, "pages_sent", sent.progress.pages);
    json_number(facts, "pages_received", static_cast<int64_t>(loopback.received_pages.size()));
    json_number(facts, "rate", sent.progress.dwRate);
    json_decimal(facts, "seconds", sent.seconds);
    json_truth(facts, "real_time", real_time);
    json_text(facts, "result_sending", sent_result);
    json_text(facts, "result_receiving", received_result);
    json_text(facts, "stamp", stamp);
    json_text(facts, "stamp_name", stamp_name);
    json_text(facts, "file", arguments.files[1]);
    show(arguments, text, json_numbers(facts, "identical", identical));
}

// What has to be true besides the two results.
Failure check_outcome(const Arguments& arguments, size_t pages, const Loopback& loopback) {
    if (!loopback.stamp || stamp_code(*loopback.stamp) != fs_code_of(0, 0)) {
        return {EXIT_FAX_FAILED, "FS_COMPLETED",
                "the received file is not stamped with it, but with " + loopback.stamp.value_or("nothing"),
                "look with --trace 1-4"};
    }
    for (const PageComparison& comparison : loopback.comparisons) {
        if (!comparison.identical) {
            return {EXIT_FAX_FAILED, "FS_FATAL_ERROR",
                    format("page %u is not what was sent: %s", comparison.page, comparison.difference.c_str()),
                    "compare " + arguments.files[0] + " with " + arguments.files[1]};
        }
    }
    if (loopback.sent.result.progress.pages == pages) return {};
    return {EXIT_FAX_FAILED, "FS_FATAL_ERROR",
            format("%u of %zu pages were sent", loopback.sent.result.progress.pages, pages), "send again"};
}

Failure run_once(Session& session, const std::vector<FaxPage>& pages, const Numbers& numbers) {
    const Arguments& arguments = session.arguments;
    Loopback loopback;
    const Failure failure = run_both_ends(session, numbers, loopback);
    if (!loopback.sent.job_ran && !loopback.received.job_ran) return failure;
    loopback.stamp = fax_file_stamp(arguments.files[1]);
    const Failure unreadable = fax_file_read(arguments.files[1], loopback.received_pages);
    loopback.comparisons = fax_pages_compare(pages, loopback.received_pages, arguments.header_given);
    show_report(arguments, loopback);
    if (failure) return failure;
    return unreadable ? unreadable : check_outcome(arguments, pages.size(), loopback);
}

void show_run(const Arguments& arguments, uint32_t run) {
    if (arguments.repeat == 1) return;
    JsonObject facts;
    json_text(facts, "type", "run");
    show(arguments, format("run %u of %u", run, arguments.repeat), json_number(facts, "run", run));
}

void show_counts(const Arguments& arguments, const ProcessCounts& first, const ProcessCounts& last) {
    JsonObject facts;
    json_text(facts, "type", "counts");
    json_number(facts, "handles_first", first.handles);
    json_number(facts, "handles_last", last.handles);
    json_number(facts, "threads_first", first.threads);
    show(arguments,
         format("handles   %lu after the first run, %lu after the last\nthreads   %lu after the first run, %lu after "
                "the last",
                first.handles, last.handles, first.threads, last.threads),
         json_number(facts, "threads_last", last.threads));
}

}  // namespace

Failure command_loopback(const Arguments& arguments) {
    std::vector<FaxPage> pages;
    if (Failure failure = fax_file_read(arguments.files[0], pages)) return failure;
    if (Failure failure = check_writable(arguments.files[1])) return failure;

    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    Numbers numbers;
    if (Failure failure = find_numbers(session, numbers)) return failure;
    ProcessCounts first;
    for (uint32_t run = 1; run <= arguments.repeat; ++run) {
        show_run(arguments, run);
        if (Failure failure = run_once(session, pages, numbers)) return failure;
        if (run == 1) first = process_counts();
    }
    if (arguments.repeat > 1) show_counts(arguments, first, process_counts());
    return {};
}
