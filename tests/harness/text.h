// Small text helpers of the harness.
#pragma once

#include <string>

namespace harness {

// printf into a string.
std::string text(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));

// UTF-16 to UTF-8 and back; a null pointer reads as "null".
std::string narrow(const wchar_t* wide);
std::wstring widen(const std::string& narrow);

// The text in quotes, or null without.
std::string quoted(const char* text);
std::string quoted(const wchar_t* text);

// A pointer as the journal keeps it: the reader sees the pointer's name, 0, or its digits.
std::string pointer_text(const void* pointer);

// Does the line match the pattern, in which "<*>" stands for any run of characters?
bool matches(const std::string& pattern, const std::string& line);

}  // namespace harness
