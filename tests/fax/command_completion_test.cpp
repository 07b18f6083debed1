// The two ways in which the fax service learns that a command is done: TAPI's completion, or a named event.
#include <memory>

#include "fax_fixture.h"

using namespace harness;

namespace {

// A key of this process's own, since named events are shared, with digits in every place.
uint64_t own_key() {
    return 0xFEDCBA9800000000ull | GetCurrentProcessId();
}

std::string event_name(uint64_t key) {
    return text("HalvorsundEventForLine%016llX", static_cast<unsigned long long>(key));
}

BOOL WINAPI refuse_to_set(HANDLE) {
    return SetLastError(ERROR_ACCESS_DENIED), FALSE;
}
BOOL WINAPI refuse_to_close(HANDLE) {
    return SetLastError(ERROR_INVALID_HANDLE), FALSE;
}
int refuse_to_format(wchar_t*, size_t, const wchar_t*, ...) {
    return -1;
}

class CommandCompletion : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        event_.reset(CreateEventA(nullptr, TRUE, FALSE, event_name(own_key()).c_str()));
        ASSERT_TRUE(event_);
        new_chapter();
    }

    bool event_is_set() const { return WaitForSingleObject(event_.get(), 0) == WAIT_OBJECT_0; }

    // Exchanges one Windows function for the length of a request that completes by the event.
    void request_with(const char* function, void* instead) {
        Replacements table(module);
        ASSERT_TRUE(table.replace(function, instead)) << function;
        EXPECT_EQ(command(CommandBlock(GETSTATUS).by_event(own_key())), 0u);
    }

    // What is traced from the command to the function's exit.
    static View completion_traces() { return traces().without({"[16] <*>", "[17] <*>", "[4] Dev Specific cmd <*>"}); }

  private:
    std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> event_{nullptr, CloseHandle};
};

}  // namespace

TEST_F(CommandCompletion, SetsTheNamedEventInsteadOfTellingTapi) {
    CommandBlock block = CommandBlock(GETSTATUS).by_event(own_key());
    EXPECT_EQ(request(block), 0x12);
    EXPECT_TRUE(event_is_set());
    EXPECT_EQ(block.result(), 0u);
    EXPECT_TRUE(reads(story(), {
                                   of_line(16, "TSPI_lineDevSpecific"),
                                   "[4] Dev Specific cmd 6 (eTspCmd_GETSTATUS)",
                                   "[4] Do SetEvent here.",
                                   "[4] OpenEvent (" + event_name(own_key()) + ")",
                                   "[4] hGlobalEvent = 0xNAMED_EVENT",
                                   "[4] Good! - Event was set.",
                                   of_line(17, "TSPI_lineDevSpecific(18) Good"),
                               }));
}

TEST_F(CommandCompletion, OpensTheEventWithAllAccessAndClosesIt) {
    command(CommandBlock(GETSTATUS).by_event(own_key()));
    EXPECT_TRUE(reads(windows_calls().only({"<*>NAMED_EVENT)", "OpenEventW<*>"}),
                      {"OpenEventW(0x1F0003, 1, \"" + event_name(own_key()) + "\")", "SetEvent(NAMED_EVENT)",
                       "CloseHandle(NAMED_EVENT)"}));
}

TEST_F(CommandCompletion, CompletesByEventForAnyValueButZero) {
    CommandBlock block = CommandBlock(GETSTATUS).by_event(own_key());
    block.put<uint32_t>(8, 0x80000000);
    EXPECT_EQ(command(block), 0u);
    EXPECT_TRUE(event_is_set());
    EXPECT_TRUE(reads(completions(), {}));
}

TEST_F(CommandCompletion, SetsTheEventUnderTheLineLock) {
    EXPECT_EQ(command(CommandBlock(GETSTATUS).by_event(own_key())), 0u);
    EXPECT_TRUE(reads_in_order(
        windows_calls(), {"WaitForSingleObject(MUTEX1, INFINITE)", "SetEvent(NAMED_EVENT)", "ReleaseMutex(MUTEX1)"}));
    EXPECT_EQ(count(windows_calls(), "ReleaseMutex(MUTEX1)"), 1u);
}

