#include "config_values.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "config.h"
#include "ini.h"

namespace softboard {

constexpr uint32_t FASTEST_PACE = 1000;
constexpr uint32_t RATES[] = {2400, 4800, 7200, 9600, 12000, 14400};

bool parse_number_up_to(const std::string& text, uint32_t highest, uint32_t& value) {
    const bool digits = !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits) return false;
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    if (number > highest) return false;
    value = static_cast<uint32_t>(number);
    return true;
}

bool parse_number(const std::string& text, uint32_t& value) {
    return parse_number_up_to(text, UINT32_MAX, value);
}

bool parse_yes_no(const std::string& text, bool& value) {
    const std::string word = lower_case(text);
    const bool yes = word == "yes" || word == "on" || word == "1";
    if (!yes && word != "no" && word != "off" && word != "0") return false;
    value = yes;
    return true;
}

bool parse_pace(const std::string& text, uint32_t& value) {
    const std::string word = lower_case(text);
    if (word == "fast" || word == "realtime") {
        value = word == "fast" ? PACE_FAST : PACE_REALTIME;
        return true;
    }
    uint32_t factor = 0;
    if (!parse_number_up_to(text, FASTEST_PACE, factor) || factor == 0) return false;
    value = factor;
    return true;
}

bool parse_rate(const std::string& text, uint32_t& value) {
    uint32_t rate = 0;
    if (!parse_number(text, rate) || std::find(std::begin(RATES), std::end(RATES), rate) == std::end(RATES)) {
        return false;
    }
    value = rate;
    return true;
}

std::vector<std::string> parse_list(const std::string& text) {
    std::vector<std::string> items;
    std::istringstream stream(text);
    for (std::string item; std::getline(stream, item, ',');) {
        if (!trimmed(item).empty()) items.push_back(trimmed(item));
    }
    return items;
}

bool parse_numbers(const std::string& text, std::vector<int>& values) {
    std::vector<int> numbers;
    for (const std::string& item : parse_list(text)) {
        uint32_t number = 0;
        if (!parse_number_up_to(item, INT32_MAX, number)) return false;
        numbers.push_back(static_cast<int>(number));
    }
    values = numbers;
    return true;
}

}  // namespace softboard
