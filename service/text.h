// Text between its three forms: UTF-8 inside these programs, UTF-16 for Windows, the system's code page for the
// provider's ANSI fields.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

std::string utf8(std::wstring_view text);
std::wstring wide(std::string_view utf8_text);

// The text in the system's code page, or nothing when the code page lacks one of its characters.
std::optional<std::string> ansi(std::string_view utf8_text);

// A field of at most `size` bytes in the system's code page, up to its NUL.
std::string utf8_of_ansi(const char* field, size_t size);

// A UTF-16 field of at most `size` characters, up to its NUL.
std::string utf8_of_wide(const wchar_t* field, size_t size);

// As printf, into a string.
std::string format(const char* pattern, ...) __attribute__((format(gnu_printf, 1, 2)));

// The text broken at blanks into lines of at most `width` characters, all but the first one indented.
std::string wrapped(const std::string& text, size_t width, size_t indent);

// "error 5: Access denied", the system's text of a Windows error code on one line.
std::string windows_error(unsigned long code);
