// How the board shares the processors among its calls.
#include <windows.h>
// tlhelp32.h wants windows.h first.
#include <tlhelp32.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>
#include <list>

#include "import_table.h"
#include "pages.h"
#include "support.h"

namespace {

// So many calls, on a board_of them.
std::vector<ConnectedLines> connected_lines(uint32_t count) {
    std::vector<ConnectedLines> calls;
    for (uint32_t i = 0; i < count; ++i) calls.push_back({2 * i, 2 * i + 1, std::to_string(100 + 2 * i + 1).c_str()});
    return calls;
}

// So many calls, each with a session at both ends that hears the other one; nobody waits for them.
class Calls {
  public:
    explicit Calls(uint32_t count) : calls_(connected_lines(count)) {
        for (const ConnectedLines& call : calls_) {
            DornFaxRecord record{};
            EXPECT_EQ(DornFaxBeginReceive(call.called, &record), 0);
            EXPECT_EQ(DornFaxBeginReceive(call.caller, &record), 0);
        }
    }

  private:
    const std::vector<ConnectedLines> calls_;
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

const std::string MISSED = " ticks of 20 ms missed so far: the processor does not keep up with the calls";

// The number in the log's last line about missed ticks.
uint64_t missed_ticks(const Board& board) {
    const std::string log = read_text(board.file("board.log"));
    const size_t end = log.rfind(MISSED);
    if (end == std::string::npos) return 0;
    size_t begin = end;
    while (begin > 0 && isdigit(static_cast<unsigned char>(log[begin - 1])) != 0) --begin;
    return std::stoull(log.substr(begin, end - begin));
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
    while (missed_ticks(board) == 0) SwitchToThread();
}

// ---- between two documents ----------------------------------------------------------------------------------------

TEST(SharedClock, ACallMissesNoTicksBetweenOneDocumentAndTheNext) {
    Board board("[board]\npace=50\n");
    write_file(board.file("out.tif"), {text_page(1)});
    const ConnectedLines lines(0, 1, "101");
    BoardTime time;

    expect_good(transfer(lines, board.file("out.tif"), board.file("in.tif")).sent, 1);
    while (has_temporary_files()) SwitchToThread();  // until the call carries neither end's session any more
    time.put_forward(3600);
    expect_good(transfer(lines, board.file("out.tif"), board.file("in.tif")).sent, 1);
    board.shut_down();
    EXPECT_LT(missed_ticks(board), 1800u * 50);
}

// ---- documents ----------------------------------------------------------------------------------------------------

namespace {

constexpr DWORD PART_OF_A_PAGE = 1000;  // bytes; what else is read of a document is less
std::atomic<unsigned> reading{0};
std::atomic<unsigned> most_reading{0};
decltype(&::ReadFile) original_read;

BOOL WINAPI count_page_reads(HANDLE file, void* data, DWORD bytes, DWORD* done, OVERLAPPED* overlapped) {
    if (bytes < PART_OF_A_PAGE) return original_read(file, data, bytes, done, overlapped);
    const unsigned now = ++reading;
    for (unsigned most = most_reading; most < now && !most_reading.compare_exchange_weak(most, now);) {
    }
    Sleep(5);  // long enough for others to come, if they may
    const BOOL read = original_read(file, data, bytes, done, overlapped);
    --reading;
    return read;
}

}  // namespace

TEST(SharedClock, DocumentsThatBeginTogetherAreReadOnHalfOfTheProcessors) {
    const unsigned processors = softboard::processor_count();
    const uint32_t count = 2 * processors + 2;
    const Board board(board_of(count, "realtime"));
    write_file(board.file("out.tif"), {halftone_page(300)});
    const std::vector<ConnectedLines> calls = connected_lines(count);
    harness::Replacements table(GetModuleHandleA("calddlld.dll"));
    ASSERT_TRUE(table.replace("ReadFile", original_read, count_page_reads));
    {
        std::list<softboard::Thread> threads;
        for (const ConnectedLines& call : calls) {
            threads.emplace_back([&] {
                DornFaxRecord record{};
                record.hTiff = open_tiff(board.file("out.tif"), "r");
                EXPECT_EQ(DornFaxBeginSendTiff(call.caller, &record), 0);
            });
        }
    }
    EXPECT_GT(most_reading, 0u);
    EXPECT_LE(most_reading, std::max(1u, processors / 2));
}

// ---- a clock that has no processor for a while ----------------------------------------------------------------------

namespace {

// Stops the clock's thread that says in the log that a session is through: as soon as it has let go of the lock under
// which it has woken whoever waits for that.
struct ThreadThatIsThrough {
    const char* const session;
    const HANDLE stopped = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE released = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> id{0};
    bool has_woken = false;
};
ThreadThatIsThrough through{"channel 0 is through"};
decltype(&::OutputDebugStringA) original_debug_string;
decltype(&::WakeAllConditionVariable) original_wake_all;
decltype(&::ReleaseSRWLockExclusive) original_release;

void WINAPI watch_debug_string(const char* text) {
    if (std::strstr(text, through.session) != nullptr && through.id == 0) through.id = GetCurrentThreadId();
    original_debug_string(text);
}

void WINAPI watch_wake_all(CONDITION_VARIABLE* condition) {
    if (GetCurrentThreadId() == through.id) through.has_woken = true;
    original_wake_all(condition);
}

void WINAPI stop_after_release(SRWLOCK* lock) {
    original_release(lock);
    if (GetCurrentThreadId() != through.id || !through.has_woken) return;
    SetEvent(through.stopped);
    WaitForSingleObject(through.released, INFINITE);
}

}  // namespace

TEST(SharedClock, FastTimeStandsStillForTheNextDocumentThoughTheEndOfTheOneBeforeIsStillBeingCarried) {
    Board board("[log]\nfile={folder}\\board.log\non=FILTER_INFO\n");
    write_file(board.file("out.tif"), {text_page(1)});
    const ConnectedLines lines(0, 1, "101");
    harness::Replacements table(GetModuleHandleA("calddlld.dll"));
    ASSERT_TRUE(table.replace("OutputDebugStringA", original_debug_string, watch_debug_string));
    ASSERT_TRUE(table.replace("WakeAllConditionVariable", original_wake_all, watch_wake_all));
    ASSERT_TRUE(table.replace("ReleaseSRWLockExclusive", original_release, stop_after_release));

    expect_good(transfer(lines, board.file("out.tif"), board.file("in.tif")).sent, 1);
    WaitForSingleObject(through.stopped, INFINITE);
    DornFaxRecord receiving{};
    EXPECT_EQ(DornFaxBeginReceive(lines.called, &receiving), 0);
    int trained = -1;
    {
        const softboard::Thread receiver([&] {
            trained = DornFaxWaitForTraining(lines.called, &receiving);
            DornFaxRcvPageTiff(lines.called, &receiving);
        });
        SetEvent(through.released);
        Sleep(300);  // more than the receiver's timers need to run out when nothing stops them
        DornFaxRecord sending{};
        sending.hTiff = open_tiff(board.file("out.tif"), "r");
        EXPECT_EQ(DornFaxBeginSendTiff(lines.caller, &sending), 0);
        EXPECT_EQ(DornFaxWaitForTraining(lines.caller, &sending), 0);
        terminate(lines.caller);
    }
    EXPECT_EQ(trained, 0);
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
