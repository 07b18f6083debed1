// How many lines with faxes the software board carries in real time before a call misses a tick of its clock. The board
// alone, because a fax call that waits for a page costs nothing meanwhile.
#include <calddlld.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "bench_folder.h"
#include "board_log.h"
#include "fax_file.h"
#include "own_process.h"
#include "provider_under_test.h"
#include "results.h"
#include "text.h"

namespace {

constexpr unsigned MOST_CALLS = 2024;
constexpr unsigned FIRST_CALLS = 128;
constexpr unsigned CLOSE_ENOUGH = 32;  // calls
constexpr DWORD WATCHED = 10000;       // milliseconds after the last fax has begun
constexpr unsigned FIRST_NUMBER = 10000;

struct BoardFunction {
    HMODULE module;
    const char* name;
    template <class Function>
    operator Function*() const {
        return find_function<Function*>(module, name);
    }
};

struct SoftwareBoard {
    const HMODULE module = load_board(L"..\\..\\bin");
    decltype(&::DornInitialize) DornInitialize = BoardFunction{module, "DornInitialize"};
    decltype(&::DornShutdown) DornShutdown = BoardFunction{module, "DornShutdown"};
    decltype(&::DornLineAttach) DornLineAttach = BoardFunction{module, "DornLineAttach"};
    decltype(&::DornCallSetup) DornCallSetup = BoardFunction{module, "DornCallSetup"};
    decltype(&::DornCallWaitForComplete) DornCallWaitForComplete = BoardFunction{module, "DornCallWaitForComplete"};
    decltype(&::DornLineWaitForCallISDN) DornLineWaitForCallISDN = BoardFunction{module, "DornLineWaitForCallISDN"};
    decltype(&::DornLineAnswerISDN) DornLineAnswerISDN = BoardFunction{module, "DornLineAnswerISDN"};
    decltype(&::DornTiffOpen) DornTiffOpen = BoardFunction{module, "DornTiffOpen"};
    decltype(&::DornTiffClose) DornTiffClose = BoardFunction{module, "DornTiffClose"};
    decltype(&::DornFaxBeginSendTiff) DornFaxBeginSendTiff = BoardFunction{module, "DornFaxBeginSendTiff"};
    decltype(&::DornFaxBeginReceive) DornFaxBeginReceive = BoardFunction{module, "DornFaxBeginReceive"};
};

void must(int result, const char* what) {
    if (result < 0) give_up(std::string(what) + " has failed");
}

DornLine* attach(const SoftwareBoard& board, unsigned channel) {
    DornAttachRecord record{};
    record.dwChannel = channel;
    return board.DornLineAttach(&record);
}

void answer(const SoftwareBoard& board, DornLine* line) {
    DornWaitForCallRecord ring{};
    must(board.DornLineWaitForCallISDN(line, &ring), "waiting for a call");
    DornLineResultRecord answered{};
    must(board.DornLineAnswerISDN(line, &answered), "answering");
}

void dial(const SoftwareBoard& board, DornLine* line, unsigned number) {
    const std::string digits = std::to_string(number);
    DornCallRecord call{};
    call.dwKind = 4;
    call.szDialString = digits.c_str();
    must(board.DornCallSetup(line, &call), "setting a call up");
    must(board.DornCallWaitForComplete(line, &call), "calling");
}

// A call from one channel to the next, and a fax begun at both its ends. Nobody waits for the fax's pages.
void begin_fax(const SoftwareBoard& board, unsigned channel, DornTiff* file) {
    DornLine* const sending = attach(board, channel);
    DornLine* const receiving = attach(board, channel + 1);
    {
        const OwnedThread answering = thread_start([&] { answer(board, receiving); });
        dial(board, sending, FIRST_NUMBER + channel + 1);
    }
    DornFaxRecord fax{};
    must(board.DornFaxBeginReceive(receiving, &fax), "beginning to receive");
    fax.hTiff = file;
    must(board.DornFaxBeginSendTiff(sending, &fax), "beginning to send");
}

void write_configuration(const BenchFolder& folder, unsigned calls) {
    std::ofstream(folder.file("softboard.ini"))
        << "[board]\npace=realtime\n[module.2]\nchannels=" << 2 * calls << "\nfirst_number=" << FIRST_NUMBER
        << "\n[log]\nfile=" << folder.file("board.log") << "\ndebugger=no\n";
    SetEnvironmentVariableA("QORV_SOFTBOARD", folder.file("softboard.ini").c_str());
}

bool misses_none(const SoftwareBoard& board, unsigned calls, const std::string& path) {
    const BenchFolder folder;
    write_configuration(folder, calls);
    must(board.DornInitialize(), "starting the board");
    DornTiffRecord file{};
    file.szPath = path.c_str();
    file.szMode = "r";
    file.hTiff = board.DornTiffOpen(&file);
    if (!file.hTiff) give_up(path + " cannot be opened");
    for (unsigned i = 0; i < calls; ++i) begin_fax(board, 2 * i, file.hTiff);
    Sleep(WATCHED);
    board.DornTiffClose(&file);
    board.DornShutdown();
    const uint64_t missed = missed_ticks(folder.file("board.log"));
    std::printf("%u calls: %llu ticks missed\n", calls, static_cast<unsigned long long>(missed));
    return missed == 0;
}

// The machine may have been busy with something else.
bool carries(const SoftwareBoard& board, unsigned calls, const std::string& path) {
    for (int tries = 0; tries < 2; ++tries) {
        if (misses_none(board, calls, path)) return true;
    }
    return false;
}

unsigned most_calls(const SoftwareBoard& board, const std::string& path) {
    unsigned good = 0;
    unsigned bad = FIRST_CALLS;
    while (bad <= MOST_CALLS && carries(board, bad, path)) {
        good = bad;
        if (bad == MOST_CALLS) return good;
        bad = std::min(2 * bad, MOST_CALLS);
    }
    while (bad - good > CLOSE_ENOUGH) {
        const unsigned middle = (good + bad) / 2;
        (carries(board, middle, path) ? good : bad) = middle;
    }
    return good;
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "capacity");
    const std::string file = full_path(arguments.take("--file"));
    const SoftwareBoard board;
    results.add({"lines with a fax at once, no tick of 20 ms missed", "", 2.0 * most_calls(board, file)});
    return 0;
}
