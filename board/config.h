// The board as softboard.ini describes it: modules and their channels, stations, pace and log. Fixed from
// DornInitialize on. softboard.ini.example explains every key.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ini.h"

namespace softboard {

constexpr uint32_t MAX_CHANNELS = 4048;  // and unit numbers below it
constexpr uint32_t FIRST_MODULE = 2;
constexpr uint32_t LAST_MODULE = 254;
constexpr uint32_t MAX_RATE = 14400;

constexpr uint32_t PACE_FAST = 0;      // as fast as the processor goes
constexpr uint32_t PACE_REALTIME = 1;  // any other pace is a multiple of real time

// What capability numbers stand for on this board.
constexpr int CAPABILITY_FIRMWARE = 14;
constexpr int CAPABILITY_FAX = 20;
constexpr int CAPABILITY_V17 = 41;  // without it 9600 bit/s is the highest rate
constexpr uint32_t MAX_RATE_WITHOUT_V17 = 9600;

// How a fax machine, a channel's or a station's, behaves on the line.
struct FaxConfig {
    bool ecm = true;
    uint32_t max_rate = MAX_RATE;  // bit/s; training fails above it
    std::string sub_address;       // sent as SUB
};

struct ChannelConfig {
    uint32_t number = 0;
    uint32_t unit = 0;
    std::string phone;          // the number that rings it
    std::string name;           // shown to whom it calls
    std::string information;    // information text of calls to it
    std::string second_called;  // second called-party text of calls to it
    std::vector<int> missing;   // capabilities taken away
    bool dial_tone = true;
    uint32_t protocol = 12;  // call-control protocol number
    FaxConfig fax;
};

struct ModuleConfig {
    uint32_t number = 0;
    uint32_t first_channel = 0;
    uint32_t channel_count = 0;
};

// A far end that is no line of the board.
struct StationConfig {
    std::string section;
    std::string number;  // what one dials to reach it; also its calling number
    std::string name;
    std::string ident;        // its CSI or TSI
    std::string information;  // information text of calls from it
    FaxConfig fax;

    std::string folder;  // where received faxes go; empty = they are thrown away
    bool busy = false;
    bool answers = true;
    bool silent = false;       // answers, but is no fax machine
    bool trains = true;        // false = every training fails
    uint32_t hangup_page = 0;  // hangs up during this page, 1 the first; 0 = never

    std::string calls;      // the number that it calls; empty = it only answers
    std::string file;       // the TIFF file that it sends then
    std::string header;     // header line on the pages it sends
    uint32_t after_ms = 0;  // how long after the line first waits for calls
    uint32_t times = 1;     // how many calls
};

struct LogConfig {
    std::string file;  // empty = calddlld.log in the folder for temporary files
    uint32_t max_bytes = 4 * 1024 * 1024;
    uint32_t keep = 3;  // rotated files
    bool debugger = true;
    std::vector<std::string> on;   // levels, by number or setting name, that are wanted whatever a filter says
    std::vector<std::string> off;  // and that are not
};

struct BoardConfig {
    uint32_t pace = PACE_FAST;
    uint32_t ring_interval_ms = 6000;
    uint32_t no_answer_ms = 60000;
    uint32_t hold_ms = 10000;  // how long fast time stands still for a line that does not take part
    uint32_t pkt_version_exp = 0;
    std::vector<ModuleConfig> modules;
    std::vector<ChannelConfig> channels;  // in module order
    std::vector<StationConfig> stations;
    LogConfig log;
};

// Where the INI file is: the environment variable QORV_SOFTBOARD, else softboard.ini beside this library; empty when
// there is none.
std::string config_path();

// An empty file gives the default board. Values that are wrong are reported and keep their default.
BoardConfig read_config(std::istream& file, Mistakes& mistakes);
// An empty path gives the default board, too; a file that cannot be read does, and is a mistake of line 0.
BoardConfig read_config(const std::string& path, Mistakes& mistakes);

bool has_capability(const ChannelConfig& channel, int capability);

// What of a dial string or a phone number counts: digits, "*", "#", "+" and the letters A to D.
std::string dialled_digits(const std::string& text);

}  // namespace softboard
