// One run of faxhost with the provider: its output, its trace, the provider itself and the status of its jobs.
#pragma once

#include <memory>
#include <string>

#include "arguments.h"
#include "events.h"
#include "failure.h"
#include "fax_job.h"
#include "journal.h"
#include "json.h"
#include "provider.h"
#include "trace.h"

// Members in the order of their making: what comes later ends earlier, the journal last of all.
struct Session {
    explicit Session(const Arguments& arguments) : arguments(arguments) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const Arguments& arguments;
    Journal journal;
    std::unique_ptr<TraceListener> trace;
    StatusReader status;
    Provider provider;
};

// Loads the provider, with the trace shown as the arguments ask for, and does no more.
Failure session_load(Session& session);

// Starts the provider, with events and trace shown as the arguments ask for; says so when the shared segment cannot be
// read. Blocks until every channel has been reset.
Failure session_start(Session& session);

// Queues an event or completion for the output.
void show_event(const Arguments& arguments, const TapiEvent& event);

// Queues one fact for the output, in the form that was asked for. The object's first member should be its "type".
void show(const Arguments& arguments, const std::string& text, const JsonObject& facts);

// Prints the one line of a failure on standard error, with --json as an object on standard output, too.
void show_failure(const Arguments& arguments, const Failure& failure);
