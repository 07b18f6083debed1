// qorvsetup's command line.
#pragma once

#include <string>
#include <vector>

enum class SetupCommand { install, remove, check, help, version };

struct SetupArguments {
    SetupCommand command = SetupCommand::help;
    bool software_board = false;
    bool fax_stand_in = false;
    bool json = false;
    std::string help;   // for SetupCommand::help: the text
    std::string error;  // not empty: what is wrong with the arguments
};

// `words` are those behind the program's name. Touches nothing.
SetupArguments parse_setup_arguments(const std::vector<std::string>& words);
