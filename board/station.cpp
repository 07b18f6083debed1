#include "station.h"

#include <cstdio>

#include "failure.h"
#include "fax_session.h"
#include "link.h"
#include "log.h"
#include "page_writer.h"
#include "switch.h"

namespace softboard {

// ---- sessions -----------------------------------------------------------------------------------------------------

// Null when there can be none.
static std::shared_ptr<FaxSession> make_station_session(Board& board, const StationConfig& station, bool calling) try {
    SessionPlan plan;
    plan.calling = calling;
    plan.fax = station.fax;
    plan.local_id = station.ident;
    if (calling) {
        plan.send_path = station.file;
        plan.header = station.header;
    }
    return make_session(board, plan);
} catch (const Failure& failure) {
    BOARD_LOG(LOG_ERROR, "station " + station.section + ": " + failure.text);
    return nullptr;
} catch (const std::bad_alloc&) {
    BOARD_LOG(LOG_ERROR, "station " + station.section + ": out of memory");
    return nullptr;
}

void begin_station(Board& board, const std::shared_ptr<Call>& call, size_t side) {
    const StationConfig* const station = call->sides[side].station;
    if (station == nullptr || station->silent) return;
    const std::shared_ptr<FaxSession> session = make_station_session(board, *station, side == CALLER);
    const Guard guard(board.lock);
    if (call->state != CallState::connected) return;
    call->sides[side].expected = false;
    call->sides[side].session = session;
    wake_link(board, *call);
    if (session == nullptr) hang_up(board, call, side);
}

// ---- received pages -----------------------------------------------------------------------------------------------

static std::string new_file_name(const StationConfig& station) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char stamp[32];
    snprintf(stamp, sizeof stamp, "-%04d%02d%02d-%02d%02d%02d-%03d.tif", now.wYear, now.wMonth, now.wDay, now.wHour,
             now.wMinute, now.wSecond, now.wMilliseconds);
    return station.folder + "\\" + station.section + stamp;
}

void StationFile::store(const ReceivedPage& page) {
    if (station_->folder.empty()) return;
    if (file_ == nullptr) file_ = open_tiff(new_file_name(*station_), "w+");
    if (file_ == nullptr || !write_page(*file_, page, pages_++, nullptr, 0)) {
        BOARD_LOG(LOG_ERROR, "station " + station_->section + " cannot store a page in " + station_->folder);
    }
}

void StationFile::store_pages(Board& board, FaxSession& session) {
    if (station_ == nullptr) return;
    std::deque<ReceivedPage> pages;
    {
        const Guard guard(board.lock);
        pages.swap(session.received);
    }
    for (const ReceivedPage& page : pages) store(page);
}

// ---- calling ------------------------------------------------------------------------------------------------------

// Waits until somebody waits for calls on the line that the station calls, and then as long as the station is told to.
static void wait_to_call(Board& board, const StationConfig& station, Guard& guard) {
    const auto called = board.by_phone.find(station.calls);
    if (called == board.by_phone.end()) return;
    Channel& channel = *called->second;
    while (!channel.has_waited && !board.closing) channel.changed.wait(guard);
    const Clock::time_point due = Clock::now() + Milliseconds(station.after_ms);
    while (Clock::now() < due && !board.closing) channel.changed.wait_until(guard, due);
}

static void call_once(Board& board, const StationConfig& station, Guard& guard) {
    Dialling dialling;
    dialling.caller.station = &station;
    dialling.digits = station.calls;
    dialling.calling_number = station.number;
    dialling.calling_name = station.name;
    dialling.information = station.information;
    std::shared_ptr<Call> call;
    const DialResult result = dial(board, dialling, call);
    if (result != DialResult::ringing && result != DialResult::connected) {
        BOARD_LOG(LOG_WARNING, "station " + station.section + " does not get through to " + station.calls);
        return;
    }
    const Clock::time_point patience = Clock::now() + Milliseconds(board.config.no_answer_ms);
    while (call->state == CallState::ringing && Clock::now() < patience) call->changed.wait_until(guard, patience);
    if (call->state == CallState::ringing) hang_up(board, call, CALLER);
    if (call->state == CallState::connected) {
        guard.unlock();
        begin_station(board, call, CALLER);
        guard.lock();
    }
    while (call->state != CallState::ended) call->changed.wait(guard);
}

static void place_calls(Board& board, const StationConfig& station) {
    Guard guard(board.lock);
    for (uint32_t i = 0; i < station.times && !board.closing; ++i) {
        wait_to_call(board, station, guard);
        if (!board.closing) call_once(board, station, guard);
    }
}

void start_calling_stations(Board& board) {
    for (const StationConfig& station : board.config.stations) {
        if (!station.calls.empty()) start_thread(board, [&board, &station] { place_calls(board, station); });
    }
}

}  // namespace softboard
