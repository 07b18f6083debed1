// What the console programs of this house share: arguments and output in UTF-8, and a stop event for Ctrl-C.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

// The arguments behind the program's name.
std::vector<std::string> program_arguments();

// The full path of the running program, and the folder it lies in (without a backslash at the end).
std::wstring program_path();
std::wstring program_folder();

// The mutex of a running telephony host, which has the provider and with it the boards' channels.
constexpr wchar_t TELEPHONY_HOST_MUTEX[] = L"Global\\HalvorsundTelephonyHost";

// Writes one line, newline added, in one piece: UTF-8 to files and pipes, UTF-16 to a console. May block.
void print_line(std::string_view line);
void print_error(std::string_view line);

// True when standard output is a console that understands colours (ANSI escape sequences) and nobody has asked for none
// by the environment variable NO_COLOR.
bool output_has_colours();

// A manual-reset event that Ctrl-C, Ctrl-Break and the closing of the console set. The first call installs the handler;
// later interrupts change nothing, so that an orderly end is not cut short.
HANDLE stop_event();

// True once one of them has come.
bool interrupted();