TEST_F(CommandCompletion, SetsTheEventAlsoForACommandThatFailed) {
    EXPECT_EQ(command(CommandBlock::close(0).by_event(own_key())), 1u);
    EXPECT_TRUE(event_is_set());
}

TEST_F(CommandCompletion, SetsTheEventAlsoForAnUnknownCommand) {
    CommandBlock block = CommandBlock(7).by_event(own_key());
    EXPECT_EQ(request(block), 0x12);
    EXPECT_EQ(block.result(), 1u);
    EXPECT_TRUE(event_is_set());
    EXPECT_TRUE(reads(completions(), {}));
}

TEST_F(CommandCompletion, NobodyIsToldWhenTheEventDoesNotExist) {
    CommandBlock block = CommandBlock(GETSTATUS).by_event(0x1234);
    EXPECT_EQ(request(block), 0x12);
    EXPECT_EQ(block.result(), 0u);
    EXPECT_TRUE(reads(completion_traces(), {
                                               "[4] Do SetEvent here.",
                                               "[4] OpenEvent (HalvorsundEventForLine0000000000001234)",
                                               "[4] hGlobalEvent = 0x0000000000000000",
                                               "[4] Could not open event HalvorsundEventForLine0000000000001234",
                                               "[2] GetLastError() = 2",
                                           }));
    EXPECT_TRUE(reads(completions(), {}));
    EXPECT_FALSE(event_is_set());
    EXPECT_FALSE(line_is_locked());
}

TEST_F(CommandCompletion, TracesWhyTheEventCouldNotBeSetAndClosesIt) {
    request_with("SetEvent", reinterpret_cast<void*>(&refuse_to_set));
    EXPECT_TRUE(reads(completion_traces(), {
                                               "[4] Do SetEvent here.",
                                               "[4] OpenEvent (" + event_name(own_key()) + ")",
                                               "[4] hGlobalEvent = 0xNAMED_EVENT",
                                               "[4] Not Good - Did not SetEvent(" + event_name(own_key()) + ")",
                                               "[2] GetLastError() = 5",
                                           }));
    EXPECT_TRUE(holds(windows_calls(), "CloseHandle(NAMED_EVENT)"));
}

TEST_F(CommandCompletion, TracesWhyTheEventCouldNotBeClosed) {
    request_with("CloseHandle", reinterpret_cast<void*>(&refuse_to_close));
    EXPECT_TRUE(event_is_set());
    EXPECT_TRUE(
        reads(completion_traces(), {
                                       "[4] Do SetEvent here.",
                                       "[4] OpenEvent (" + event_name(own_key()) + ")",
                                       "[4] hGlobalEvent = 0xNAMED_EVENT",
                                       "[4] Good! - Event was set.",
                                       "[4] ERROR: Could not close hGlobalEvent (" + event_name(own_key()) + ")",
                                       "[2] GetLastError() = 6",
                                   }));
}

TEST_F(CommandCompletion, FallsBackToAnotherNameWhenTheNameCannotBeFormatted) {
    request_with("_snwprintf", reinterpret_cast<void*>(&refuse_to_format));
    EXPECT_TRUE(reads(completion_traces(), {
                                               "[4] Do SetEvent here.",
                                               "[2] TSPI_lineDevSpecific snwprintf error",
                                               "[4] OpenEvent (HalvorsundEventForLineERROR)",
                                               "[4] hGlobalEvent = 0x0000000000000000",
                                               "[4] Could not open event HalvorsundEventForLineERROR",
                                               "[2] GetLastError() = 2",
                                           }));
}

// The trace's own work must not change what the failed call has left behind.
TEST_F(CommandCompletion, TracesTheErrorOfTheCallThatFailed) {
    before(driver.on.QorvLogLogMsg, [] { SetLastError(ERROR_ARENA_TRASHED); });
    request_with("SetEvent", reinterpret_cast<void*>(&refuse_to_set));
    command(CommandBlock(GETSTATUS).by_event(0x1234));
    EXPECT_TRUE(reads(traces().levels({2}), {"[2] GetLastError() = 5", "[2] GetLastError() = 2"}));
}
