// The log that stands behind the QorvLog functions, and the board's own lines in it. Independent of DornInitialize: it
// works from load to unload.
#pragma once

#include <string>

#include "config.h"

namespace softboard {

constexpr int LOG_ERROR = 2;
constexpr int LOG_WARNING = 3;
constexpr int LOG_INFO = 4;

// File, size and level overrides from now on, also for filters that are registered already.
void configure_log(const LogConfig& config);

// Whether a line of the board itself on this level would be written.
bool log_wants(int level);

// A line of the board itself; LOG_INFO lines are off unless the configuration switches them on. Never throws.
void log_line(int level, const char* source_file, unsigned source_line, const std::string& text) noexcept;

// Closes the file; the next line opens it again.
void close_log();

}  // namespace softboard

// The text is made only if it is wanted.
#define BOARD_LOG(level, text) \
    (::softboard::log_wants(level) ? ::softboard::log_line((level), __FILE__, __LINE__, (text)) : void())
