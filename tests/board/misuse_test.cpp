// Wrong use, which never does worse than fail, and the end of the library, which ends everything.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "import_table.h"
#include "pages.h"
#include "support.h"

using softboard::Thread;

// Every function on a line, with a record of its own.
static void call_everything(DornLine* line, uint32_t expected_error) {
    const auto expect = [=](KXResult result) {
        EXPECT_EQ(result.status, uint32_t{KX_STATUS_ERROR});
        EXPECT_EQ(result.line_status, expected_error);
    };
    const DornWaitForCallRecord ring = wait_for_call(line, 1000);
    expect({ring.status, ring.line_status});
    expect(answer(line));
    expect(terminate(line));
    expect(set_up(line, "101"));
    expect(wait_for_complete(line));
    DornCallRecord call{};
    DornCallWaitForRelease(line, &call);
    expect({call.status, call.cause});
    DornProtocolRecord protocol{};
    EXPECT_EQ(DornLineCCProtocolGet(line, &protocol), -1);
    EXPECT_NE(protocol.status, uint32_t{KX_STATUS_OK});
    EXPECT_LT(static_cast<int32_t>(reset(line).line_status), 0);
    EXPECT_LT(detach(line), 0);
    EXPECT_EQ(DornLineCapCheck(line, 14), 0);
    EXPECT_EQ(DornLineUnitGet(line), UINT32_MAX);
    EXPECT_NE(DornErrorMessage(line), nullptr);
    EXPECT_NE(*DornLineStateAccess(line), DORN_LINE_STATE_CONNECTED);
    EXPECT_EQ(*DornLineIncomingCmdFuncAccess(line), nullptr);
    EXPECT_EQ(DornLineDcsGet(line)[2], 0);
    for (const auto function : {DornFaxHeader, DornFaxSetLocalId, DornFaxSetReceiveFmt, DornFaxBeginSendTiff,
                                DornFaxGetRemoteInfo, DornFaxWaitForTraining, DornFaxNextPageTiff, DornFaxSendPageTiff,
                                DornFaxEndOfDocument, DornFaxBeginReceive, DornFaxRcvPageTiff, DornFaxEndReception}) {
        DornFaxRecord fax{};
        EXPECT_LT(function(line, &fax), 0);
        expect({fax.status, fax.line_status});
    }
}

TEST(Misuse, LinesThatAreNoneAreRefused) {
    Board board;
    DornLine fake{};
    call_everything(nullptr, APIERR_BADPARAMETER);
    call_everything(&fake, APIERR_BADPARAMETER);
    DornLine* const line = attach(0);
    detach(line);
    call_everything(line, APIERR_BADPARAMETER);
}

TEST(Misuse, WithoutInitialisationEverythingIsRefused) {
    DornLine fake{};
    call_everything(&fake, APIERR_BADSTATE);
    EXPECT_EQ(attach(0), nullptr);
    EXPECT_EQ(alert_unit(0), -1);
    DornModuleInfoRecord record{};
    record.dwModule = 2;
    EXPECT_EQ(DornModuleInfo(nullptr, &record), -1);
    EXPECT_NE(record.status, uint32_t{KX_STATUS_OK});
    DornShutdown();
}

TEST(Misuse, NullRecordsAreRefused) {
    Board board;
    DornLine* const line = attach(0);
    EXPECT_EQ(DornLineAttach(nullptr), nullptr);
    EXPECT_EQ(DornModuleInfo(nullptr, nullptr), -1);
    EXPECT_EQ(DornLineAlert(nullptr), -1);
    EXPECT_LT(DornLineReset(line, nullptr), 0);
    EXPECT_LT(DornLineWaitForCallISDN(line, nullptr), 0);
    EXPECT_LT(DornLineAnswerISDN(line, nullptr), 0);
    EXPECT_LT(DornCallSetup(line, nullptr), 0);
    EXPECT_LT(DornFaxBeginReceive(line, nullptr), 0);
    EXPECT_EQ(DornTiffOpen(nullptr), nullptr);
    EXPECT_NE(DornTiffClose(nullptr), 0);
    EXPECT_EQ(DornTiffReadIFD(nullptr), 0);
    EXPECT_NE(DornTiffWriteImage(nullptr), 0);
    EXPECT_NE(DornTiffWriteRes(nullptr), 0);
    EXPECT_NE(DornTiffWriteIFD(nullptr), 0);
    DornResetRecord without_path{};
    EXPECT_LT(DornLineReset(line, &without_path), 0);
}

