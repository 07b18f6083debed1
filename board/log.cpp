#include "log.h"

#include <windows.h>

#include <qorvlog.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>

#include "log_file.h"
#include "sync.h"

struct QorvLogFilter {
    struct Setting {
        int level;
        std::string name;
        bool on;
    };
    std::string component;
    std::string name;
    std::vector<Setting> settings;
};

namespace softboard {

// The client key of the board's own lines; any value does that no client's address has.
constexpr uint32_t BOARD_CLIENT = 0;

constexpr int LEVELS = 64;

struct Log {
    Mutex lock;  // of what stands up to the file
    bool initialised = false;
    std::map<uint32_t, QorvLogFilter> filters;   // by client key
    std::map<uint32_t, uint64_t> wanted_levels;  // by client key, bit n = level n, overrides applied
    LogConfig config;

    Mutex file_lock;  // so that who asks whether a line is wanted never waits for a disk; taken last
    LogFile file;
};

// ---- which lines are wanted ---------------------------------------------------------------------------------------

static bool is_listed(const std::vector<std::string>& list, const QorvLogFilter::Setting& setting) {
    return std::any_of(list.begin(), list.end(), [&](const std::string& item) {
        return item == std::to_string(setting.level) || lower_case(item) == lower_case(setting.name);
    });
}

static uint64_t wanted_levels(const QorvLogFilter& filter, const LogConfig& config) {
    uint64_t levels = 0;
    for (const QorvLogFilter::Setting& setting : filter.settings) {
        if (setting.level < 0 || setting.level >= LEVELS) continue;
        const bool on = is_listed(config.on, setting) || (setting.on && !is_listed(config.off, setting));
        const uint64_t bit = uint64_t{1} << setting.level;
        levels = on ? levels | bit : levels & ~bit;
    }
    return levels;
}

static bool is_wanted(const Log& log, uint32_t client, int level) {
    const auto levels = log.wanted_levels.find(client);
    return levels != log.wanted_levels.end() && level >= 0 && level < LEVELS && (levels->second >> level & 1) != 0;
}

// ---- set-up -------------------------------------------------------------------------------------------------------

static std::string default_file() {
    char folder[MAX_PATH + 1];
    const DWORD length = GetTempPathA(sizeof folder, folder);
    return length == 0 || length > MAX_PATH ? std::string() : std::string(folder) + "calddlld.log";
}

static void apply_config(Log& log, const LogConfig& config) {
    log.config = config;
    for (const auto& [client, filter] : log.filters) log.wanted_levels[client] = wanted_levels(filter, config);
    const Guard guard(log.file_lock);
    close_log_file(log.file);
    log.file = {config.file.empty() ? default_file() : config.file, config.max_bytes, config.keep, nullptr, false};
}

// Allocated once and kept: lines may still come while the process ends.
static Log& the_log() {
    static Log* const log = [] {
        Log* const created = new Log;
        created->filters[BOARD_CLIENT] = {"SOFTBOARD",
                                          "SOFTBOARD",
                                          {{LOG_ERROR, "FILTER_ERROR", true},
                                           {LOG_WARNING, "FILTER_WARNING", true},
                                           {LOG_INFO, "FILTER_INFO", false}}};
        apply_config(*created, LogConfig());
        return created;
    }();
    return *log;
}

void configure_log(const LogConfig& config) {
    Log& log = the_log();
    const Guard guard(log.lock);
    apply_config(log, config);
}

void close_log() {
    Log& log = the_log();
    const Guard guard(log.file_lock);
    close_log_file(log.file);
}

// ---- writing them -------------------------------------------------------------------------------------------------

static std::string level_name(const Log& log, uint32_t client, int level) {
    const auto filter = log.filters.find(client);
    if (filter != log.filters.end()) {
        for (const QorvLogFilter::Setting& setting : filter->second.settings) {
            if (setting.level == level) return setting.name;
        }
    }
    return "LEVEL_" + std::to_string(level);
}

static std::string time_stamp() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char text[32];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", now.wYear, now.wMonth, now.wDay, now.wHour,
             now.wMinute, now.wSecond, now.wMilliseconds);
    return text;
}

