// faxhost lines: a table of the provider's lines. faxhost events: their events, as they come.
#include <memory>
#include <vector>

#include "commands.h"
#include "line.h"
#include "program.h"
#include "session.h"
#include "text.h"

static void show_line(const Arguments& arguments, const LineInfo& info, const std::string& state) {
    JsonObject facts;
    json_text(facts, "type", "line");
    json_number(facts, "device_id", info.dwDeviceID);
    json_text(facts, "name", info.name);
    json_number(facts, "permanent_id", info.dwPermanentLineID);
    json_number(facts, "channel", info.dwChannel);
    json_number(facts, "max_rate", info.dwMaxRate);
    json_text(facts, "state", state);
    show(arguments,
         format("%6lu  %-22s  0x%08lX  %7lu  %8lu  %s", info.dwDeviceID, info.name.c_str(), info.dwPermanentLineID,
                info.dwChannel, info.dwMaxRate, state.c_str()),
         facts);
}

// All lines are opened before the first is closed, so that their ring detection has begun by then and ends at once.
Failure command_lines(const Arguments& arguments) {
    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    const Provider& provider = session.provider;
    if (!arguments.json) journal_line("device  name                    permanent   channel  max rate  state");
    std::vector<std::unique_ptr<Line>> lines;
    for (DWORD i = 0; i < provider.dwNumLines; ++i) {
        LineInfo info;
        if (Failure failure = line_query(provider, provider.dwLineDeviceIDBase + i, info)) return failure;
        lines.push_back(std::make_unique<Line>());
        const Failure closed = line_open(*lines.back(), provider, info.dwDeviceID, false);
        show_line(arguments, info, closed ? closed.name : line_state(*lines.back()));
    }
    if (provider.dwNumLines == 0) return provider_check_line(provider, 0);
    return {};
}

Failure command_events(const Arguments& arguments) {
    const HANDLE stop = stop_event();
    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    const Provider& provider = session.provider;
    const DWORD first = arguments.line_given ? arguments.line : provider.dwLineDeviceIDBase;
    const DWORD count = arguments.line_given ? 1 : provider.dwNumLines;
    std::vector<std::unique_ptr<Line>> lines;
    for (DWORD i = 0; i < count; ++i) {
        lines.push_back(std::make_unique<Line>());
        if (Failure failure = line_open(*lines.back(), provider, first + i, true)) return failure;
    }
    WaitForSingleObject(stop, arguments.seconds == 0 ? INFINITE : arguments.seconds * 1000);
    return {};
}