TEST(Misuse, FaxCallsInTheWrongStateAreRefused) {
    Board board;
    DornLine* const idle = attach(2);
    DornFaxRecord record{};
    EXPECT_LT(DornFaxBeginReceive(idle, &record), 0);
    EXPECT_EQ(record.line_status, uint32_t{APIERR_NOTCONNECTED});
    const ConnectedLines lines(0, 1, "101");
    EXPECT_LT(DornFaxSendPageTiff(lines.caller, &record), 0);
    EXPECT_EQ(record.line_status, uint32_t{APIERR_BADSTATE});
    EXPECT_LT(DornFaxBeginSendTiff(lines.caller, &record), 0);
    EXPECT_EQ(record.line_status, uint32_t{APIERR_BADPARAMETER});  // no file
    EXPECT_EQ(DornFaxBeginReceive(lines.called, &record), 0);
    EXPECT_LT(DornFaxBeginReceive(lines.called, &record), 0);
    EXPECT_EQ(record.line_status, uint32_t{APIERR_BADSTATE});
    EXPECT_LT(DornFaxNextPageTiff(lines.called, &record), 0);
    EXPECT_EQ(record.line_status, uint32_t{APIERR_BADSTATE});
}

TEST(Misuse, TiffHandlesThatAreNoneAreRefused) {
    Board board;
    DornTiff fake{};
    EXPECT_EQ(close_tiff(&fake).line_status, uint32_t{APIERR_BADPARAMETER});
    DornTiff* const tiff = open_tiff(board.file("a.tif"), "w+");
    void* const stream = tiff->stream;
    EXPECT_EQ(close_tiff(tiff).status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(close_tiff(tiff).status, uint32_t{KX_STATUS_ERROR});
    EXPECT_EQ(_mdll_fseek(stream, 0, SEEK_SET), -1);
    EXPECT_EQ(_mdll_ftell(nullptr), -1);
    EXPECT_EQ(_mdll_fwrite("x", 1, 1, &fake), 0u);
    EXPECT_EQ(open_tiff(board.file("none.tif"), "r"), nullptr);
    EXPECT_EQ(open_tiff(board.file("none.tif"), "q"), nullptr);
    EXPECT_EQ(open_tiff(board.file("none.tif"), ""), nullptr);
    EXPECT_EQ(open_tiff(board.file("no\\such\\folder.tif"), "w+"), nullptr);
}

TEST(Misuse, AFileThatIsClosedDuringAReceptionFailsTheNextPage) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1), text_page(2)});
    const ConnectedLines lines(0, 1, "101");
    DornTiff* const tiff = open_tiff(board.file("in.tif"), "w+");
    FaxJob sent;
    const Thread sender([&] { sent = send_fax(lines.caller, board.file("out.tif")); });
    DornFaxRecord record{};
    record.hTiff = tiff;
    EXPECT_EQ(DornFaxBeginReceive(lines.called, &record), 0);
    EXPECT_EQ(DornFaxRcvPageTiff(lines.called, &record), 1);
    close_tiff(tiff);
    EXPECT_EQ(DornFaxRcvPageTiff(lines.called, &record), -1);
    EXPECT_EQ(record.line_status, uint32_t{APIERR_BADPARAMETER});
    EXPECT_EQ(DornFaxEndReception(lines.called, &record), 0);
    terminate(lines.called);
}

// ---- the end ------------------------------------------------------------------------------------------------------

TEST(Shutdown, IsCounted) {
    Board board;
    EXPECT_EQ(DornInitialize(), 0);
    DornShutdown();
    EXPECT_NE(attach(0), nullptr);
    board.shut_down();
    EXPECT_EQ(attach(0), nullptr);
}

TEST(Shutdown, EndsTheCallsThatWait) {
    Board board("[board]\nring_interval_ms=3600000\n");
    DornLine* const called = attach(1);
    DornWaitForCallRecord waited{};
    KXResult dialled{};
    softboard::Mutex lock;
    softboard::Condition changed;
    bool rung = false;
    {
        const Thread waiter([&] {
            EXPECT_EQ(wait_for_call(called).line_status, 0u);
            {
                const softboard::Guard guard(lock);
                rung = true;
                changed.notify_all();
            }
            waited = wait_for_call(called);
        });
        const Thread caller([&] {
            DornLine* const line = attach(0);
            set_up(line, "101");
            dialled = wait_for_complete(line);
        });
        {
            softboard::Guard guard(lock);
            while (!rung) changed.wait(guard);
        }
        board.shut_down();
    }
    EXPECT_EQ(waited.status, uint32_t{KX_STATUS_ERROR});
    EXPECT_EQ(dialled.status, uint32_t{KX_STATUS_ERROR});
}

namespace {

// Stops a thread before its third lock: a call on a line looks the board up, then the line, and then does its work.
struct CallOnItsWay {
    const HANDLE stopped = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE released = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> thread{0};
    int locks = 0;
};
CallOnItsWay on_its_way;
decltype(&::TryAcquireSRWLockExclusive) original_try_acquire;

BOOLEAN WINAPI stop_before_third_lock(SRWLOCK* lock) {
    if (GetCurrentThreadId() == on_its_way.thread && ++on_its_way.locks == 3) {
        SetEvent(on_its_way.stopped);
        WaitForSingleObject(on_its_way.released, INFINITE);
    }
    return original_try_acquire(lock);
}

}  // namespace

