// How the board shares the processors among its calls.
#include <windows.h>
// tlhelp32.h wants windows.h first.
#include <tlhelp32.h>

#include <algorithm>
#include <cstdio>

#include "pages.h"
#include "support.h"

namespace {

// So many calls, each with a session at both ends that hears the other one; nobody waits for them.
class Calls {
  public:
    explicit Calls(uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            calls_.push_back({2 * i, 2 * i + 1, std::to_string(100 + 2 * i + 1).c_str()});
        }
        for (const ConnectedLines& call : calls_) {
            DornFaxRecord record{};
            EXPECT_EQ(DornFaxBeginReceive(call.called, &record), 0);
            EXPECT_EQ(DornFaxBeginReceive(call.caller, &record), 0);
        }
    }

  private:
    std::vector<ConnectedLines> calls_;
};

std::string board_of(uint32_t calls, const std::string& pace) {
    return "[board]\npace=" + pace + "\n[module.2]\nchannels=" + std::to_string(2 * calls) + "\n";
}

size_t threads_of_process() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    size_t count = 0;
    for (BOOL more = Thread32First(snapshot, &thread); more; more = Thread32Next(snapshot, &thread)) {
        if (thread.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    CloseHandle(snapshot);
    return count;
}

bool log_says(const Board& board, const std::string& text) {
    std::string log;
    FILE* const file = fopen(board.file("board.log").c_str(), "rb");
    if (file == nullptr) return false;
    for (int c; (c = fgetc(file)) != EOF;) log += static_cast<char>(c);
    fclose(file);
    return log.find(text) != std::string::npos;
}

}  // namespace

TEST(SharedClock, SessionsHaveNoThreadsOfTheirOwn) {
    const Board board(board_of(40, "realtime"));
    const size_t before = threads_of_process();
    const Calls calls(40);
    EXPECT_LE(threads_of_process(), before + softboard::processor_count() + 1);
}

TEST(SharedClock, TicksThatTheProcessorsAreTooSlowForAreToldInTheLog) {
    const uint32_t calls_at_once = std::min(128 * softboard::processor_count(), 2000u);
    const Board board(board_of(calls_at_once, "100"));
    const Calls calls(calls_at_once);
    while (!log_says(board, " ticks of 20 ms missed so far: the processor does not keep up with the calls")) {
        SwitchToThread();
    }
}

// ---- report handlers that hang ------------------------------------------------------------------------------------

namespace {

struct HangingHandlers {
    const HANDLE released = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE hangs = CreateSemaphoreA(nullptr, 0, 1000, nullptr);
};
HangingHandlers hanging;

void hang(DornLine*, DornReport*, uint32_t) {
    ReleaseSemaphore(hanging.hangs, 1, nullptr);
    WaitForSingleObject(hanging.released, INFINITE);
}

uint32_t seen = 0;

void count_report(DornLine*, DornReport*, uint32_t) {
    ++seen;
}

}  // namespace

TEST(SharedClock, HandlersThatHangStopNoOtherSessionsReports) {
    constexpr uint32_t hung = 2;
    Board board(board_of(hung + 1, "100"));
    write_file(board.file("out.tif"), {text_page(1)});
    for (uint32_t i = 0; i < hung; ++i) {
        const ConnectedLines lines(2 * i, 2 * i + 1, std::to_string(100 + 2 * i + 1).c_str());
        *DornLineIncomingCmdFuncAccess(lines.called) = hang;
        DornFaxRecord record{};
        EXPECT_EQ(DornFaxBeginReceive(lines.called, &record), 0);
    }
    const ConnectedLines lines(2 * hung, 2 * hung + 1, std::to_string(100 + 2 * hung + 1).c_str());
    *DornLineIncomingCmdFuncAccess(lines.caller) = count_report;
    WaitForSingleObject(hanging.hangs, INFINITE);

    const Transfer result = transfer(lines, board.file("out.tif"), board.file("in.tif"));
    expect_good(result.sent, 1);
    expect_good(result.received, 1);
    EXPECT_GT(seen, 0u);
    SetEvent(hanging.released);
}
