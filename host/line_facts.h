// What the provider's queries tell of a line and of its call, in words and with the constants' names.
#pragma once

#include <string>
#include <vector>

#include "line.h"

struct Fact {
    const char* name;  // "media modes"
    std::string text;  // "LINEMEDIAMODE_G3FAX"
};
using Facts = std::vector<Fact>;

// Of an open line: versions, what line and address can do, and their state. Line by line the same unless the lines
// differ in what they can do.
Facts line_facts(const Line& line, const LineInfo& info);

// Of a line with a call: the call's state and its information record.
Facts call_facts(const Line& line);

// One fact a line, long lists of flags on several.
std::string facts_text(const Facts& facts);
