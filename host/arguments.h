// The command line of faxhost.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "failure.h"
#include "fax_job.h"

enum class Command { lines, send, receive, loopback, status, events, configure };

// A whole command line. What an option does is in its help text.
struct Arguments {
    Command command = Command::lines;
    bool help = false;
    bool version = false;
    std::vector<std::string> files;  // full paths

    std::string provider;  // full path; empty = beside this program
    bool json = false;
    bool events = false;
    std::vector<uint32_t> trace_levels;  // empty = no trace
    Completion completion = Completion::tapi;

    uint32_t line = 0;
    bool line_given = false;
    uint32_t from = 0;
    uint32_t to_line = 1;
    std::string number;  // of the far end
    std::string header;  // header text
    bool header_given = false;
    std::string id;      // station id
    std::string folder;  // full path
    uint32_t count = 1;  // faxes to receive, 0 = until Ctrl-C
    uint32_t rings = 1;
    uint32_t timeout = 90;  // seconds to wait for an answer
    uint32_t repeat = 1;
    uint32_t seconds = 0;  // of watching events, 0 = until Ctrl-C
    bool watch = false;
};

// A mistake is EXIT_USAGE and names the argument. `words` are the arguments behind the program's name.
Failure parse_arguments(const std::vector<std::string>& words, Arguments& arguments);

// The text of --help: of one command, or of the program when no command was given.
std::string help_text(const std::vector<std::string>& words);
