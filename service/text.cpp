// Conversions between UTF-8, UTF-16 and the system's code page.
#include "text.h"

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "owned.h"

static std::wstring wide_of(UINT code_page, std::string_view text) {
    const int size = static_cast<int>(text.size());
    std::wstring result(MultiByteToWideChar(code_page, 0, text.data(), size, nullptr, 0), L'\0');
    MultiByteToWideChar(code_page, 0, text.data(), size, result.data(), static_cast<int>(result.size()));
    return result;
}

std::string utf8(std::wstring_view text) {
    const int size = static_cast<int>(text.size());
    std::string result(WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), static_cast<int>(result.size()), nullptr,
                        nullptr);
    return result;
}

std::wstring wide(std::string_view utf8_text) {
    return wide_of(CP_UTF8, utf8_text);
}

std::optional<std::string> ansi(std::string_view utf8_text) {
    const std::wstring text = wide(utf8_text);
    const int size = static_cast<int>(text.size());
    // A code page of UTF-8 has every character and refuses the arguments that ask for a default one.
    const bool every_character = GetACP() == CP_UTF8;
    const DWORD flags = every_character ? 0 : WC_NO_BEST_FIT_CHARS;
    BOOL lossy = FALSE;
    BOOL* lossy_out = every_character ? nullptr : &lossy;
    std::string result(WideCharToMultiByte(CP_ACP, flags, text.data(), size, nullptr, 0, nullptr, nullptr), '\0');
    WideCharToMultiByte(CP_ACP, flags, text.data(), size, result.data(), static_cast<int>(result.size()), nullptr,
                        lossy_out);
    if (lossy) return std::nullopt;
    return result;
}

std::string utf8_of_ansi(const char* field, size_t size) {
    return utf8(wide_of(CP_ACP, std::string_view(field, strnlen(field, size))));
}

std::string utf8_of_wide(const wchar_t* field, size_t size) {
    return utf8(std::wstring_view(field, wcsnlen(field, size)));
}

std::string format(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    va_list again;
    va_copy(again, arguments);
    std::string result(vsnprintf(nullptr, 0, pattern, arguments), '\0');
    vsnprintf(result.data(), result.size() + 1, pattern, again);
    va_end(again);
    va_end(arguments);
    return result;
}

std::string wrapped(const std::string& text, size_t width, size_t indent) {
    std::string result;
    size_t room = width;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find(' ', start), text.size());
        const size_t size = end - start;
        if (size >= room) {
            result += "\n" + std::string(indent, ' ');
            room = width;
        } else if (!result.empty()) {
            result += ' ';
        }
        result += text.substr(start, size);
        room -= size + 1;
        start = end + 1;
    }
    return result;
}

std::string windows_error(unsigned long code) {
    wchar_t* system_text = nullptr;
    const DWORD size =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, code, 0, reinterpret_cast<wchar_t*>(&system_text), 0, nullptr);
    const OwnedLocal<wchar_t> owner(system_text);
    std::string text = size ? utf8(std::wstring_view(system_text, size)) : "no text";
    while (!text.empty() && std::string_view("\r\n .").find(text.back()) != std::string_view::npos) text.pop_back();
    return format("error %lu: %s", code, text.c_str());
}
