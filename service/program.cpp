// Arguments, output and interruption of a console program.
#include "program.h"

#include <shellapi.h>

#include <atomic>

#include "owned.h"
#include "text.h"

static std::atomic<bool> gInterrupted{false};

std::vector<std::string> program_arguments() {
    int count = 0;
    const OwnedLocal<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::string> result;
    for (int i = 1; i < count; ++i) result.push_back(utf8(arguments.get()[i]));
    return result;
}

std::wstring program_path() {
    std::wstring path(MAX_PATH, L'\0');
    DWORD size = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    while (size == path.size()) {
        path.resize(path.size() * 2);
        size = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    }
    path.resize(size);
    return path;
}

std::wstring program_folder() {
    const std::wstring path = program_path();
    return path.substr(0, path.find_last_of(L"\\/"));
}

static void write_line(DWORD which, std::string_view line) {
    const HANDLE out = GetStdHandle(which);
    std::string text(line);
    text += '\n';
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(out, &mode)) {
        const std::wstring console_text = wide(text);
        WriteConsoleW(out, console_text.data(), static_cast<DWORD>(console_text.size()), &written, nullptr);
    } else {
        WriteFile(out, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    }
}

void print_line(std::string_view line) {
    write_line(STD_OUTPUT_HANDLE, line);
}

void print_error(std::string_view line) {
    write_line(STD_ERROR_HANDLE, line);
}

bool output_has_colours() {
    constexpr DWORD VIRTUAL_TERMINAL_PROCESSING = 0x0004;
    const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) != 0 || !GetConsoleMode(out, &mode)) return false;
    return SetConsoleMode(out, mode | VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

static HANDLE the_stop_event() {
    static const OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    return event.get();
}

static BOOL WINAPI on_console_control(DWORD) {
    gInterrupted = true;
    SetEvent(the_stop_event());
    return TRUE;
}

HANDLE stop_event() {
    static const BOOL installed = SetConsoleCtrlHandler(on_console_control, TRUE);
    static_cast<void>(installed);
    return the_stop_event();
}

bool interrupted() {
    return gInterrupted;
}