static const char* file_name(const char* path) {
    const char* const slash = strrchr(path, '/');
    const char* const backslash = strrchr(path, '\\');
    const char* const last = std::max(slash, backslash);
    return last == nullptr ? path : last + 1;
}

// What a line needs of the settings; nothing when it is not wanted.
struct Wanted {
    std::string level;
    bool debugger;
};

static std::optional<Wanted> look_up(Log& log, uint32_t client, int level) {
    const SharedGuard guard(log.lock);
    if (!is_wanted(log, client, level)) return std::nullopt;
    return Wanted{level_name(log, client, level), log.config.debugger};
}

static void write_if_wanted(uint32_t client, int level, const char* line, const char* source_file,
                            unsigned source_line) {
    Log& log = the_log();
    const std::optional<Wanted> wanted = look_up(log, client, level);
    if (!wanted.has_value()) return;
    std::string text = " " + wanted->level + " " + file_name(source_file == nullptr ? "" : source_file) + "(" +
                       std::to_string(source_line) + "): " + (line == nullptr ? "" : line) + "\r\n";
    {
        const Guard guard(log.file_lock);
        text.insert(0, time_stamp());
        write_log_file(log.file, text);
    }
    if (wanted->debugger) OutputDebugStringA(text.c_str());
}

bool log_wants(int level) {
    Log& log = the_log();
    const SharedGuard guard(log.lock);
    return is_wanted(log, BOARD_CLIENT, level);
}

void log_line(int level, const char* source_file, unsigned source_line, const std::string& text) noexcept try {
    write_if_wanted(BOARD_CLIENT, level, text.c_str(), source_file, source_line);
} catch (const std::exception&) {
    // There is nowhere to say it.
}

}  // namespace softboard

// ---- the library's functions --------------------------------------------------------------------------------------

using namespace softboard;

int QorvLogInitialized() {
    Log& log = the_log();
    const SharedGuard guard(log.lock);
    return log.initialised ? 1 : 0;
}

int QorvLogInit(const char*, const char*, uint32_t, uint32_t) {
    Log& log = the_log();
    const Guard guard(log.lock);
    log.initialised = true;
    return 0;
}

QorvLogFilter* QorvLogFilterNew(const char* component, const char* filter, uint32_t, uint32_t, uint32_t, uint32_t) try {
    return new QorvLogFilter{component == nullptr ? "" : component, filter == nullptr ? "" : filter, {}};
} catch (const std::bad_alloc&) {
    return nullptr;
}

void QorvLogFilterAddSetting(QorvLogFilter* filter, int level, const char* name, int on) try {
    if (filter == nullptr || name == nullptr) return;
    filter->settings.push_back({level, name, on != 0});
} catch (const std::bad_alloc&) {
    // The level stays without a setting, that is off.
}

void QorvLogAddFilter(uint32_t client, QorvLogFilter* filter) try {
    if (filter == nullptr || client == BOARD_CLIENT) return;
    Log& log = the_log();
    const Guard guard(log.lock);
    log.filters[client] = *filter;
    log.wanted_levels[client] = wanted_levels(*filter, log.config);
} catch (const std::bad_alloc&) {
    // The client stays unknown: nothing of it is wanted.
}

void QorvLogFilterDelete(QorvLogFilter* filter) {
    delete filter;
}

int QorvLogIsInterested(uint32_t client, int level) {
    Log& log = the_log();
    const SharedGuard guard(log.lock);
    return is_wanted(log, client, level) ? 1 : 0;
}

void QorvLogLogMsg(uint32_t client, int level, const char* line, const char* source_file, uint32_t source_line) try {
    write_if_wanted(client, level, line, source_file, source_line);
} catch (const std::bad_alloc&) {
    // The line is lost.
}
