// Reads an INI file into sections and entries that know their line, so that every mistake can be reported by line.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace softboard {

struct Mistake {
    unsigned line;  // 0 = the file as a whole
    std::string text;
};
using Mistakes = std::vector<Mistake>;

struct IniEntry {
    std::string key;  // lower case
    std::string value;
    unsigned line;
};

struct IniSection {
    std::string name;  // lower case
    unsigned line;
    std::vector<IniEntry> entries;
};

// Comments start with ";" or "#" and take a whole line. Lines that are no section, entry or comment are mistakes.
std::vector<IniSection> read_ini(std::istream& file, Mistakes& mistakes);

std::string trimmed(const std::string& text);
std::string lower_case(std::string text);

}  // namespace softboard
