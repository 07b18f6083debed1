// The tables of commands and options that the command line is parsed by and the help text is made from.
#pragma once

#include <string>
#include <vector>

#include "arguments.h"

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

struct OptionRow {
    const char* name;
    const char* value;  // null = takes none
    unsigned commands;
    bool (*set)(Arguments& arguments, const std::string& value);
    const char* help;
};

// Null when there is none of that name.
const CommandRow* find_command(const std::string& name);
const OptionRow* find_option(const std::string& name, Command command);

std::vector<CommandRow> all_commands();
std::vector<OptionRow> all_options();
