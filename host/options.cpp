// Commands and options: their names, what they take, what they set, their help.
#include "options.h"

#include <algorithm>
#include <iterator>

#include "fax_file.h"
#include "text.h"

namespace {

constexpr size_t MOST_TEXT = 49;     // characters of a header text or a station id
constexpr size_t MOST_NUMBER = 255;  // characters of a number
constexpr uint32_t HIGHEST_TRACE_LEVEL = 17;

constexpr CommandRow COMMANDS[] = {
    {Command::lines, "lines", "lines", "a table of the provider's lines, and what they can do", 0},
    {Command::send, "send", "send --line N --to NUMBER FILE.tif", "place a call and send the file", 1},
    {Command::receive, "receive", "receive --line N --dir FOLDER", "answer calls and store what comes", 0},
    {Command::loopback, "loopback", "loopback FILE.tif OUT.tif",
     "send from one line, receive on another, and check that what came is what was sent", 2},
    {Command::status, "status", "status", "what the shared segment tells of the channels", 0},
    {Command::events, "events", "events", "open the lines and show every event, and their calls", 0},
    {Command::configure, "configure", "configure", "the board's configuration dialog", 0},
};

bool parse_number(const std::string& text, uint32_t highest, uint32_t& number) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    number = static_cast<uint32_t>(std::stoul(text));
    return number <= highest;
}

// "4", "1-4" or "all", into the levels that the provider has.
bool add_levels(const std::string& item, std::vector<uint32_t>& levels) {
    uint32_t first = 1;
    uint32_t last = HIGHEST_TRACE_LEVEL;
    if (item != "all") {
        const size_t dash = item.find('-');
        if (!parse_number(item.substr(0, dash), HIGHEST_TRACE_LEVEL, first)) return false;
        last = first;
        if (dash != std::string::npos && !parse_number(item.substr(dash + 1), HIGHEST_TRACE_LEVEL, last)) return false;
    }
    for (uint32_t level = first; level <= last; ++level) levels.push_back(level);
    return first >= 1 && first <= last;
}

bool set_trace(Arguments& arguments, const std::string& value) {
    size_t start = 0;
    while (start <= value.size()) {
        const size_t comma = std::min(value.find(',', start), value.size());
        if (!add_levels(value.substr(start, comma - start), arguments.trace_levels)) return false;
        start = comma + 1;
    }
    return true;
}

bool set_completion(Arguments& arguments, const std::string& value) {
    arguments.completion = value == "event" ? Completion::event : Completion::tapi;
    return value == "event" || value == "tapi";
}

bool set_line(Arguments& arguments, const std::string& value) {
    arguments.line_given = true;
    return parse_number(value, UINT32_MAX, arguments.line);
}

bool set_number(Arguments& arguments, const std::string& value) {
    arguments.number = value;
    return !value.empty() && value.size() <= MOST_NUMBER;
}

bool set_text(std::string& field, const std::string& value) {
    field = value;
    const std::optional<std::string> bytes = ansi(value);
    return bytes && bytes->size() <= MOST_TEXT;
}

bool set_path(std::string& field, const std::string& value) {
    field = full_path(value);
    return !value.empty();
}

