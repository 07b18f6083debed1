// Runs one of the programs as a user would and keeps what it said.
#pragma once

#include <string>

struct ProgramRun {
    unsigned long exit_status = 0;
    std::string output;  // standard output
    std::string errors;  // standard error
};

// `arguments` as on a command line. Waits 60 s at most, then ends the program and says exit status 0xFFFFFFFF.
ProgramRun run_program(const std::string& program, const std::string& arguments);
