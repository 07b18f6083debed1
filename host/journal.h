// Everything that faxhost prints while the provider runs goes through the journal: one queue, written by a thread of
// its own, so that lines come out in the order in which things happened and nobody who tells something ever waits for
// the output, least of all the provider's threads.
#pragma once

#include <functional>
#include <string>

#include "own_process.h"
#include "owned.h"

// Runs the writer for as long as it lives, and writes out what is queued at its end. One at a time.
struct Journal {
    Journal();
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    OwnedHandle filled;  // auto-reset
    OwnedThread writer;
};

// Queues a line that is made by the writer's thread; an empty one is not printed. Without a running journal the line is
// made and printed at once. Never blocks while a journal runs.
void journal_post(std::function<std::string()> make_line);
void journal_line(std::string line);

// Seconds from the program's start to a GetTickCount64 value, as a number and as "   1.234".
double seconds_since_start(unsigned long long tick);
std::string time_text(unsigned long long tick);
