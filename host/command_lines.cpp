// faxhost lines: the provider's lines and what they can do. faxhost events: their events, as they come, and what the
// provider then tells of the calls.
#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <vector>

#include "call.h"
#include "call_events.h"
#include "commands.h"
#include "line.h"
#include "line_facts.h"
#include "program.h"
#include "session.h"
#include "text.h"

namespace {

void show_line(const Arguments& arguments, const LineInfo& info, const std::string& state) {
    const DWORD permanent_id = info.device_caps->dwPermanentLineID;
    const DWORD max_rate = info.device_caps->dwMaxRate;
    JsonObject facts;
    json_text(facts, "type", "line");
    json_number(facts, "device_id", info.dwDeviceID);
    json_text(facts, "name", info.name);
    json_number(facts, "permanent_id", permanent_id);
    json_number(facts, "channel", info.dwChannel);
    json_number(facts, "max_rate", max_rate);
    json_text(facts, "state", state);
    show(arguments,
         format("%6lu  %-22s  0x%08lX  %7lu  %8lu  %s", info.dwDeviceID, info.name.c_str(), permanent_id,
                info.dwChannel, max_rate, state.c_str()),
         facts);
}

void add_members(JsonObject& object, const Facts& facts) {
    for (const Fact& fact : facts) {
        std::string key = fact.name;
        std::transform(key.begin(), key.end(), key.begin(),
                       [](unsigned char c) { return static_cast<char>(c == ' ' ? '_' : std::tolower(c)); });
        json_text(object, key, fact.text);
    }
}

// "0 to 3, 7".
std::string ranges_text(const std::vector<uint32_t>& numbers) {
    std::string text;
    for (size_t first = 0, last; first < numbers.size(); first = last + 1) {
        last = first;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) ++last;
        text += format(text.empty() ? "%u" : ", %u", numbers[first]);
        if (last > first) text += format(" to %u", numbers[last]);
    }
    return text;
}

// Lines that are told of in the same words.
struct AlikeLines {
    std::vector<uint32_t> device_ids;
    Facts facts;
};
using Groups = std::map<std::string, AlikeLines>;

void add_to_group(Groups& groups, DWORD dwDeviceID, const Facts& facts) {
    AlikeLines& group = groups[facts_text(facts)];
    group.facts = facts;
    group.device_ids.push_back(dwDeviceID);
}

void show_group(const Arguments& arguments, const AlikeLines& group) {
    JsonObject object;
    json_text(object, "type", "capabilities");
    json_numbers(object, "device_ids", group.device_ids);
    add_members(object, group.facts);
    const char* lines = group.device_ids.size() == 1 ? "line " : "lines ";
    show(arguments, "\n" + (lines + ranges_text(group.device_ids)) + "\n" + facts_text(group.facts), object);
}

void show_call(const Arguments& arguments, const Line& line) {
    const Facts facts = call_facts(line);
    JsonObject object;
    json_text(object, "type", "call");
    json_number(object, "line", line.dwDeviceID);
    add_members(object, facts);
    show(arguments, format("call on line %lu\n", line.dwDeviceID) + facts_text(facts), object);
}

using Lines = std::map<DWORD, std::unique_ptr<Line>>;

// Does with an event what the telephony service does: keeps the call's handle, and releases the call when it is over.
void follow(const Arguments& arguments, Line& line, const TapiEvent& event) {
    if (is_new_call(event)) line.hdCall = reinterpret_cast<HDRVCALL>(event.dwParam1);
    if (is_new_call(event) || is_ring(event)) line.last_ring = event.tick;
    if (!is_call_state(event) || !line.hdCall) return;
    show_call(arguments, line);
    if (event.dwParam1 == LINECALLSTATE_IDLE) call_end(line);
}

}  // namespace

// All lines are opened before the first is closed, so that their ring detection has begun by then and ends at once.
Failure command_lines(const Arguments& arguments) {
    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    const Provider& provider = session.provider;
    if (!arguments.json) journal_line("device  name                    permanent   channel  max rate  state");
    std::vector<std::unique_ptr<Line>> lines;
    Groups groups;
    for (DWORD i = 0; i < provider.dwNumLines; ++i) {
        LineInfo info;
        if (Failure failure = line_query(provider, provider.dwLineDeviceIDBase + i, info)) return failure;
        lines.push_back(std::make_unique<Line>());
        const Failure closed = line_open(*lines.back(), provider, info.dwDeviceID, false);
        show_line(arguments, info, closed ? closed.name : line_state(*lines.back()));
        if (!closed) add_to_group(groups, info.dwDeviceID, line_facts(*lines.back(), info));
    }
    for (const auto& [text, group] : groups) show_group(arguments, group);
    if (provider.dwNumLines == 0) return provider_check_line(provider, 0);
    return {};
}

Failure command_events(const Arguments& arguments) {
    const HANDLE stop = stop_event();
    // Of all lines; every event is shown when it comes and followed here, away from the provider's threads.
    EventQueue events;
    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    hub_observe([&](const TapiEvent& event) {
        show_event(arguments, event);
        queue_put(events, event);
    });
    const Provider& provider = session.provider;
    const DWORD first = arguments.line_given ? arguments.line : provider.dwLineDeviceIDBase;
    const DWORD count = arguments.line_given ? 1 : provider.dwNumLines;
    Lines lines;
    for (DWORD dwDeviceID = first; dwDeviceID < first + count; ++dwDeviceID) {
        lines[dwDeviceID] = std::make_unique<Line>();
        if (Failure failure = line_open(*lines[dwDeviceID], provider, dwDeviceID, true)) return failure;
    }
    const Patience until = arguments.seconds == 0 ? endless_patience(stop) : patience(arguments.seconds * 1000, stop);
    const auto of_a_line = [](const TapiEvent& event) { return event.dwDeviceID != NO_LINE; };
    TapiEvent event;
    while (queue_take(events, of_a_line, until, event) == Taken::event)
        follow(arguments, *lines.at(event.dwDeviceID), event);
    return {};
}
