#include "config.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>

#include "config_keys.h"
#include "config_values.h"

namespace softboard {

constexpr uint32_t DEFAULT_CHANNELS = 4;
constexpr uint32_t DEFAULT_FIRST_NUMBER = 100;

// ---- sections -----------------------------------------------------------------------------------------------------

static void read_section(const IniSection& section, Mistakes& mistakes,
                         const std::function<Found(const IniEntry&)>& read_entry) {
    for (const IniEntry& entry : section.entries) {
        const Found found = read_entry(entry);
        if (found == Found::no) mistakes.push_back({entry.line, "unknown key \"" + entry.key + "\""});
        if (found == Found::wrong) {
            mistakes.push_back({entry.line, "\"" + entry.value + "\" is no value for " + entry.key});
        }
    }
}

static void add_channels(BoardConfig& board, const ModulePlan& plan, const ChannelConfig& defaults) {
    for (uint32_t i = 0; i < plan.module.channel_count; ++i) {
        ChannelConfig channel = defaults;
        channel.number = plan.module.first_channel + i;
        channel.unit = plan.first_unit + i;
        channel.phone = std::to_string(plan.first_number + i);
        if (channel.name.empty()) channel.name = "Channel " + std::to_string(channel.number);
        board.channels.push_back(channel);
    }
    board.modules.push_back(plan.module);
}

// The next module's channels, units and numbers follow the last one's unless it says otherwise.
static ModulePlan next_module(const BoardConfig& board, uint32_t number) {
    ModulePlan plan;
    plan.module.number = number;
    plan.module.channel_count = DEFAULT_CHANNELS;
    if (!board.channels.empty()) {
        plan.module.first_channel = board.channels.back().number + 1;
        plan.first_unit = board.channels.back().unit + 1;
    }
    plan.first_number = DEFAULT_FIRST_NUMBER + plan.module.first_channel;
    return plan;
}

static const char* module_fault(const BoardConfig& board, const ModulePlan& plan) {
    if (plan.first_unit + plan.module.channel_count > MAX_CHANNELS) return "its unit numbers reach beyond 4047";
    if (board.channels.size() + plan.module.channel_count > MAX_CHANNELS) return "with it there are over 4048 channels";
    for (const ModuleConfig& module : board.modules) {
        if (module.number == plan.module.number) return "this module is there already";
        const bool apart = plan.module.first_channel >= module.first_channel + module.channel_count ||
                           module.first_channel >= plan.module.first_channel + plan.module.channel_count;
        if (!apart) return "its channels overlap those of another module";
    }
    return nullptr;
}

// "module.2" with prefix "module." is 2.
static bool section_number(const IniSection& section, const std::string& prefix, uint32_t& number) {
    return section.name.compare(0, prefix.size(), prefix) == 0 &&
           parse_number(section.name.substr(prefix.size()), number);
}

static void read_module(const IniSection& section, uint32_t number, BoardConfig& board, Mistakes& mistakes) {
    if (number < FIRST_MODULE || number > LAST_MODULE) {
        mistakes.push_back({section.line, "module numbers are 2 to 254"});
        return;
    }
    ModulePlan plan = next_module(board, number);
    ChannelConfig defaults;
    bool numbered = false;
    read_section(section, mistakes, [&](const IniEntry& entry) {
        numbered |= entry.key == "first_number";
        const Found found = take_module_entry(plan, entry);
        return found == Found::no ? take_channel_entry(defaults, entry) : found;
    });
    if (!numbered) plan.first_number = DEFAULT_FIRST_NUMBER + plan.module.first_channel;
    if (const char* fault = module_fault(board, plan)) {
        mistakes.push_back({section.line, fault});
    } else {
        add_channels(board, plan, defaults);
    }
}

static void read_channel(const IniSection& section, uint32_t number, BoardConfig& board, Mistakes& mistakes) {
    const auto channel = std::find_if(board.channels.begin(), board.channels.end(),
                                      [=](const ChannelConfig& other) { return other.number == number; });
    if (channel == board.channels.end()) {
        mistakes.push_back({section.line, "no module has this channel"});
        return;
    }
    read_section(section, mistakes, [&](const IniEntry& entry) {
        const Found found = take_numbering_entry(*channel, entry);
        return found == Found::no ? take_channel_entry(*channel, entry) : found;
    });
}

static void read_station(const IniSection& section, const std::string& name, BoardConfig& board, Mistakes& mistakes) {
    StationConfig station;
    station.section = name;
    station.name = name;
    read_section(section, mistakes, [&](const IniEntry& entry) { return take_station_entry(station, entry); });
    if (!station.calls.empty() && station.file.empty()) {
        mistakes.push_back({section.line, "a station that calls needs a file"});
        station.calls.clear();
    }
    if (station.ident.empty()) station.ident = station.number;
    board.stations.push_back(station);
}

static void read_other(const IniSection& section, BoardConfig& board, Mistakes& mistakes) {
    const std::string station = "station.";
    uint32_t number = 0;
    if (section.name == "board") {
        read_section(section, mistakes, [&](const IniEntry& entry) { return take_board_entry(board, entry); });
    } else if (section.name == "log") {
        read_section(section, mistakes, [&](const IniEntry& entry) { return take_log_entry(board.log, entry); });
    } else if (section_number(section, "channel.", number)) {
        read_channel(section, number, board, mistakes);
    } else if (section.name.compare(0, station.size(), station) == 0) {
        read_station(section, section.name.substr(station.size()), board, mistakes);
    } else if (!section_number(section, "module.", number)) {
        mistakes.push_back({section.line, "unknown section \"" + section.name + "\""});
    }
}

// ---- what must be unique ------------------------------------------------------------------------------------------

static void check_channels(BoardConfig& board, std::set<std::string>& numbers, Mistakes& mistakes) {
    std::set<uint32_t> units;
    std::vector<ChannelConfig*> homeless;
    for (ChannelConfig& channel : board.channels) {
        if (!units.insert(channel.unit).second) homeless.push_back(&channel);
        if (!numbers.insert(channel.phone).second) {
            mistakes.push_back({0, "number " + channel.phone + " is given twice; only the first is rung"});
            channel.phone.clear();
        }
    }
    uint32_t free_unit = 0;
    for (ChannelConfig* channel : homeless) {
        while (!units.insert(free_unit).second) ++free_unit;
        mistakes.push_back({0, "unit " + std::to_string(channel->unit) + " is given twice; channel " +
                                   std::to_string(channel->number) + " gets unit " + std::to_string(free_unit)});
        channel->unit = free_unit;
    }
}

static void check_stations(BoardConfig& board, std::set<std::string>& numbers, Mistakes& mistakes) {
    for (StationConfig& station : board.stations) {
        if (station.number.empty() || numbers.insert(station.number).second) continue;
        mistakes.push_back(
            {0, "number " + station.number + " is given twice; station " + station.section + " cannot be called"});
        station.number.clear();
    }
}

// ---- the whole file -----------------------------------------------------------------------------------------------

BoardConfig read_config(std::istream& file, Mistakes& mistakes) {
    BoardConfig board;
    const std::vector<IniSection> sections = read_ini(file, mistakes);
    // Modules first, wherever they stand: the other sections refer to their channels.
    for (const IniSection& section : sections) {
        uint32_t number = 0;
        if (section_number(section, "module.", number)) read_module(section, number, board, mistakes);
    }
    if (board.modules.empty()) add_channels(board, next_module(board, FIRST_MODULE), ChannelConfig());
    for (const IniSection& section : sections) read_other(section, board, mistakes);

    std::set<std::string> numbers;
    check_channels(board, numbers, mistakes);
    check_stations(board, numbers, mistakes);
    std::sort(board.modules.begin(), board.modules.end(),
              [](const ModuleConfig& a, const ModuleConfig& b) { return a.number < b.number; });
    return board;
}

BoardConfig read_config(const std::string& path, Mistakes& mistakes) {
    std::ifstream file(path);
    if (!path.empty() && !file) mistakes.push_back({0, "the file cannot be read"});
    return read_config(file, mistakes);
}

bool has_capability(const ChannelConfig& channel, int capability) {
    constexpr int CAPABILITIES[] = {CAPABILITY_FIRMWARE, CAPABILITY_FAX, CAPABILITY_V17};
    return std::find(std::begin(CAPABILITIES), std::end(CAPABILITIES), capability) != std::end(CAPABILITIES) &&
           std::find(channel.missing.begin(), channel.missing.end(), capability) == channel.missing.end();
}

std::string dialled_digits(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        const char upper = c >= 'a' && c <= 'd' ? static_cast<char>(c - 'a' + 'A') : c;
        if ((upper >= '0' && upper <= '9') || (upper >= 'A' && upper <= 'D') || upper == '*' || upper == '#' ||
            upper == '+') {
            digits += upper;
        }
    }
    return digits;
}

}  // namespace softboard
