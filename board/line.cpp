// Lines: attaching to channels, what one can ask of a line, alert and reset.
#include <cstdio>

#include "entry.h"
#include "fax_session.h"
#include "switch.h"

namespace softboard {

static DornLine* attach(Board& board, uint32_t number) {
    const Guard guard(board.lock);
    const auto found = board.by_number.find(number);
    if (found == board.by_number.end()) fail(APIERR_BADPARAMETER, "there is no channel " + std::to_string(number));
    Channel& channel = *found->second;
    if (channel.line != nullptr) fail(APIERR_BUSY, "channel " + std::to_string(number) + " is attached already");
    auto line = std::make_shared<Line>();
    line->channel = &channel;
    board.lines[&line->head] = line;
    channel.line = line;
    return &line->head;
}

// Whoever is blocked on the line is woken and finds it gone.
static void detach(LineCall& call) {
    clear_channel(call.board, call.channel);
    call.channel.has_waited = false;
    call.channel.line.reset();
    call.board.lines.erase(&call.line->head);
    call.channel.changed.notify_all();
}

static bool is_readable(const char* path) {
    FILE* const file = fopen(path, "rb");
    if (file == nullptr) return false;
    fclose(file);
    return true;
}

// The empty path stands for the board's own defaults.
static void check_configuration(const char* path) {
    if (path == nullptr) fail(APIERR_BADPARAMETER, "no configuration path");
    if (path[0] != '\0' && !is_readable(path)) {
        fail(APIERR_FILEIO, std::string("the call configuration file ") + path + " cannot be read");
    }
}

// For the functions that only look something up: the line may be unknown, and the answer is then `otherwise`.
template <class Result, class Body>
static Result look_up(const char* function, DornLine* handle, Result otherwise, Body body) noexcept {
    Result result = otherwise;
    run(function, nullptr, [&] {
        const std::shared_ptr<Board> board = current_board();
        if (board == nullptr) fail(APIERR_BADSTATE, "the library is not initialised");
        const Guard guard(board->lock);
        const std::shared_ptr<Line> line = find_line(*board, handle);
        if (line == nullptr) fail(APIERR_BADPARAMETER, "no such line");
        result = body(*line);
    });
    return result;
}

}  // namespace softboard

using namespace softboard;

DornLine* DornLineAttach(DornAttachRecord* record) {
    DornLine* line = nullptr;
    run(__func__, nullptr, [&] {
        const std::shared_ptr<Board> board = current_board();
        if (board == nullptr) fail(APIERR_BADSTATE, "the library is not initialised");
        if (record == nullptr) fail(APIERR_BADPARAMETER, "no record");
        line = attach(*board, record->dwChannel);
    });
    return line;
}

int DornSessionDetach(DornLine* line, DornAttachRecord*) {
    DornLineResultRecord result{};
    return line_call(__func__, line, &result, [](LineCall& call, KXResult&) {
        detach(call);
        return 0;
    });
}

uint32_t DornLineUnitGet(DornLine* line) {
    return look_up(__func__, line, UINT32_MAX, [](const Line& found) { return found.channel->config.unit; });
}

int DornLineCapCheck(DornLine* line, int capability) {
    return look_up(__func__, line, 0,
                   [=](const Line& found) { return has_capability(found.channel->config, capability) ? 1 : 0; });
}

// Never waits: it is called by those who hold what the woken call may be about to take.
int DornLineAlert(DornAlertRecord* record) {
    DornLineResultRecord result{};
    return board_call(__func__, &result, [&](Board& board) {
        const Guard guard(board.lock);
        const auto channel = record == nullptr ? board.by_unit.end() : board.by_unit.find(record->dwUnit);
        if (channel == board.by_unit.end()) fail(APIERR_BADPARAMETER, "no such unit");
        ++channel->second->alerts;
        if (channel->second->session != nullptr) break_session(board, *channel->second, {KX_STATUS_ALERT, 0});
        channel->second->changed.notify_all();
    });
}

int DornLineReset(DornLine* line, DornResetRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        call.guard.unlock();
        check_configuration(record->szConfiguration);
        call.guard.lock();
        clear_channel(call.board, call.channel);
        return 0;
    });
}

uint32_t* DornLineStateAccess(DornLine* line) {
    static uint32_t nowhere;
    return look_up(__func__, line, &nowhere, [](Line& found) { return &found.state_word; });
}

DornIncomingCmdFunc* DornLineIncomingCmdFuncAccess(DornLine* line) {
    static DornIncomingCmdFunc nowhere;
    return look_up(__func__, line, &nowhere, [](Line& found) { return &found.handler; });
}

const uint8_t* DornLineDcsGet(DornLine* line) {
    static constexpr uint8_t none[sizeof Line::dcs] = {};
    return look_up(__func__, line, &none[0], [](const Line& found) { return &found.dcs[0]; });
}

const char* DornErrorMessage(DornLine* line) {
    return look_up(__func__, line, "no such line", [](const Line& found) -> const char* { return found.error; });
}
