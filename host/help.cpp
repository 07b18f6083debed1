// The help text.
#include "arguments.h"
#include "options.h"
#include "text.h"

namespace {

constexpr size_t HELP_INDENT = 28;  // column at which explanations begin
constexpr size_t HELP_WIDTH = 84;   // characters of a line of explanation

constexpr char EXIT_STATUSES[] =
    "Exit status: 0 the fax went through (or the command did), 1 it did not, 2 wrong arguments, 3 a file or\n"
    "folder that cannot be used, 4 the provider cannot be started or lacks the line, 130 interrupted. What is\n"
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

}  // namespace

std::string help_text(const std::vector<std::string>& words) {
    const CommandRow* command = words.empty() ? nullptr : find_command(words[0]);
    if (command) {
        return format("faxhost %s [options]\n\n%s\n\n", command->usage, command->help) +
               option_help(bit(command->command)) + "\n" + option_help(EVERY_COMMAND) + "\n" + EXIT_STATUSES;
    }
    std::string text = "faxhost - what the telephony service and the fax service do for the fax boards' provider\n\n";
    for (const CommandRow& row : all_commands()) text += format("  faxhost %-36s %s\n", row.usage, row.help);
    text += "\nOptions of every command; the others are in faxhost COMMAND --help:\n\n";
    return text + option_help(EVERY_COMMAND) + "\n" + EXIT_STATUSES;
}
