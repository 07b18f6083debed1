// TSPI_lineDevSpecific when memory, a thread or the board fails it.
#include "fax_fixture.h"

using namespace harness;

namespace {

class CommandFailure : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        new_chapter();
    }

    static void let_the_argument_block_fail() {
        windows.memory.fails = [](const Allocation& one) {
            return std::string(one.function) == "GlobalAlloc" && one.size == 112;
        };
    }

    // The request fails by an exception.
    void expect_exception(CommandBlock block) {
        EXPECT_EQ(request(block), failed(LINEERR_OPERATIONFAILED));
        EXPECT_EQ(GetLastError(), 1064u);
        EXPECT_TRUE(holds(traces(), "[1] TSPI_lineDevSpecific: Exception"));
    }
    // What the request of this thread has kept.
    void give_back_the_lock() {
        EXPECT_TRUE(line_is_locked());
        EXPECT_TRUE(ReleaseMutex(line_mutex()));
        EXPECT_FALSE(line_is_locked());
    }
};

// Has the block's result noted with the complaint and when the administrator is about to be told.
void note_result_at_complaints(const CommandBlock& block) {
    driver.on.QorvLogLogMsg = [&block](uint32_t, int level, const char* line, const char*, uint32_t) {
        if (level == 2 || (level == 8 && std::strstr(line, ": report_event"))) note(text("result %u", block.result()));
    };
}

View without_report_event(const View& view) {
    return view.without({"[4] report_event<*>", "[4] intNum<*>", "[4] TempMsg<*>", "[4] StringArray<*>"});
}

}  // namespace

TEST_F(CommandFailure, TellsTheAdministratorThatThereIsNoMemoryForASendThread) {
    let_the_argument_block_fail();
    EXPECT_EQ(command(CommandBlock::fax(FAXSEND, {})), 1u);
    EXPECT_TRUE(reads(without_report_event(story()),
                      {
                          of_line(16, "TSPI_lineDevSpecific"),
                          "[4] Dev Specific cmd 3 (eTspCmd_FAXSEND)",
                          "[2] Mem allocation error",
                          "event log(category=3, 0xC0000008, \"\")",
                          "[4] TSPI_lineDevSpecific() Async completion requestID= 0x13: result= 0x0",
                          "completion(request=0x13, result=0x0)",
                          of_line(17, "TSPI_lineDevSpecific(19) Good"),
                      }));
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
}

TEST_F(CommandFailure, TellsTheAdministratorThatThereIsNoMemoryForAReceiveThread) {
    let_the_argument_block_fail();
    EXPECT_EQ(command(CommandBlock::fax(FAXRECEIVE, {})), 1u);
    EXPECT_TRUE(reads(event_log(), {"event log(category=3, 0xC0000008, \"\")"}));
    EXPECT_TRUE(holds(traces(), "[2] Mem allocation error"));
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
}

TEST_F(CommandFailure, ComplainsOfMemoryFirstThenAnswersThenTellsTheAdministrator) {
    let_the_argument_block_fail();
    windows.event_log.source_opens = false;
    CommandBlock block = CommandBlock::fax(FAXSEND, {});
    note_result_at_complaints(block);
    EXPECT_GT(request(block), 0);
    EXPECT_TRUE(reads(all_of(TRACE | NOTE).levels({2, 8}).without({"<*>lock_line"}),
                      {"[2] Mem allocation error", "result 0", "[8] report_event", "result 1"}));
}

TEST_F(CommandFailure, ComplainsOfAnUnknownCommandFirstThenAnswersThenTellsTheAdministrator) {
    CommandBlock block(99);
    note_result_at_complaints(block);
    EXPECT_GT(request(block), 0);
    const Lines expected = {"[2] Unknown DevSpecific command 99!", "result 0", "[8] report_event_num", "result 1"};
    EXPECT_TRUE(reads_in_order(all_of(TRACE | NOTE).levels({2, 8}), expected));
}

TEST_F(CommandFailure, LeavesTheLineFreeWhenThereIsNoMemory) {
    let_the_argument_block_fail();
    command(CommandBlock::fax(FAXSEND, {}));
    EXPECT_GT(tsp.TSPI_lineDrop(next_request(), call(0), nullptr, 0), 0);
}

TEST_F(CommandFailure, TracesThatTheAdministratorCouldNotBeTold) {
    let_the_argument_block_fail();
    windows.event_log.source_opens = false;
    EXPECT_EQ(command(CommandBlock::fax(FAXSEND, {})), 1u);
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineDevSpecific called report_event with error #2"));
    new_chapter();
    EXPECT_EQ(command(CommandBlock::fax(FAXRECEIVE, {})), 1u);
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineDevSpecific called report_event with error"));
}

TEST_F(CommandFailure, DoesNotNoticeThatTheThreadDidNotStart) {
    windows.threads.start = false;
    for (Command start : {FAXSEND, FAXRECEIVE}) EXPECT_EQ(command(CommandBlock::fax(start, {})), 0u);
    EXPECT_EQ(count(windows_calls(), "_beginthread(stack=16384)"), 2u);
    EXPECT_EQ(tsp.TSPI_lineDrop(next_request(), call(0), nullptr, 0), failed(LINEERR_INVALCALLSTATE));
}

TEST_F(CommandFailure, KeepsTheLineLockAndCompletesNothingWhenTheDriverThrows) {
    driver.on.DornTiffClose = [](DornTiffRecord*) -> int { throw 1; };
    expect_exception(CommandBlock::close(0));
    EXPECT_TRUE(reads(completions(), {}));
    give_back_the_lock();
}

TEST_F(CommandFailure, HasClosedTheFileWhenItsStampThrows) {
    shared_record(0).status = KX_STATUS_ERROR;
    driver.on.DornTiffOpen = [](DornTiffRecord*) -> DornTiff* { throw 1; };
    expect_exception(CommandBlock::close(FAXRECEIVE));
    give_back_the_lock();
    EXPECT_EQ(close_file(), 1u);
}

TEST_F(CommandFailure, KeepsTheLineLockWhenTheDriverFaults) {
    driver.on.DornLineAlert = [](DornAlertRecord*) { return cause_access_violation(), 0; };
    expect_exception(CommandBlock(ABORT));
    EXPECT_TRUE(reads(completions(), {}));
    give_back_the_lock();
}

TEST_F(CommandFailure, KeepsTheLineLockWhenTapisProcedureThrows) {
    tapi.on_completion = [](DRV_REQUESTID, LONG) { throw 1; };
    expect_exception(CommandBlock(GETSTATUS));
    give_back_the_lock();
}

TEST_F(CommandFailure, LetsNextRequestWaitForTheLockThatAnExceptionKept) {
    driver.on.DornTiffClose = [](DornTiffRecord*) -> int { throw 1; };
    expect_exception(CommandBlock::close(0));
    new_chapter();
    CommandBlock block(GETSTATUS);
    Call next([&] { return request(block); });
    EXPECT_TRUE(comes("[8] <*>: lock_line"));
    EXPECT_TRUE(line_is_locked());
    EXPECT_FALSE(next.has_returned());
    ReleaseMutex(line_mutex());
    EXPECT_GT(next.result(), 0);
}

TEST_F(CommandFailure, FaultsOnANullBlockBeforeItTakesTheLock) {
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x77, line(0), 0, call(0), nullptr, 1088), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads_in_order(traces(), {of_line(16, "TSPI_lineDevSpecific"), "[1] TSPI_lineDevSpecific: Exception"}));
    EXPECT_FALSE(line_is_locked());
}
