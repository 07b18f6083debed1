// The values of INI entries: each parser takes the text and says whether it was one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace softboard {

bool parse_number(const std::string& text, uint32_t& value);
bool parse_number_up_to(const std::string& text, uint32_t highest, uint32_t& value);
bool parse_yes_no(const std::string& text, bool& value);
// "fast", "realtime", or how many times as fast as real time.
bool parse_pace(const std::string& text, uint32_t& value);
// One of the rates of T.30 up to 14400 bit/s.
bool parse_rate(const std::string& text, uint32_t& value);
// Items separated by commas; never fails.
std::vector<std::string> parse_list(const std::string& text);
bool parse_numbers(const std::string& text, std::vector<int>& values);

}  // namespace softboard
