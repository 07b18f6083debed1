// Start and stop of the library, its modules, and its version variables.
#include "board.h"
#include "entry.h"
#include "log.h"
#include "station.h"
#include "switch.h"
#include "tiff_library.h"

namespace softboard {

static Mutex library_lock;
static unsigned initialisations = 0;

// Allocated once and kept: a process may end without DornShutdown, its threads stopped anywhere.
static std::shared_ptr<Board>& the_board() {
    static auto* const board = new std::shared_ptr<Board>;
    return *board;
}

std::shared_ptr<Board> current_board() {
    const Guard guard(library_lock);
    return the_board();
}

Board::Board(BoardConfig configuration) : config(std::move(configuration)) {
    for (const ChannelConfig& channel_config : config.channels) {
        channels.push_back(std::make_unique<Channel>());
        Channel* const channel = channels.back().get();
        channel->config = channel_config;
        by_number[channel_config.number] = channel;
        by_unit[channel_config.unit] = channel;
        if (!channel_config.phone.empty()) by_phone[channel_config.phone] = channel;
    }
}

void start_thread(Board& board, std::function<void()> body) {
    board.threads.remove_if([](const Thread& thread) { return thread.ended(); });
    board.threads.emplace_back([body = std::move(body)] {
        try {
            body();
        } catch (const Failure& failure) {
            BOARD_LOG(LOG_ERROR, "a thread of the board has ended: " + failure.text);
        } catch (const std::exception& exception) {
            BOARD_LOG(LOG_ERROR, std::string("a thread of the board has ended: ") + exception.what());
        }
    });
}

static std::shared_ptr<Board> open_board() {
    const std::string path = config_path();
    Mistakes mistakes;
    auto board = std::make_shared<Board>(read_config(path, mistakes));
    configure_log(board->config.log);
    for (const Mistake& mistake : mistakes) {
        const std::string where = mistake.line == 0 ? path : path + "(" + std::to_string(mistake.line) + ")";
        BOARD_LOG(LOG_ERROR, where + ": " + mistake.text);
    }
    quieten_tiff_library();
    const Guard guard(board->lock);
    start_calling_stations(*board);
    return board;
}

// Every call ends, whoever waits is woken and turned away, and every thread of the board is through afterwards.
static void close_board(Board& board) {
    std::list<Thread> stations;
    std::list<Thread> clock;
    {
        const Guard guard(board.lock);
        board.closing = true;
        for (const auto& channel : board.channels) clear_channel(board, *channel);
        while (!board.calls.empty()) hang_up(board, *board.calls.begin(), CALLER);
        board.lines.clear();
        stations.swap(board.threads);
        clock = board.clock.end();
    }
    stations.clear();
    clock.clear();
    board.report_threads.end();
    const std::string late = board.missed_ticks.news(Clock::now(), true);
    if (!late.empty()) BOARD_LOG(LOG_WARNING, late);
    close_log();
}

}  // namespace softboard

// ---- the library's functions --------------------------------------------------------------------------------------

using namespace softboard;

uint32_t _dorn_api_ver_compiled = 0;
uint32_t _dorn_api_ver_bld_comp = 0;
uint32_t _dorn_api_ver_auto_comp = 0;
uint32_t _dorn_pkt_version_exp = 0;

int DornInitialize() try {
    const Guard guard(library_lock);
    if (initialisations == 0) {
        the_board() = open_board();
        _dorn_pkt_version_exp = the_board()->config.pkt_version_exp;
    }
    ++initialisations;
    return 0;
} catch (const std::exception&) {
    return -1;
}

void DornShutdown() {
    std::shared_ptr<Board> board;
    {
        const Guard guard(library_lock);
        if (initialisations == 0 || --initialisations != 0) return;
        board.swap(the_board());
    }
    close_board(*board);
}

int DornModuleInfo(void*, DornModuleInfoRecord* record) {
    return board_call(__func__, record, [&](Board& board) {
        // The record of a module that is not there is good, with presence words of 0.
        for (uint32_t& presence : record->dwPresence) presence = 0;
        for (const ModuleConfig& module : board.config.modules) {
            if (module.number != record->dwModule) continue;
            for (uint32_t& presence : record->dwPresence) presence = 1;
            record->dwFirstChannel = module.first_channel;
            record->dwChannelCount = module.channel_count;
        }
    });
}
