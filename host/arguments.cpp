// Parsing of the command line, by tables of commands and options, from which the help text is made, too.
#include "arguments.h"

#include <algorithm>
#include <iterator>

#include "fax_file.h"
#include "text.h"

namespace {

constexpr size_t MOST_TEXT = 49;     // characters of a header text or a station id
constexpr size_t MOST_NUMBER = 255;  // characters of a number
constexpr uint32_t HIGHEST_TRACE_LEVEL = 17;
constexpr size_t HELP_INDENT = 28;  // column at which explanations begin
constexpr size_t HELP_WIDTH = 84;   // characters of a line of explanation

constexpr unsigned bit(Command command) {
    return 1u << static_cast<unsigned>(command);
}
constexpr unsigned EVERY_COMMAND = ~0u;

struct CommandRow {
    Command command;
    const char* name;
    const char* usage;
    const char* help;
    size_t files;  // positional arguments
};

constexpr CommandRow COMMANDS[] = {
    {Command::lines, "lines", "lines", "a table of the provider's lines", 0},
    {Command::send, "send", "send --line N --to NUMBER FILE.tif", "place a call and send the file", 1},
    {Command::receive, "receive", "receive --line N --dir FOLDER", "answer calls and store what comes", 0},
    {Command::loopback, "loopback", "loopback FILE.tif OUT.tif",
     "send from one line, receive on another, and check that what came is what was sent", 2},
    {Command::status, "status", "status", "what the shared segment tells of the channels", 0},
    {Command::events, "events", "events", "open the lines and show every event", 0},
};

struct OptionRow {
    const char* name;
    const char* value;  // null = takes none
    unsigned commands;
    bool (*set)(Arguments& arguments, const std::string& value);
    const char* help;
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
     "number of the receiving line; without it 100 plus the line's channel, as the software board numbers its channels"},
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

constexpr char EXIT_STATUSES[] =
    "Exit status: 0 the fax went through (or the command did), 1 it did not, 2 wrong arguments, 3 a file or folder "
    "that\n"
    "cannot be used, 4 the provider cannot be started or lacks the line, 130 interrupted. What is not 0 comes with "
    "one\n"
    "line on standard error: the value by name, what happened, what to do.";

Failure mistake(const std::string& text) {
    return {EXIT_USAGE, "", text, "see faxhost --help"};
}

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

Failure parse_words(const CommandRow& command, const std::vector<std::string>& words, Arguments& arguments) {
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.compare(0, 2, "--") != 0) {
            arguments.files.push_back(full_path(word));
            continue;
        }
        const OptionRow* option = find_option(word, command.command);
        if (!option) return mistake(format("faxhost %s has no option %s", command.name, word.c_str()));
        if (option->value && i + 1 == words.size()) return mistake(word + " lacks its " + option->value);
        const std::string value = option->value ? words[++i] : "";
        if (!option->set(arguments, value)) return mistake("\"" + value + "\" is no value for " + word);
    }
    return {};
}

Failure check_complete(const CommandRow& command, const Arguments& arguments) {
    if (arguments.files.size() != command.files) {
        return mistake(
            format("faxhost %s takes %zu file names, not %zu", command.name, command.files, arguments.files.size()));
    }
    const bool needs_line = command.command == Command::send || command.command == Command::receive;
    if (needs_line && !arguments.line_given) return mistake(format("faxhost %s needs --line", command.name));
    if (command.command == Command::send && arguments.number.empty()) return mistake("faxhost send needs --to");
    if (command.command == Command::receive && arguments.folder.empty()) return mistake("faxhost receive needs --dir");
    if (command.command != Command::loopback) return {};
    if (arguments.from == arguments.to_line) return mistake("a loopback needs two lines, --from and --to");
    if (_stricmp(arguments.files[0].c_str(), arguments.files[1].c_str()) == 0) {
        return mistake("the received file would overwrite the one that is sent");
    }
    return {};
}

// The text in lines of at most HELP_WIDTH characters, all but the first indented.
std::string wrapped(const std::string& text) {
    std::string result;
    size_t room = HELP_WIDTH;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find(' ', start), text.size());
        const size_t size = end - start;
        if (size >= room) {
            result += "\n" + std::string(HELP_INDENT, ' ');
            room = HELP_WIDTH;
        } else if (!result.empty()) {
            result += ' ';
        }
        result += text.substr(start, size);
        room -= size + 1;
        start = end + 1;
    }
    return result;
}

// The options of one command alone, or those of every command.
std::string option_help(unsigned commands) {
    std::string text;
    for (const OptionRow& row : OPTIONS) {
        const bool of_every_command = row.commands == EVERY_COMMAND;
        if (of_every_command != (commands == EVERY_COMMAND) || !(row.commands & commands)) continue;
        const std::string name = row.value ? std::string(row.name) + " " + row.value : row.name;
        text += format("  %-*s%s\n", static_cast<int>(HELP_INDENT - 2), name.c_str(), wrapped(row.help).c_str());
    }
    return text;
}

}  // namespace

Failure parse_arguments(const std::vector<std::string>& words, Arguments& arguments) {
    if (words.empty()) return mistake("no command given");
    if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        arguments.help = true;
        return {};
    }
    const CommandRow* command = find_command(words[0]);
    if (!command) return mistake("there is no command \"" + words[0] + "\"");
    arguments.command = command->command;
    if (std::find(words.begin(), words.end(), "--help") != words.end()) {
        arguments.help = true;
        return {};
    }
    if (Failure failure = parse_words(*command, words, arguments)) return failure;
    return check_complete(*command, arguments);
}

std::string help_text(const std::vector<std::string>& words) {
    const CommandRow* command = words.empty() ? nullptr : find_command(words[0]);
    if (command) {
        return format("faxhost %s [options]\n\n%s\n\n", command->usage, command->help) +
               option_help(bit(command->command)) + "\n" + option_help(EVERY_COMMAND) + "\n" + EXIT_STATUSES;
    }
    std::string text = "faxhost - what the telephony service and the fax service do for the fax boards' provider\n\n";
    for (const CommandRow& row : COMMANDS) text += format("  faxhost %-36s %s\n", row.usage, row.help);
    text += "\nOptions of every command; the others are in faxhost COMMAND --help:\n\n";
    return text + option_help(EVERY_COMMAND) + "\n" + EXIT_STATUSES;
}
