#include "text.h"

#include <windows.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace harness {

std::string text(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string result(std::vsnprintf(nullptr, 0, format, arguments), '\0');
    std::vsnprintf(result.data(), result.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return result;
}

std::string narrow(const wchar_t* wide) {
    if (!wide) return "null";
    std::string result(WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr) - 1, '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, result.data(), static_cast<int>(result.size()) + 1, nullptr, nullptr);
    return result;
}

std::wstring widen(const std::string& narrow) {
    std::wstring result(MultiByteToWideChar(CP_UTF8, 0, narrow.c_str(), -1, nullptr, 0) - 1, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, narrow.c_str(), -1, result.data(), static_cast<int>(result.size()) + 1);
    return result;
}

std::string quoted(const char* text) {
    return text ? '"' + std::string(text) + '"' : "null";
}

std::string quoted(const wchar_t* text) {
    return text ? '"' + narrow(text) + '"' : "null";
}

std::string pointer_text(const void* pointer) {
    return text("@%016llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
}

bool matches(const std::string& pattern, const std::string& line) {
    static const std::string wildcard = "<*>";
    size_t found = pattern.find(wildcard);
    if (found == std::string::npos) return pattern == line;
    if (line.compare(0, found, pattern, 0, found) != 0) return false;
    std::string rest = pattern.substr(found + wildcard.size());
    for (size_t start = found; start <= line.size(); ++start)
        if (matches(rest, line.substr(start))) return true;
    return false;
}

}  // namespace harness
