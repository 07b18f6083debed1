// The frame of every command that uses the provider.
#include "session.h"

#include "events.h"
#include "names.h"
#include "program.h"
#include "text.h"

static std::string event_line_text(const TapiEvent& event) {
    const std::string line = event.dwDeviceID == NO_LINE ? "      " : format("line %lu", event.dwDeviceID);
    const std::string start = time_text(event.tick) + "  " + line + "  ";
    if (event.function) {
        return start + format("%s, request %lu, completed: %s", event.function, event.dwRequestID,
                              lineerr_name(event.lResult).c_str());
    }
    return start + message_name(event.dwMsg) + "  " +
           event_parameters_text(event.dwMsg, event.dwParam1, event.dwParam2, event.dwParam3);
}

static std::string event_json(const TapiEvent& event) {
    JsonObject object;
    json_text(object, "type", event.function ? "completion" : "event");
    json_decimal(object, "time", seconds_since_start(event.tick));
    if (event.dwDeviceID != NO_LINE) json_number(object, "line", event.dwDeviceID);
    if (event.function) {
        json_text(object, "function", event.function);
        json_number(object, "request", event.dwRequestID);
        return json_line(json_text(object, "result", lineerr_name(event.lResult)));
    }
    json_text(object, "message", message_name(event.dwMsg));
    json_text(object, "text", event_parameters_text(event.dwMsg, event.dwParam1, event.dwParam2, event.dwParam3));
    json_number(object, "param1", static_cast<int64_t>(event.dwParam1));
    json_number(object, "param2", static_cast<int64_t>(event.dwParam2));
    return json_line(json_number(object, "param3", static_cast<int64_t>(event.dwParam3)));
}

void show_event(const Arguments& arguments, const TapiEvent& event) {
    const bool json = arguments.json;
    journal_post([event, json] { return json ? event_json(event) : event_line_text(event); });
}

static void tell_about_segment(const Arguments& arguments, uint32_t error) {
    const std::string text = "the shared segment cannot be read, " + windows_error(error) +
                             "; going on without station ids (start the service calder before any provider)";
    JsonObject facts;
    json_text(facts, "type", "note");
    show(arguments, text, json_text(facts, "text", text));
}

// Shows events and trace as the arguments ask for; returns the provider's path.
static std::wstring prepare_session(Session& session) {
    const Arguments& arguments = session.arguments;
    const std::wstring path = arguments.provider.empty() ? default_provider_path() : wide(arguments.provider);
    if (arguments.events) hub_observe([&arguments](const TapiEvent& event) { show_event(arguments, event); });
    if (!arguments.trace_levels.empty()) {
        session.trace = std::make_unique<TraceListener>(arguments.trace_levels, path, arguments.json);
    }
    return path;
}

Failure session_load(Session& session) {
    return provider_load(session.provider, prepare_session(session));
}

Failure session_start(Session& session) {
    ProviderOptions options;
    options.path = prepare_session(session);
    if (Failure failure = provider_start(session.provider, options)) return failure;
    if (const uint32_t error = status_reader_open(session.status)) tell_about_segment(session.arguments, error);
    return {};
}

Session::~Session() {
    hub_observe(nullptr);
}

void show(const Arguments& arguments, const std::string& text, const JsonObject& facts) {
    journal_line(arguments.json ? json_line(facts) : text);
}

void show_failure(const Arguments& arguments, const Failure& failure) {
    if (arguments.json) {
        JsonObject facts;
        json_text(facts, "type", "error");
        json_text(facts, "name", failure.name);
        json_text(facts, "text", failure.text);
        json_text(facts, "advice", failure.advice);
        json_number(facts, "exit_status", failure.exit_status);
        print_line(json_line(facts));
    }
    print_error("faxhost: " + failure_line(failure));
}