// clang-format off
constexpr OptionRow OPTIONS[] = {
    {"--line", "N", bit(Command::send) | bit(Command::receive) | bit(Command::events), set_line,
     "device ID of the line, as faxhost lines shows it"},
    {"--from", "N", bit(Command::loopback),
     [](Arguments& a, const std::string& v) { return parse_number(v, UINT32_MAX, a.from); },
     "device ID of the sending line (0)"},
    {"--to", "N", bit(Command::loopback),
     [](Arguments& a, const std::string& v) { return parse_number(v, UINT32_MAX, a.to_line); },
     "device ID of the receiving line (1)"},
    {"--to", "NUMBER", bit(Command::send), set_number,
     "the number to call"},
    {"--number", "NUMBER", bit(Command::loopback), set_number,
     "number of the receiving line; without it 100 plus the line's channel, as the software board numbers them"},
    {"--header", "TEXT", bit(Command::send) | bit(Command::loopback),
     [](Arguments& a, const std::string& v) { a.header_given = true; return set_text(a.header, v); },
     "print a header line with this text on every page"},
    {"--id", "TEXT", bit(Command::send) | bit(Command::receive) | bit(Command::loopback),
     [](Arguments& a, const std::string& v) { return set_text(a.id, v); },
     "station id given to the far end, in the header line, too; in a loopback the sender's (its line's number)"},
    {"--dir", "FOLDER", bit(Command::receive),
     [](Arguments& a, const std::string& v) { return set_path(a.folder, v); },
     "where received faxes go, as fax-DATE-TIME-lineN.tif"},
    {"--count", "N", bit(Command::receive),
     [](Arguments& a, const std::string& v) { return parse_number(v, UINT32_MAX, a.count); },
     "faxes to receive (1); 0 = until Ctrl-C"},
    {"--rings", "N", bit(Command::receive),
     [](Arguments& a, const std::string& v) { return parse_number(v, 20, a.rings) && a.rings > 0; },
     "rings before answering, 1 to 20 (1)"},
    {"--timeout", "SECONDS", bit(Command::send) | bit(Command::loopback),
     [](Arguments& a, const std::string& v) { return parse_number(v, 3600, a.timeout) && a.timeout > 0; },
     "how long to wait for an answer (90)"},
    {"--repeat", "N", bit(Command::loopback),
     [](Arguments& a, const std::string& v) { return parse_number(v, 100000, a.repeat) && a.repeat > 0; },
     "do it N times in one process and compare its handles and threads after the first time and after the last"},
    {"--seconds", "N", bit(Command::events),
     [](Arguments& a, const std::string& v) { return parse_number(v, 1000000, a.seconds); },
     "end after N seconds; without it at Ctrl-C"},
    {"--watch", nullptr, bit(Command::status),
     [](Arguments& a, const std::string&) { return a.watch = true; },
     "go on and show every change until Ctrl-C"},
    {"--events", nullptr, EVERY_COMMAND,
     [](Arguments& a, const std::string&) { return a.events = true; },
     "show every TAPI event and completion as it comes"},
    {"--trace", "LEVELS", EVERY_COMMAND, set_trace,
     "show the provider's trace of these levels, such as 1-4,14 or all: 1 panic, 2 error, 3 warning, 4 information, "
     "5 unprocessed event, 8/9 internal functions, 10 status, 11 state change, 12/13 TUISPI, 14/15 TSPI_provider, "
     "16/17 TSPI_line"},
    {"--json", nullptr, EVERY_COMMAND,
     [](Arguments& a, const std::string&) { return a.json = true; },
     "print the same facts for a program: one JSON object per line"},
    {"--completion", "tapi|event", EVERY_COMMAND, set_completion,
     "how the provider is to tell that a fax command is finished (tapi)"},
    {"--provider", "PATH", EVERY_COMMAND,
     [](Arguments& a, const std::string& v) { return set_path(a.provider, v); },
     "the provider (qorvtsp.tsp beside this program)"},
    {"--help", nullptr, EVERY_COMMAND,
     [](Arguments& a, const std::string&) { return a.help = true; },
     "this text"},
};
// clang-format on

}  // namespace

const CommandRow* find_command(const std::string& name) {
    for (const CommandRow& row : COMMANDS) {
        if (name == row.name) return &row;
    }
    return nullptr;
}

const OptionRow* find_option(const std::string& name, Command command) {
    for (const OptionRow& row : OPTIONS) {
        if (name == row.name && (row.commands & bit(command))) return &row;
    }
    return nullptr;
}

std::vector<CommandRow> all_commands() {
    return {std::begin(COMMANDS), std::end(COMMANDS)};
}

std::vector<OptionRow> all_options() {
    return {std::begin(OPTIONS), std::end(OPTIONS)};
}
