#include "config_keys.h"

#include "config_values.h"

namespace softboard {

constexpr uint32_t HIGHEST_CHANNEL = 1000000;
constexpr uint32_t HIGHEST_NUMBER = 1000000000;
constexpr uint32_t MOST_ROTATED_FILES = 99;

template <class Record>
struct Key {
    const char* name;
    bool (*set)(Record& record, const std::string& value);
};

static bool set_text(std::string& field, const std::string& value) {
    field = value;
    return true;
}

static bool set_phone(std::string& field, const std::string& value) {
    if (dialled_digits(value).empty()) return false;
    field = dialled_digits(value);
    return true;
}

constexpr Key<BoardConfig> BOARD_KEYS[] = {
    {"pace", [](BoardConfig& board, const std::string& value) { return parse_pace(value, board.pace); }},
    {"ring_interval_ms",
     [](BoardConfig& board, const std::string& value) {
         return parse_number(value, board.ring_interval_ms) && board.ring_interval_ms > 0;
     }},
    {"no_answer_ms",
     [](BoardConfig& board, const std::string& value) { return parse_number(value, board.no_answer_ms); }},
    {"hold_ms", [](BoardConfig& board, const std::string& value) { return parse_number(value, board.hold_ms); }},
    {"pkt_version_exp",
     [](BoardConfig& board, const std::string& value) { return parse_number(value, board.pkt_version_exp); }},
};

constexpr Key<FaxConfig> FAX_KEYS[] = {
    {"ecm", [](FaxConfig& fax, const std::string& value) { return parse_yes_no(value, fax.ecm); }},
    {"max_rate", [](FaxConfig& fax, const std::string& value) { return parse_rate(value, fax.max_rate); }},
    {"sub_address", [](FaxConfig& fax, const std::string& value) { return set_text(fax.sub_address, value); }},
};

constexpr Key<ChannelConfig> CHANNEL_KEYS[] = {
    {"name", [](ChannelConfig& channel, const std::string& value) { return set_text(channel.name, value); }},
    {"information",
     [](ChannelConfig& channel, const std::string& value) { return set_text(channel.information, value); }},
    {"second_called",
     [](ChannelConfig& channel, const std::string& value) { return set_text(channel.second_called, value); }},
    {"missing_capabilities",
     [](ChannelConfig& channel, const std::string& value) { return parse_numbers(value, channel.missing); }},
    {"dial_tone",
     [](ChannelConfig& channel, const std::string& value) { return parse_yes_no(value, channel.dial_tone); }},
    {"protocol",
     [](ChannelConfig& channel, const std::string& value) { return parse_number(value, channel.protocol); }},
};

constexpr Key<ChannelConfig> NUMBERING_KEYS[] = {
    {"number", [](ChannelConfig& channel, const std::string& value) { return set_phone(channel.phone, value); }},
    {"unit", [](ChannelConfig& channel,
                const std::string& value) { return parse_number_up_to(value, MAX_CHANNELS - 1, channel.unit); }},
};

constexpr Key<ModulePlan> MODULE_KEYS[] = {
    {"first_channel",
     [](ModulePlan& plan, const std::string& value) {
         return parse_number_up_to(value, HIGHEST_CHANNEL, plan.module.first_channel);
     }},
    {"channels",
     [](ModulePlan& plan, const std::string& value) {
         return parse_number_up_to(value, MAX_CHANNELS, plan.module.channel_count);
     }},
    {"first_unit",
     [](ModulePlan& plan, const std::string& value) {
         return parse_number_up_to(value, MAX_CHANNELS - 1, plan.first_unit);
     }},
    {"first_number",
     [](ModulePlan& plan, const std::string& value) {
         return parse_number_up_to(value, HIGHEST_NUMBER, plan.first_number);
     }},
};

constexpr Key<StationConfig> STATION_KEYS[] = {
    {"number", [](StationConfig& station, const std::string& value) { return set_phone(station.number, value); }},
    {"name", [](StationConfig& station, const std::string& value) { return set_text(station.name, value); }},
    {"ident", [](StationConfig& station, const std::string& value) { return set_text(station.ident, value); }},
    {"information",
     [](StationConfig& station, const std::string& value) { return set_text(station.information, value); }},
    {"folder", [](StationConfig& station, const std::string& value) { return set_text(station.folder, value); }},
    {"busy", [](StationConfig& station, const std::string& value) { return parse_yes_no(value, station.busy); }},
    {"answers", [](StationConfig& station, const std::string& value) { return parse_yes_no(value, station.answers); }},
    {"silent", [](StationConfig& station, const std::string& value) { return parse_yes_no(value, station.silent); }},
    {"trains", [](StationConfig& station, const std::string& value) { return parse_yes_no(value, station.trains); }},
    {"hangup_page",
     [](StationConfig& station, const std::string& value) { return parse_number(value, station.hangup_page); }},
    {"calls", [](StationConfig& station, const std::string& value) { return set_phone(station.calls, value); }},
    {"file", [](StationConfig& station, const std::string& value) { return set_text(station.file, value); }},
    {"header", [](StationConfig& station, const std::string& value) { return set_text(station.header, value); }},
    {"after_ms",
     [](StationConfig& station, const std::string& value) { return parse_number(value, station.after_ms); }},
    {"times", [](StationConfig& station, const std::string& value) { return parse_number(value, station.times); }},
};

constexpr Key<LogConfig> LOG_KEYS[] = {
    {"file", [](LogConfig& log, const std::string& value) { return set_text(log.file, value); }},
    {"max_bytes", [](LogConfig& log, const std::string& value) { return parse_number(value, log.max_bytes); }},
    {"keep",
     [](LogConfig& log, const std::string& value) { return parse_number_up_to(value, MOST_ROTATED_FILES, log.keep); }},
    {"debugger", [](LogConfig& log, const std::string& value) { return parse_yes_no(value, log.debugger); }},
    {"on",
     [](LogConfig& log, const std::string& value) {
         log.on = parse_list(value);
         return true;
     }},
    {"off",
     [](LogConfig& log, const std::string& value) {
         log.off = parse_list(value);
         return true;
     }},
};

template <class Record, size_t Count>
static Found apply(const Key<Record> (&keys)[Count], Record& record, const IniEntry& entry) {
    for (const Key<Record>& key : keys) {
        if (entry.key != key.name) continue;
        Record changed = record;
        if (!key.set(changed, entry.value)) return Found::wrong;
        record = changed;
        return Found::yes;
    }
    return Found::no;
}

Found take_board_entry(BoardConfig& board, const IniEntry& entry) {
    return apply(BOARD_KEYS, board, entry);
}

Found take_module_entry(ModulePlan& plan, const IniEntry& entry) {
    return apply(MODULE_KEYS, plan, entry);
}

Found take_channel_entry(ChannelConfig& channel, const IniEntry& entry) {
    const Found found = apply(CHANNEL_KEYS, channel, entry);
    return found == Found::no ? apply(FAX_KEYS, channel.fax, entry) : found;
}

Found take_numbering_entry(ChannelConfig& channel, const IniEntry& entry) {
    return apply(NUMBERING_KEYS, channel, entry);
}

Found take_station_entry(StationConfig& station, const IniEntry& entry) {
    const Found found = apply(STATION_KEYS, station, entry);
    return found == Found::no ? apply(FAX_KEYS, station.fax, entry) : found;
}

Found take_log_entry(LogConfig& log, const IniEntry& entry) {
    return apply(LOG_KEYS, log, entry);
}

}  // namespace softboard
