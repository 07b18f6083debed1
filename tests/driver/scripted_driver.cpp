#include "scripted_driver.h"

#include <algorithm>

#include "default_behaviour.h"
#include "driver_calls.h"
#include "text.h"

namespace harness {

ScriptedDriver driver;

namespace {

// Objects to a line that is not, or no longer, attached.
struct LineCheck {
    const char* function;

    template <class... Rest>
    void operator()(DornLine* line, Rest...) const {
        if (!driver.is_attached(line)) problem(text("%s: the line is not attached", function));
    }
    template <class... Others>
    void operator()(Others...) const {}
};

// What the provider reaches through the door: journal entry, gate, handler.
#define X(result, name, parameters, arguments) \
    result called##name parameters {           \
        LineCheck{#name} arguments;            \
        add_entry(describe##name arguments);   \
        driver.gate(#name).pass();             \
        auto handler = driver.on.name;         \
        return handler arguments;              \
    }
DRIVER_FUNCTIONS(X)
#undef X

const DriverTable door_table = {
#define X(result, name, parameters, arguments) called##name,
    DRIVER_FUNCTIONS(X)
#undef X
};

}  // namespace

const ScriptedDriver::Handlers& ScriptedDriver::usual() {
    static const Handlers handlers = [] {
        Handlers made;
        add_usual_lines(made);
        add_usual_calls(made);
        add_usual_fax(made);
        add_usual_tiff(made);
        add_usual_log(made);
        return made;
    }();
    return handlers;
}

void ScriptedDriver::install() {
    close_tiff_files();
    {
        std::lock_guard<std::mutex> holding(world());
        modules = {{2, 4, 2}};
        on = usual();
        makes_filters = true;
        uninteresting_levels.clear();
        channels_.clear();
        lines_.clear();
        everybody_goes_ = false;
        log_initialised = false;
        log_client = 0;
        initialisations = 0;
    }
    _dorn_api_ver_compiled = _dorn_api_ver_bld_comp = _dorn_api_ver_auto_comp = _dorn_pkt_version_exp = 0;
    driver_door_install(&door_table);
}

void ScriptedDriver::let_everybody_go() {
    {
        std::lock_guard<std::mutex> holding(world());
        everybody_goes_ = true;
    }
    open_all_gates();
}

Channel& ScriptedDriver::channel(uint32_t number) {
    std::lock_guard<std::mutex> holding(world());
    auto [place, is_new] = channels_.try_emplace(number);
    Channel& channel = place->second;
    if (is_new) {
        channel.number = number;
        channel.unit = number + 10;
        channel.error_text = text("error text of CHAN%u", number);
    }
    return channel;
}

Channel& ScriptedDriver::channel_of(DornLine* line) {
    return channel(reinterpret_cast<BoardLine*>(line)->channel);
}

DornLine* ScriptedDriver::attach(uint32_t number) {
    DornLine* line;
    {
        std::lock_guard<std::mutex> holding(world());
        lines_.push_back({{}, number, true});
        line = &lines_.back().head;
    }
    name_pointer(line, text("CHAN%u", number));
    return line;
}

void ScriptedDriver::detach(DornLine* line) {
    std::lock_guard<std::mutex> holding(world());
    reinterpret_cast<BoardLine*>(line)->attached = false;
}

bool ScriptedDriver::is_attached(const DornLine* line) const {
    std::lock_guard<std::mutex> holding(world());
    return std::any_of(lines_.begin(), lines_.end(),
                       [line](const BoardLine& known) { return &known.head == line && known.attached; });
}

size_t ScriptedDriver::attached() const {
    std::lock_guard<std::mutex> holding(world());
    return static_cast<size_t>(
        std::count_if(lines_.begin(), lines_.end(), [](const BoardLine& line) { return line.attached; }));
}

DornLine* ScriptedDriver::line_of(uint32_t channel) {
    std::lock_guard<std::mutex> holding(world());
    for (auto line = lines_.rbegin(); line != lines_.rend(); ++line)
        if (line->channel == channel) return &line->head;
    return nullptr;
}

void ScriptedDriver::ring(uint32_t number, const CallData& call) {
    Channel& rung = channel(number);
    {
        std::lock_guard<std::mutex> holding(world());
        rung.wait_results.push_back({KX_STATUS_OK, 1, call});
    }
    world_changed();
}

void ScriptedDriver::wait_ends(uint32_t number, uint32_t status, uint32_t line_status) {
    Channel& waiting = channel(number);
    {
        std::lock_guard<std::mutex> holding(world());
        waiting.wait_results.push_back({status, line_status, {}});
    }
    world_changed();
}

bool ScriptedDriver::waits_for_call(uint32_t number, int milliseconds) {
    Channel& waiting = channel(number);
    return wait_until(
        [&] {
            std::lock_guard<std::mutex> holding(world());
            return waiting.blocked && waiting.waiting_for_call && waiting.wait_results.empty() && !waiting.alerted;
        },
        milliseconds);
}

bool ScriptedDriver::block(DornLine* line) {
    Channel& blocking = channel_of(line);
    return block(blocking, [&] { return blocking.released; });
}

bool ScriptedDriver::block(Channel& blocking, const std::function<bool()>& over) {
    bool was_alerted;
    {
        std::unique_lock<std::mutex> holding(world());
        blocking.blocked = true;
        blocking.alerted = blocking.released = false;
    }
    world_changed();
    {
        std::unique_lock<std::mutex> holding(world());
        block_until(holding, [&] { return blocking.alerted || over() || everybody_goes_; });
        was_alerted = blocking.alerted;
        blocking.blocked = blocking.alerted = false;
    }
    world_changed();
    return was_alerted;
}

void ScriptedDriver::release(uint32_t number) {
    Channel& released = channel(number);
    {
        std::lock_guard<std::mutex> holding(world());
        released.released = true;
    }
    world_changed();
}

bool ScriptedDriver::is_blocked(uint32_t number, int milliseconds) {
    Channel& blocked = channel(number);
    return wait_until(
        [&] {
            std::lock_guard<std::mutex> holding(world());
            return blocked.blocked && !blocked.released;
        },
        milliseconds);
}

void ScriptedDriver::alert(uint32_t unit) {
    {
        std::lock_guard<std::mutex> holding(world());
        for (auto& [number, alerted] : channels_) {
            if (alerted.unit != unit) continue;
            if (alerted.blocked) alerted.alerted = true;
            if (alerted.fax_session && !alerted.blocked) alerted.alert_kept = true;
        }
    }
    world_changed();
}

void ScriptedDriver::answered_alert() {
    {
        std::lock_guard<std::mutex> holding(world());
        for (auto& [number, channel] : channels_)
            if (channel.alerted_thread == GetCurrentThreadId()) channel.alerted_thread = 0;
    }
    world_changed();
}

void ScriptedDriver::alerts_are_answered(const Channel& channel) {
    constexpr int kLongestWay = 2000;  // milliseconds; a script may keep an alert from ever being answered
    wait_until(
        [&] {
            std::lock_guard<std::mutex> holding(world());
            bool leaving = channel.waiting_for_call && (!channel.blocked || channel.alerted);
            return !leaving && channel.alerted_thread == 0;
        },
        kLongestWay);
}

Gate& ScriptedDriver::gate(const std::string& function) {
    std::lock_guard<std::mutex> holding(gates_lock_);
    return gates_[function];
}

DornReport ScriptedDriver::report(uint32_t number, uint32_t report_class, uint32_t type, uint32_t sub_code,
                                  const std::vector<Tag>& tags) {
    ScriptedReport report = {{report_class, type, sub_code}, tags};
    Channel& reporting = channel(number);
    Call on_own_thread([&] {
        if (DornIncomingCmdFunc handler = reporting.handler) handler(line_of(number), &report.head, reporting.unit);
        return 0;
    });
    on_own_thread.result();
    return report.head;
}

InterfaceVersion exported_interface_version() {
    return {_dorn_api_ver_compiled, _dorn_api_ver_bld_comp, _dorn_api_ver_auto_comp};
}

void set_exported_packet_version(uint32_t version) {
    _dorn_pkt_version_exp = version;
}

}  // namespace harness
