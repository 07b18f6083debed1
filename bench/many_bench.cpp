// Many faxes in real time: pairs of lines, all with a fax of three pages from one to the other at once. How much of the
// processors a session takes, beside bare engines that keep the same time, and whether every fax comes through at the
// pace of a telephone line and with every dot in its place.
#include <algorithm>
#include <climits>
#include <deque>
#include <functional>
#include <vector>

#include "bare_engines.h"
#include "board_log.h"
#include "call.h"
#include "fax_file.h"
#include "fax_lines.h"
#include "own_process.h"
#include "results.h"
#include "stopwatch.h"
#include "text.h"

namespace {

constexpr unsigned MOST_LINES = 4048;
constexpr unsigned FIRST_NUMBER = 10000;
constexpr double LATE = 1;  // seconds behind the bare engines

struct Pair {
    unsigned number = 0;
    Line sending;
    Line receiving;
    CallInfo call;
    std::string received_file;
    FaxResult sent;
    FaxResult received;
};
using Pairs = std::deque<Pair>;

// Does all of it at once, on a thread of each; gives the processor time that it took, the threads' making not counted:
// a fax service has them for its own reasons.
double all_at_once(const std::vector<std::function<void()>>& acts) {
    const OwnedHandle ready(CreateSemaphoreW(nullptr, 0, LONG_MAX, nullptr));
    const OwnedHandle begin(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::vector<OwnedThread> threads;
    threads.reserve(acts.size());
    for (const auto& act : acts) {
        threads.push_back(thread_start([&] {
            ReleaseSemaphore(ready.get(), 1, nullptr);
            WaitForSingleObject(begin.get(), INFINITE);
            act();
        }));
    }
    for (size_t i = 0; i < acts.size(); ++i) WaitForSingleObject(ready.get(), INFINITE);
    const double before = process_seconds();
    SetEvent(begin.get());
    threads.clear();
    return process_seconds() - before;
}

void open_lines(Pairs& pairs, const Provider& provider, const BenchFolder& folder) {
    unsigned line = 0;
    for (Pair& pair : pairs) {
        pair.number = FIRST_NUMBER + line + 1;
        pair.received_file = folder.file(format("%u.tif", pair.number));
        must(line_open(pair.sending, provider, line++, false), "opening a line");
        must(line_open(pair.receiving, provider, line++, true), "opening a line");
    }
}

void connect(Pairs& pairs) {
    std::vector<std::function<void()>> ends;
    for (Pair& pair : pairs) {
        ends.emplace_back([&] { answer_call(pair.receiving, pair.call); });
        ends.emplace_back([&] { place_call(pair.sending, std::to_string(pair.number)); });
    }
    all_at_once(ends);
}

double transfer(Pairs& pairs, StatusReader& status, const std::string& file) {
    std::vector<std::function<void()>> ends;
    for (Pair& pair : pairs) {
        ends.emplace_back([&] { pair.received = receive_fax(pair.receiving, status, pair.received_file, pair.call); });
        ends.emplace_back([&] { pair.sent = send_fax(pair.sending, status, file); });
    }
    return all_at_once(ends);
}

void close_lines(Pairs& pairs) {
    std::vector<std::function<void()>> lines;
    for (Pair& pair : pairs) {
        lines.emplace_back([&] { line_close(pair.sending); });
        lines.emplace_back([&] { line_close(pair.receiving); });
    }
    all_at_once(lines);
}

// ---- what came of it ----------------------------------------------------------------------------------------------

struct Outcome {
    double session_ms = 0;  // of processor time
    double slowest = 0;     // seconds
    unsigned failed = 0;    // faxes
    unsigned differing = 0;
    uint64_t missed_ticks = 0;
};

bool has_failed(const Pair& pair) {
    return pair.sent.status != 0 || pair.received.status != 0;
}

bool differs(const Pair& pair, const std::vector<FaxPage>& sent) {
    std::vector<FaxPage> received;
    if (fax_file_read(pair.received_file, received)) return true;
    const std::vector<PageComparison> pages = fax_pages_compare(sent, received, false);
    return std::any_of(pages.begin(), pages.end(), [](const PageComparison& page) { return !page.identical; });
}

void judge(const Pairs& pairs, const std::string& file, Outcome& outcome) {
    std::vector<FaxPage> sent;
    must(fax_file_read(file, sent), file);
    for (const Pair& pair : pairs) {
        outcome.slowest = std::max({outcome.slowest, pair.sent.seconds, pair.received.seconds});
        if (has_failed(pair)) ++outcome.failed;
        if (differs(pair, sent)) ++outcome.differing;
    }
}

Outcome run_lines(unsigned lines, const std::string& file) {
    const BenchFolder folder;
    Outcome outcome;
    Pairs pairs(lines / 2);
    {
        const auto provider = start_over_software_board(
            folder, format("[board]\npace=realtime\n[module.2]\nchannels=%u\nfirst_number=%u\n", lines, FIRST_NUMBER));
        StatusReader status;
        status.tried = true;  // a host's search for a line's record among all is its own affair
        open_lines(pairs, *provider, folder);
        connect(pairs);
        outcome.session_ms = transfer(pairs, status, file) * 1000 / lines;
        close_lines(pairs);
    }
    judge(pairs, file, outcome);
    outcome.missed_ticks = missed_ticks(folder.file("board.log"));
    return outcome;
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "many");
    const std::string file = full_path(arguments.take("--file"));
    const unsigned lines = std::min(arguments.take_number("--lines", 50), MOST_LINES) / 2 * 2;
    const BareFaxesResult bare = run_bare_faxes_in_real_time(lines / 2, {file, {}, true});
    if (!bare.good) give_up("the bare engines do not get their faxes through");
    const Outcome outcome = run_lines(lines, file);

    const std::string of_lines = format("%u lines at once, ", lines);
    results.add({of_lines + "processor time of a session", "ms", outcome.session_ms,
                 bare.processor_seconds * 1000 / lines, 1.25});
    results.add({of_lines + "slowest fax", "s", outcome.slowest, bare.line_seconds, 1 + LATE / bare.line_seconds});
    results.add(
        {of_lines + "faxes that failed or differ", "", static_cast<double>(outcome.failed + outcome.differing), {}, 0});
    results.add({of_lines + "ticks missed", "", static_cast<double>(outcome.missed_ticks)});
    return 0;
}
