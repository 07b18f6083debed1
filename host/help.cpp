// The help text.
#include "arguments.h"
#include "options.h"
#include "text.h"

namespace {

constexpr size_t HELP_INDENT = 28;   // column at which explanations begin
constexpr size_t HELP_WIDTH = 84;    // characters of a line of explanation
constexpr size_t USAGE_INDENT = 47;  // the same beside a command's usage
constexpr size_t USAGE_WIDTH = 65;

constexpr char HEADING[] =
    "faxhost - what the telephony service and the fax service do for the fax boards' provider\n\n";

constexpr char EXIT_STATUSES[] =
    "Exit status: 0 the fax went through (or the command did); 1 it did not; 2 wrong arguments; 3 a file or\n"
    "folder that cannot be used; 4 the provider cannot be started or lacks the line; 130 interrupted. What is\n"
    "not 0 comes with one line on standard error: the value by name, what happened, what to do.";

// The options of one command alone, or those of every command.
std::string option_help(unsigned commands) {
    std::string text;
    for (const OptionRow& row : all_options()) {
        const bool of_every_command = row.commands == EVERY_COMMAND;
        if (of_every_command != (commands == EVERY_COMMAND) || !(row.commands & commands)) continue;
        const std::string name = row.value ? std::string(row.name) + " " + row.value : row.name;
        text += format("  %-*s%s\n", static_cast<int>(HELP_INDENT - 2), name.c_str(),
                       wrapped(row.help, HELP_WIDTH, HELP_INDENT).c_str());
    }
    return text;
}

std::string usage_line(const char* usage, const char* help) {
    return format("  faxhost %-36s %s\n", usage, wrapped(help, USAGE_WIDTH, USAGE_INDENT).c_str());
}

std::string command_help(const CommandRow& command) {
    const std::string own_options = option_help(bit(command.command));
    return format("  faxhost %s [options]\n%*s%s\n", command.usage, static_cast<int>(HELP_INDENT), "", command.help) +
           (own_options.empty() ? "" : "\n" + own_options);
}

std::string all_commands_help() {
    std::string text;
    for (const CommandRow& row : all_commands()) text += usage_line(row.usage, row.help);
    text += usage_line("[COMMAND] --help", "this text, or the command's");
    text += usage_line("--version", "this program's version");
    return text + "\nOptions of every command; the others are in faxhost COMMAND --help:\n";
}

}  // namespace

std::string help_text(const std::vector<std::string>& words) {
    const CommandRow* command = words.empty() ? nullptr : find_command(words[0]);
    return HEADING + (command ? command_help(*command) : all_commands_help()) + "\n" + option_help(EVERY_COMMAND) +
           "\n" + EXIT_STATUSES;
}
