// The two ways in which the fax service learns that a command is done: TAPI's completion, or a named event.
#include <memory>

#include "fax_story.h"

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
    note("the event is not set");
    return SetLastError(ERROR_ACCESS_DENIED), FALSE;
}
BOOL WINAPI refuse_to_close(HANDLE) {
    note("the event is not closed");
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

    // A status request that is completed so.
    static Lines completed(const Lines& completion) {
        return joined({{of_line(16, "TSPI_lineDevSpecific"), "[4] Dev Specific cmd 6 (eTspCmd_GETSTATUS)"},
                       locked({published(), {"[4] Do SetEvent here."}, completion}),
                       {of_line(17, "TSPI_lineDevSpecific(18) Good")}});
    }
    // How the event of this name is opened, and what that gives.
    static Lines opened(const std::string& name, const std::string& handle = "NAMED_EVENT") {
        const std::string outcome = handle == "NAMED_EVENT" ? "" : " failed";
        return {"[4] OpenEvent (" + name + ")", "OpenEventW(0x1F0003, 1, \"" + name + "\")" + outcome,
                "[4] hGlobalEvent = 0x" + handle};
    }
    static Lines not_opened(const std::string& name) {
        return joined(
            {opened(name, "0000000000000000"), {"[4] Could not open event " + name, "[2] GetLastError() = 2"}});
    }

  private:
    std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> event_{nullptr, CloseHandle};
};

}  // namespace

TEST_F(CommandCompletion, SetsTheNamedEventInsteadOfTellingTapi) {
    CommandBlock block = CommandBlock(GETSTATUS).by_event(own_key());
    EXPECT_EQ(request(block), 0x12);
    EXPECT_TRUE(event_is_set());
    EXPECT_EQ(block.result(), 0u);
    EXPECT_TRUE(reads(
        whole_request(),
        completed(joined({opened(event_name(own_key())),
                          {"SetEvent(NAMED_EVENT)", "[4] Good! - Event was set.", "CloseHandle(NAMED_EVENT)"}}))));
}

TEST_F(CommandCompletion, CompletesByEventForAnyValueButZero) {
    CommandBlock block = CommandBlock(GETSTATUS).by_event(own_key());
    block.put<uint32_t>(8, 0x80000000);
    EXPECT_EQ(command(block), 0u);
    EXPECT_TRUE(event_is_set());
    EXPECT_TRUE(reads(completions(), {}));
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
    EXPECT_TRUE(reads(whole_request(), completed(not_opened("HalvorsundEventForLine0000000000001234"))));
    EXPECT_TRUE(reads(completions(), {}));
    EXPECT_FALSE(event_is_set());
    EXPECT_FALSE(line_is_locked());
}

TEST_F(CommandCompletion, TracesWhyTheEventCouldNotBeSetAndClosesIt) {
    request_with("SetEvent", reinterpret_cast<void*>(&refuse_to_set));
    const std::string name = event_name(own_key());
    EXPECT_TRUE(reads(whole_request(),
                      completed(joined({opened(name),
                                        {"the event is not set", "[4] Not Good - Did not SetEvent(" + name + ")",
                                         "[2] GetLastError() = 5", "CloseHandle(NAMED_EVENT)"}}))));
}

TEST_F(CommandCompletion, TracesWhyTheEventCouldNotBeClosed) {
    request_with("CloseHandle", reinterpret_cast<void*>(&refuse_to_close));
    const std::string name = event_name(own_key());
    EXPECT_TRUE(event_is_set());
    EXPECT_TRUE(reads(
        whole_request(),
        completed(joined({opened(name),
                          {"SetEvent(NAMED_EVENT)", "[4] Good! - Event was set.", "the event is not closed",
                           "[4] ERROR: Could not close hGlobalEvent (" + name + ")", "[2] GetLastError() = 6"}}))));
}

TEST_F(CommandCompletion, FallsBackToAnotherNameWhenTheNameCannotBeFormatted) {
    request_with("_snwprintf", reinterpret_cast<void*>(&refuse_to_format));
    EXPECT_TRUE(reads(whole_request(), completed(joined({{"[2] TSPI_lineDevSpecific snwprintf error"},
                                                         not_opened("HalvorsundEventForLineERROR")}))));
}

// The trace's own work must not change what the failed call has left behind.
TEST_F(CommandCompletion, TracesTheErrorOfTheCallThatFailed) {
    before(driver.on.QorvLogLogMsg, [] { SetLastError(ERROR_ARENA_TRASHED); });
    request_with("SetEvent", reinterpret_cast<void*>(&refuse_to_set));
    request_with("CloseHandle", reinterpret_cast<void*>(&refuse_to_close));
    command(CommandBlock(GETSTATUS).by_event(0x1234));
    EXPECT_TRUE(
        reads(traces().levels({2}), {"[2] GetLastError() = 5", "[2] GetLastError() = 6", "[2] GetLastError() = 2"}));
}
