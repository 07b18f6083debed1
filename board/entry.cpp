#include "entry.h"

#include <cstdio>

#include "log.h"

namespace softboard {

void note_failure(const char* function, Line* line, const Failure& failure) noexcept try {
    const bool expected = failure.result.status == KX_STATUS_ALERT;
    BOARD_LOG(expected ? LOG_INFO : LOG_WARNING, std::string(function) + ": status " +
                                                     std::to_string(failure.result.status) + ", " +
                                                     std::to_string(failure.result.line_status) + ": " + failure.text);
    static Mutex texts;
    const Guard guard(texts);
    if (line != nullptr) snprintf(line->error, sizeof line->error, "%s", failure.text.c_str());
} catch (const std::exception&) {
    // The result stands without its text.
}

std::shared_ptr<Line> find_line(const Board& board, const DornLine* handle) {
    const auto line = board.lines.find(handle);
    return line == board.lines.end() ? nullptr : line->second;
}

}  // namespace softboard