TEST(Shutdown, ACallThatHasFoundItsLineAndMeetsTheEndIsRefused) {
    Board board;
    DornLine* const line = attach(0);
    harness::Replacements table(GetModuleHandleA("calddlld.dll"));
    ASSERT_TRUE(table.replace("TryAcquireSRWLockExclusive", original_try_acquire, stop_before_third_lock));
    DornFaxRecord record{};
    int returned = 0;
    {
        const Thread calling([&] {
            on_its_way.thread = GetCurrentThreadId();
            returned = DornFaxHeader(line, &record);
        });
        WaitForSingleObject(on_its_way.stopped, INFINITE);
        board.shut_down();
        SetEvent(on_its_way.released);
    }
    EXPECT_EQ(returned, -1);
    EXPECT_EQ(record.status, uint32_t{KX_STATUS_ERROR});
    EXPECT_EQ(record.line_status, uint32_t{APIERR_BADSTATE});
}

TEST(Shutdown, EndsAFaxInProgressAndLeavesNoFiles) {
    Board board;
    write_file(board.file("out.tif"), {halftone_page(2000), halftone_page(2000)});
    const ConnectedLines lines(0, 1, "101");
    FaxJob sent;
    FaxJob received;
    {
        const Thread receiver([&] { received = receive_fax(lines.called, board.file("in.tif")); });
        FaxOptions options;
        options.after_page = [&](uint32_t) { board.shut_down(); };
        sent = send_fax(lines.caller, board.file("out.tif"), options);
    }
    EXPECT_NE(sent.result.status, uint32_t{KX_STATUS_OK});
    EXPECT_NE(received.result.status, uint32_t{KX_STATUS_OK});
    EXPECT_FALSE(has_temporary_files());
}

TEST(Shutdown, AndStartAgainAsOftenAsOneLikes) {
    for (int i = 0; i < 20; ++i) {
        Board board;
        write_file(board.file("out.tif"), {text_page(1, 300)});
        const Transfer result = transfer(ConnectedLines(0, 1, "101"), board.file("out.tif"), board.file("in.tif"));
        expect_good(result.sent, 1);
        expect_good(result.received, 1);
    }
}

// ---- no memory ----------------------------------------------------------------------------------------------------

namespace {

// The first block that a thread of the clock asks for once it has said this in the log is refused.
struct Shortage {
    const char* const said;
    std::atomic<DWORD> thread{0};
    std::atomic<bool> refused{false};
};
Shortage shortage{"channel 1 receives DCS"};
decltype(&::OutputDebugStringA) original_debug_string;
decltype(&::malloc) original_malloc;

void WINAPI begin_shortage(const char* text) {
    if (std::strstr(text, shortage.said) != nullptr) shortage.thread = GetCurrentThreadId();
    original_debug_string(text);
}

void* refuse_once(size_t size) {
    if (shortage.thread == GetCurrentThreadId() && !shortage.refused.exchange(true)) return nullptr;
    return original_malloc(size);
}

}  // namespace

TEST(Shortage, ThatTheClockMeetsEndsTheCallAndNobodyWaitsForIt) {
    Board board("[log]\nfile={folder}\\board.log\non=FILTER_INFO\n");
    write_file(board.file("out.tif"), {text_page(1)});
    const ConnectedLines lines(0, 1, "101");
    harness::Replacements table(GetModuleHandleA("calddlld.dll"));
    ASSERT_TRUE(table.replace("OutputDebugStringA", original_debug_string, begin_shortage));
    ASSERT_TRUE(table.replace("malloc", original_malloc, refuse_once));

    const Transfer result = transfer(lines, board.file("out.tif"), board.file("in.tif"));
    EXPECT_TRUE(shortage.refused);
    for (const FaxJob& job : {result.sent, result.received}) {
        EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ERROR}) << job.failed_call;
        EXPECT_EQ(job.result.line_status, uint32_t{APIERR_MEMORY}) << job.failed_call;
    }
    EXPECT_NE(*DornLineStateAccess(lines.caller), DORN_LINE_STATE_CONNECTED);
    EXPECT_NE(*DornLineStateAccess(lines.called), DORN_LINE_STATE_CONNECTED);
    terminate(lines.caller);
    terminate(lines.called);
    {
        const auto answerer = answering(lines.called);
        EXPECT_EQ(dial(lines.caller, "101"), CONNECTED);
    }
    expect_good(transfer(lines, board.file("out.tif"), board.file("in.tif")).received, 1);
}
