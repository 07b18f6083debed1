// What a transmission and a reception have in common: the board's option and report handler, the hold on the call, the
// argument block, the file.
#include <algorithm>
#include <atomic>

#include "fax_fixture.h"

using namespace harness;

namespace {

std::atomic<int> blocks_freed;

HGLOBAL WINAPI count_and_free(HGLOBAL block) {
    ++blocks_freed;
    note("the argument block is freed");
    return GlobalFree(block);
}

class FaxSession : public OutgoingFaxFixture, public testing::WithParamInterface<Command> {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }

    void run_job(const FaxTexts& texts = {}) {
        EXPECT_EQ(command(CommandBlock::fax(GetParam(), texts)), 0u);
        fax_thread_ends();
    }

    // The driver's call that begins the session, and the one that ends it.
    static auto& beginning() {
        return GetParam() == FAXSEND ? driver.on.DornFaxBeginSendTiff : driver.on.DornFaxBeginReceive;
    }
    static auto& end() {
        return GetParam() == FAXSEND ? driver.on.DornFaxEndOfDocument : driver.on.DornFaxEndReception;
    }
    // ... and the one that takes the length of a page.
    static auto& page() { return GetParam() == FAXSEND ? driver.on.DornFaxSendPageTiff : driver.on.DornFaxRcvPageTiff; }

    LONG drop() { return tsp.TSPI_lineDrop(next_request(), call(0), nullptr, 0); }
};

INSTANTIATE_TEST_SUITE_P(OfEitherKind, FaxSession, testing::Values(FAXSEND, FAXRECEIVE), [](const auto& job) {
    return std::string(job.param == FAXSEND ? "Transmission" : "Reception");
});

}  // namespace

TEST_P(FaxSession, SetsTheOptionOfABoardWithoutTheFaxCapability) {
    DornLine* board_line = driver.line_of(4);
    board_line->bOptions = 0x42;
    driver.channel(4).capabilities.erase(20);
    uint8_t at_the_beginning = 0;
    before(beginning(), [&] { at_the_beginning = value_at<uint8_t>(&board_line->bOptions, 0); });
    run_job();
    EXPECT_EQ(at_the_beginning, 0x52);
}

TEST_P(FaxSession, LeavesTheOptionOfABoardWithTheFaxCapability) {
    driver.line_of(4)->bOptions = 0x42;
    run_job();
    EXPECT_EQ(driver.line_of(4)->bOptions, 0x42);
}

TEST_P(FaxSession, SetsAnEmptyLocalIdToo) {
    run_job({"", "", 0});
    EXPECT_TRUE(holds(driver_calls(), "DornFaxSetLocalId(CHAN4, \"\")"));
}

TEST_P(FaxSession, GivesTheLocalIdByItsOffset) {
    driver.on.DornFaxSetLocalId = [](DornLine*, DornFaxRecord* record) {
        EXPECT_STREQ(value_at<const char*>(reinterpret_cast<const uint8_t*>(record), 24), "+1 555 0100");
        return 0;
    };
    run_job();
    EXPECT_EQ(records_of("DornFaxSetLocalId").at(0).size(), 801u);
}

TEST_P(FaxSession, TakesBoardReportsFromItsFirstStepUntilItIsDone) {
    Channel& board = driver.channel(4);
    auto note_handler = [&board](const std::string& where) { note(where + (board.handler ? ": reports" : ": none")); };
    before(driver.on.DornLineCapCheck, [&] { note_handler("capability"); });
    before(driver.on.DornFaxSetLocalId, [&] { note_handler("local id"); });
    before(end(), [&] { note_handler("end"); });
    tapi.on_event = [&](const LineEvent&) { note_handler("event"); };
    run_job();
    const Lines notes = lines(all_of(NOTE));
    EXPECT_EQ(std::count(notes.begin(), notes.end(), "capability: reports"), 1);
    EXPECT_EQ(std::count(notes.begin(), notes.end(), "local id: reports"), 1);
    EXPECT_TRUE(reads_in_order(
        all_of(NOTE), {"event: reports", "end: reports", "event: none", "event: none", "event: none", "event: none"}));
    EXPECT_EQ(notes.size(), 8u);
    EXPECT_EQ(board.handler, nullptr);
}

