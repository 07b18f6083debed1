// calder's command line.
#pragma once

#include <string>
#include <vector>

enum class CalderCommand { install, remove, run, service, help, version };

struct CalderArguments {
    CalderCommand command = CalderCommand::help;
    bool fax_stand_in = false;
    std::string help;   // for CalderCommand::help: the text
    std::string error;  // not empty: what is wrong with the arguments
};

// `words` are those behind the program's name. Touches nothing.
CalderArguments parse_calder_arguments(const std::vector<std::string>& words);
