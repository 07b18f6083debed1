#include <algorithm>
#include <sstream>
#include <vector>

#include "config.h"
#include "fuzz.h"
#include "header_line.h"
#include "page.h"

namespace fuzz {

using softboard::BoardConfig;
using softboard::FaxConfig;

template <class Value>
static bool all_differ(std::vector<Value> values) {
    std::sort(values.begin(), values.end());
    return std::adjacent_find(values.begin(), values.end()) == values.end();
}

// Numbers that ring, of channels and of stations; an empty one is none.
static void add_number(const std::string& number, std::vector<std::string>& numbers) {
    must(softboard::dialled_digits(number) == number, "a number has only what can be dialled");
    if (!number.empty()) numbers.push_back(number);
}

static void check_fax(const FaxConfig& fax) {
    must(fax.max_rate >= 2400 && fax.max_rate <= softboard::MAX_RATE && fax.max_rate % 2400 == 0,
         "a rate is one of T.30's");
}

static void check_modules(const BoardConfig& board) {
    std::vector<uint32_t> modules;
    size_t channels = 0;
    for (const softboard::ModuleConfig& module : board.modules) {
        must(module.number >= softboard::FIRST_MODULE && module.number <= softboard::LAST_MODULE,
             "a module has a number of a module");
        modules.push_back(module.number);
        channels += module.channel_count;
    }
    must(!modules.empty() && all_differ(modules), "there are modules, each of them once");
    must(board.channels.size() == channels, "the modules have the channels");
    must(channels <= softboard::MAX_CHANNELS, "there are no more channels than there may be");
}

static void check_channels(const BoardConfig& board, std::vector<std::string>& numbers) {
    std::vector<uint32_t> channels;
    std::vector<uint32_t> units;
    for (const softboard::ChannelConfig& channel : board.channels) {
        must(channel.unit < softboard::MAX_CHANNELS, "a unit has a number of a unit");
        channels.push_back(channel.number);
        units.push_back(channel.unit);
        add_number(channel.phone, numbers);
        check_fax(channel.fax);
    }
    must(all_differ(channels), "a channel is there once");
    must(all_differ(units), "a unit is given once");
}

static void check_stations(const BoardConfig& board, std::vector<std::string>& numbers) {
    constexpr uint32_t LONGEST = 64;
    const SYSTEMTIME time{2026, 11, 1, 23, 12, 34, 56, 789};
    for (const softboard::StationConfig& station : board.stations) {
        add_number(station.number, numbers);
        check_fax(station.fax);
        must(station.calls.empty() || !station.file.empty(), "a station that calls has something to send");
        const std::string header = softboard::expand_header(station.header, time, LONGEST);
        for (uint32_t row = 0; row < softboard::header_rows(softboard::DPI_STANDARD); ++row) {
            must(softboard::header_row(header, row, softboard::DPI_STANDARD, 1728).size() == 1728 / 8,
                 "a header line is as wide as the page");
        }
    }
}

void ini(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    std::istringstream file(text);
    softboard::Mistakes mistakes;
    const BoardConfig board = softboard::read_config(file, mistakes);
    std::vector<std::string> numbers;
    check_modules(board);
    check_channels(board, numbers);
    check_stations(board, numbers);
    must(all_differ(numbers), "a number is given once");
    must(board.ring_interval_ms > 0, "telephones ring now and then");
    must(board.pace <= 1000, "the pace is one that can be kept");
    must(board.log.keep <= 99, "not more log files are kept than may be");
    for (const softboard::Mistake& mistake : mistakes) {
        must(mistake.line <= lines, "a mistake is in a line of the file");
        must(!mistake.text.empty(), "a mistake says what it is");
    }
}

}  // namespace fuzz
