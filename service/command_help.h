// What the console programs of a few commands share: finding the command, and their help in one style.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

struct CommandHelp {
    const char* name;
    const char* usage;  // with its explanation and options, as it stands in the help
};

struct ProgramHelp {
    const char* heading;
    const CommandHelp* commands;
    size_t count;
    const char* common;  // what only the whole help tells
    const char* exit_statuses;
};

// The number of the command of this name.
std::optional<size_t> find_command(const ProgramHelp& program, const std::string& name);

// True when one of the words asks for help.
bool asks_for_help(const std::vector<std::string>& words);

// The whole help, or the part of one command.
std::string help_text(const ProgramHelp& program, std::optional<size_t> command);
