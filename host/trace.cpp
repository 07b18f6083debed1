// Listening to the driver library's log.
#include "trace.h"

#include <algorithm>
#include <atomic>
#include <string_view>

#include "journal.h"
#include "json.h"
#include "text.h"

namespace {

constexpr wchar_t CONFIGURATION_VARIABLE[] = L"QORV_SOFTBOARD";
constexpr uint32_t TRACE_LEVELS[] = {1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};

std::atomic<bool> gJson{false};

void post(std::string line) {
    const ULONGLONG tick = GetTickCount64();
    journal_post([line = std::move(line), tick, json = gJson.load()] {
        if (!json) return time_text(tick) + "  trace  " + line;
        JsonObject object;
        json_text(object, "type", "trace");
        json_decimal(object, "time", seconds_since_start(tick));
        return json_line(json_text(object, "line", line));
    });
}

// Debugger output of a process without a debugger is an exception that nobody needs to handle. This only looks on.
LONG CALLBACK on_exception(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == DBG_PRINTEXCEPTION_C && record.NumberParameters >= 2) {
        const auto* text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
        std::string line = utf8_of_ansi(text, record.ExceptionInformation[0]);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (!line.empty()) post(std::move(line));
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

std::wstring environment_value(const wchar_t* name) {
    wchar_t value[MAX_PATH] = L"";
    const DWORD size = GetEnvironmentVariableW(name, value, MAX_PATH);
    return size < MAX_PATH ? value : L"";
}

// The board's own configuration, or an empty text when it has none.
std::string present_configuration(const std::wstring& provider_path) {
    std::wstring path = environment_value(CONFIGURATION_VARIABLE);
    if (path.empty()) path = provider_path.substr(0, provider_path.find_last_of(L"\\/") + 1) + L"softboard.ini";
    const OwnedHandle file = owned_file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.get(), &size)) return "";
    std::string text(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    text.resize(read);
    return text;
}

// Behind everything else, where it outdoes an earlier section of the same name.
std::string log_section(const std::vector<uint32_t>& levels) {
    std::string on;
    std::string off;
    for (const uint32_t level : TRACE_LEVELS) {
        std::string& list = std::find(levels.begin(), levels.end(), level) != levels.end() ? on : off;
        list += (list.empty() ? "" : ",") + std::to_string(level);
    }
    return "\r\n[log]\r\ndebugger = yes\r\non = " + on + "\r\noff = " + off + "\r\n";
}

bool write_file(const std::wstring& path, const std::string& text) {
    const OwnedHandle file = owned_file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::wstring temporary_name() {
    wchar_t folder[MAX_PATH + 1] = L"";
    GetTempPathW(MAX_PATH, folder);
    return std::wstring(folder) + L"faxhost-" + std::to_wstring(GetCurrentProcessId()) + L".ini";
}

}  // namespace

TraceListener::TraceListener(const std::vector<uint32_t>& levels, const std::wstring& provider_path, bool json)
    : previous(environment_value(CONFIGURATION_VARIABLE)) {
    gJson = json;
    const std::wstring path = temporary_name();
    if (write_file(path, present_configuration(provider_path) + log_section(levels))) {
        configuration = path;
        SetEnvironmentVariableW(CONFIGURATION_VARIABLE, path.c_str());
    }
    handler = AddVectoredExceptionHandler(1, on_exception);
}

TraceListener::~TraceListener() {
    RemoveVectoredExceptionHandler(handler);
    if (configuration.empty()) return;
    SetEnvironmentVariableW(CONFIGURATION_VARIABLE, previous.empty() ? nullptr : previous.c_str());
    DeleteFileW(configuration.c_str());
}
