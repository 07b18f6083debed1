// What the exported functions have in common: the board and the line that they are about, and what becomes of a
// Failure.
#pragma once

#include <calddlld.h>

#include <memory>

#include "board.h"
#include "failure.h"

namespace softboard {

// Where each record keeps its result.
inline void set_result(DornModuleInfoRecord& record, KXResult result) {
    record.status = result.status;
}
inline void set_result(DornResetRecord& record, KXResult result) {
    record.status = result.status;
}
inline void set_result(DornProtocolRecord& record, KXResult result) {
    record.status = result.status;
}
inline void set_result(DornWaitForCallRecord& record, KXResult result) {
    record.status = result.status;
    record.line_status = result.line_status;
}
inline void set_result(DornLineResultRecord& record, KXResult result) {
    record.status = result.status;
    record.sub_status = result.line_status;
}
inline void set_result(DornCallRecord& record, KXResult result) {
    record.status = result.status;
    record.cause = result.line_status;
}
inline void set_result(DornFaxRecord& record, KXResult result) {
    record.status = result.status;
    record.line_status = result.line_status;
}
inline void set_result(DornTiffRecord& record, KXResult result) {
    record.status = result.status;
    record.line_status = result.line_status;
}

// Keeps the failure's text for DornErrorMessage and logs it. The line may be null.
void note_failure(const char* function, Line* line, const Failure& failure) noexcept;

// The line behind a handle, null when there is none (any more). The lock is held.
std::shared_ptr<Line> find_line(const Board& board, const DornLine* handle);

// Runs the body and gives its failure; KX_STATUS_OK when it has none.
template <class Body>
KXResult run(const char* function, Line* line, Body body) noexcept {
    Failure failure{{KX_STATUS_OK, 0}, {}};
    try {
        body();
        return failure.result;
    } catch (Failure& thrown) {
        failure = std::move(thrown);
    } catch (const std::bad_alloc&) {
        failure.result = {KX_STATUS_ERROR, APIERR_MEMORY};
    } catch (const std::exception&) {
        failure.result = {KX_STATUS_ERROR, APIERR_UNCLASSIFIED};
    }
    note_failure(function, line, failure);
    return failure.result;
}

// An exported function on the board as a whole. Its record is judged by the status; the result is 0 or -1.
template <class Record, class Body>
int board_call(const char* function, Record* record, Body body) noexcept {
    if (record == nullptr) return -1;
    const std::shared_ptr<Board> board = current_board();
    const KXResult result = run(function, nullptr, [&] {
        if (board == nullptr) fail(APIERR_BADSTATE, "the library is not initialised");
        body(*board);
    });
    set_result(*record, result);
    return result.status == KX_STATUS_OK ? 0 : -1;
}

// An exported function on a line, with the board's lock held by `guard`.
struct LineCall {
    Board& board;
    std::shared_ptr<Line> line;
    Channel& channel;
    Guard& guard;
};

// Runs the body, whose result is the function's and whose `result` argument, 0/0 to begin with, goes into the record.
// A failure gives -1.
template <class Record, class Body>
int line_call(const char* function, DornLine* handle, Record* record, Body body) noexcept {
    if (record == nullptr) return -1;
    const std::shared_ptr<Board> board = current_board();
    std::shared_ptr<Line> line;
    int returned = -1;
    KXResult good{KX_STATUS_OK, 0};
    if (board != nullptr) {
        const Guard guard(board->lock);
        line = find_line(*board, handle);
    }
    KXResult result = run(function, line.get(), [&] {
        if (board == nullptr) fail(APIERR_BADSTATE, "the library is not initialised");
        if (line == nullptr) fail(APIERR_BADPARAMETER, "no such line");
        Guard guard(board->lock);
        if (board->closing) fail(APIERR_BADSTATE, "the library has been shut down");
        LineCall call{*board, line, *line->channel, guard};
        returned = body(call, good);
    });
    if (result.status == KX_STATUS_OK) {
        result = good;
    } else {
        returned = -1;
    }
    set_result(*record, result);
    return returned;
}

}  // namespace softboard
