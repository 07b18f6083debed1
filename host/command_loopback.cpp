// faxhost loopback: a fax from one line to another, and the comparison of what came with what was sent.
#include "commands.h"
#include "fax_file.h"
#include "loopback_report.h"
#include "own_process.h"
#include "program.h"
#include "session.h"
#include "text.h"
#include "transfer.h"

namespace {

// The software board numbers its channels from 100 unless told otherwise.
constexpr DWORD FIRST_NUMBER = 100;

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

Failure run_once(Session& session, const std::vector<FaxPage>& pages, const Numbers& numbers) {
    const Arguments& arguments = session.arguments;
    Loopback loopback;
    const Failure failure = run_both_ends(session, numbers, loopback);
    if (!loopback.sent.job_ran && !loopback.received.job_ran) return failure;
    loopback.stamp = fax_file_stamp(arguments.files[1]);
    const Failure unreadable = fax_file_read(arguments.files[1], loopback.received_pages);
    loopback.comparisons = fax_pages_compare(pages, loopback.received_pages, arguments.header_given);
    show_loopback(arguments, loopback);
    if (failure) return failure;
    return unreadable ? unreadable : loopback_failure(arguments, pages.size(), loopback);
}

void show_run(const Arguments& arguments, uint32_t run) {
    if (arguments.repeat == 1) return;
    JsonObject facts;
    json_text(facts, "type", "run");
    show(arguments, format("run %u of %u", run, arguments.repeat), json_number(facts, "run", run));
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
    const DWORD idle_threads = process_counts().threads;
    ProcessCounts first;
    for (uint32_t run = 1; run <= arguments.repeat; ++run) {
        show_run(arguments, run);
        if (Failure failure = run_once(session, pages, numbers)) return failure;
        if (run == 1) first = settled_counts(idle_threads);
    }
    return arguments.repeat == 1 ? Failure() : compare_counts(arguments, first, settled_counts(idle_threads));
}
