#include "ini.h"

#include <algorithm>
#include <cctype>

namespace softboard {

std::string trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

static bool read_entry(const std::string& line, unsigned number, IniSection& section) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) return false;
    const std::string key = lower_case(trimmed(line.substr(0, equals)));
    if (key.empty()) return false;
    section.entries.push_back({key, trimmed(line.substr(equals + 1)), number});
    return true;
}

std::vector<IniSection> read_ini(std::istream& file, Mistakes& mistakes) {
    std::vector<IniSection> sections;
    std::string text;
    for (unsigned number = 1; std::getline(file, text); ++number) {
        if (number == 1 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
        const std::string line = trimmed(text);
        if (line.empty() || line[0] == ';' || line[0] == '#') continue;
        if (line[0] == '[') {
            if (line.back() != ']') mistakes.push_back({number, "the section's \"]\" is missing"});
            const size_t end = line.back() == ']' ? line.size() - 2 : line.size() - 1;
            sections.push_back({lower_case(trimmed(line.substr(1, end))), number, {}});
        } else if (sections.empty()) {
            mistakes.push_back({number, "an entry before the first section"});
        } else if (!read_entry(line, number, sections.back())) {
            mistakes.push_back({number, "neither a section nor an entry nor a comment"});
        }
    }
    return sections;
}

}  // namespace softboard
