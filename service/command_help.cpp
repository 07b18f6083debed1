// The help of a program with a few commands.
#include "command_help.h"

#include <algorithm>

std::optional<size_t> find_command(const ProgramHelp& program, const std::string& name) {
    const CommandHelp* end = program.commands + program.count;
    const CommandHelp* found =
        std::find_if(program.commands, end, [&](const CommandHelp& command) { return name == command.name; });
    if (found == end) return std::nullopt;
    return static_cast<size_t>(found - program.commands);
}

bool asks_for_help(const std::vector<std::string>& words) {
    return std::any_of(words.begin(), words.end(),
                       [](const std::string& word) { return word == "--help" || word == "-h" || word == "help"; });
}

std::string help_text(const ProgramHelp& program, std::optional<size_t> command) {
    std::string text = program.heading;
    for (size_t i = 0; i < program.count; ++i) {
        if (!command || *command == i) text += program.commands[i].usage;
    }
    return text + (command ? "" : program.common) + program.exit_statuses;
}