TEST_P(FaxSession, CallsTheDriverWithoutTheLineLock) {
    auto& on = driver.on;
    for (auto* step :
         {&on.DornFaxHeader, &on.DornFaxSetReceiveFmt, &on.DornFaxSetLocalId, &on.DornFaxBeginSendTiff,
          &on.DornFaxBeginReceive, &on.DornFaxGetRemoteInfo, &on.DornFaxWaitForTraining, &on.DornFaxNextPageTiff,
          &on.DornFaxSendPageTiff, &on.DornFaxRcvPageTiff, &on.DornFaxEndOfDocument, &on.DornFaxEndReception})
        before(*step, [this] { note_lock("called"); });
    run_job({"HEADER", "ID", 1});
    EXPECT_TRUE(holds_no(all_of(NOTE), "called under the lock"));
    EXPECT_EQ(count(all_of(NOTE), "called without the lock"), count(driver_calls(), "DornFax<*>"));
}

TEST_P(FaxSession, OwnsTheCallUntilItsVeryEnd) {
    tapi.on_event = [&](const LineEvent& event) {
        if (event.message != LINE_CALLSTATE) {
            EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
        }
    };
    run_job();
    tapi.on_event = nullptr;
    EXPECT_GT(drop(), 0);
}

TEST_P(FaxSession, OwnsTheCallUntilItHasTheLineLock) {
    Gate last_event;
    last_event.close();
    tapi.on_event = [&](const LineEvent& event) {
        if (event.message == LINE_ADDRESSSTATE) last_event.pass();
    };
    EXPECT_EQ(command(CommandBlock::fax(GetParam(), {})), 0u);
    EXPECT_TRUE(last_event.holds_somebody());
    ASSERT_EQ(WaitForSingleObject(line_mutex(), 0), WAIT_OBJECT_0);
    new_chapter();
    last_event.open();
    EXPECT_TRUE(comes("WaitForSingleObject(MUTEX1, INFINITE)"));
    // This thread has the lock and would see the call given up.
    EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
    ReleaseMutex(line_mutex());
    fax_thread_ends();
    EXPECT_GT(drop(), 0);
}

TEST_P(FaxSession, ServesTheFaxServiceDuringAPageAndEndsWithTheAlertOfAnAbort) {
    page() = [](DornLine* board_line, DornFaxRecord* record) {
        if (driver.block(board_line)) put_value(record, 0, KX_STATUS_ALERT);
        return -1;
    };
    command(CommandBlock::fax(GetParam(), {}));
    EXPECT_TRUE(driver.is_blocked(4));
    EXPECT_EQ(command(CommandBlock(GETSTATUS)), 0u);
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    fax_thread_ends();
    EXPECT_EQ(outcome(), (Lines{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x7, 0x0)",
                                "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x2, 0x20)"}));
}

TEST_P(FaxSession, DoesNotGuardAgainstASecondOne) {
    driver.gate("DornFaxWaitForTraining").close();
    for (int job = 1; job <= 2; ++job) {
        EXPECT_EQ(command(CommandBlock::fax(GetParam(), {})), 0u);
        EXPECT_TRUE(comes("DornFaxWaitForTraining(CHAN4)", static_cast<size_t>(job)));
    }
    driver.gate("DornFaxWaitForTraining").open();
    fax_thread_ends();
    EXPECT_EQ(count(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, <*>"), 2u);
}

TEST_P(FaxSession, FreesItsArgumentBlockBeforeItReportsTheEnd) {
    std::vector<size_t> sizes;
    windows.memory.fails = [&](const Allocation& one) {
        if (std::string(one.function) == "GlobalAlloc") sizes.push_back(one.size);
        return false;
    };
    Replacements table(module);
    ASSERT_TRUE(table.replace("GlobalFree", reinterpret_cast<void*>(&count_and_free)));
    blocks_freed = 0;
    run_job();
    EXPECT_EQ(sizes, std::vector<size_t>{112});
    EXPECT_EQ(blocks_freed, 1);
    EXPECT_TRUE(reads_in_order(of_the_job(story()), {"DornFaxEnd<*>(CHAN4)", "the argument block is freed",
                                                     "[4] Thread_<*> -> Done, no errors"}));
}

TEST_P(FaxSession, LeavesTheFileOpenForItsClose) {
    run_job();
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffClose(<*>"));
    EXPECT_EQ(close_file(), 0u);
}

TEST_P(FaxSession, HasItsFileClosedWithTheCall) {
    run_job();
    new_chapter();
    EXPECT_EQ(tsp.TSPI_lineCloseCall(call(0)), 0);
    EXPECT_TRUE(holds(driver_calls(), "DornTiffClose(TIFF1)"));
    EXPECT_EQ(close_file(), 1u);
}
