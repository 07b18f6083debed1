// The resets that TSPI_providerInit starts, one thread a channel, and its wait for the last of them.
#include "start_up.h"

using namespace harness;

using StartUpResets = StartUp;

namespace {

// The resets of two lines begin, and all that have been started are waited for.
const Lines kResetsBegun = {
    "CreateEvent -> EVENT1",
    "InitializeCriticalSection(RESET_LOCK)",
    "EnterCriticalSection(RESET_LOCK)",
    "[4] gdwNumLines=2",
};
const Lines kResetsAwaited = {
    "LeaveCriticalSection(RESET_LOCK)",
    "WaitForSingleObject(EVENT1, INFINITE)",
    "CloseHandle(EVENT1)",
    "DeleteCriticalSection(RESET_LOCK)",
};

}  // namespace

TEST_F(StartUpResets, FailsWhenTheEventCannotBeCreated) {
    windows.objects.events[1] = {fails, 1450};
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = joined({
        kReadyForResets,
        {"CreateEvent failed"},
        event_log_entry_with_number("3", "0xC0000007", "5AA"),
        {"[15] TSPI_providerInit(-2147483573) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(StartUpResets, ForgetsAnEventThatExistsAlreadyWithoutClosingIt) {
    windows.objects.events[1] = {exists_already};
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = joined({
        kReadyForResets,
        {"CreateEvent -> EVENT1", "[4] TSPI_providerInit - erroralreadyexists"},
        event_log_entry_with_number("3", "0xC0000007", "B7"),
        {"[15] TSPI_providerInit(-2147483573) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(StartUpResets, ResetsTheChannelsAtTheSameTimeAndWaitsForAll) {
    driver.gate("DornLineReset").close();
    Call starting([this] { return initialise(); });
    EXPECT_TRUE(comes("DornLineReset(CHAN4, <*>"));
    EXPECT_TRUE(comes("DornLineReset(CHAN5, <*>"));
    driver.gate("DornLineReset").open_once();
    EXPECT_TRUE(comes("DornSessionDetach(<*>"));
    EXPECT_FALSE(starting.has_returned());
    driver.gate("DornLineReset").open();
    EXPECT_EQ(starting.result(), 0);
}

TEST_F(StartUpResets, LetsNoResetFinishTheCountBeforeAllAreStarted) {
    driver.on.DornLineAttach = [](DornAttachRecord* record) {
        if (record->dwChannel == 5) {
            EXPECT_TRUE(comes("DornSessionDetach(CHAN4)"));
        }
        return ScriptedDriver::usual().DornLineAttach(record);
    };
    EXPECT_EQ(initialise(), 0);
    // The one that counts first leaves it at that, the other one signals the event after the lock.
    const Lines expected = {
        "LeaveCriticalSection(RESET_LOCK)",
        "LeaveCriticalSection(RESET_LOCK)",
        "LeaveCriticalSection(RESET_LOCK)",
        "SetEvent(EVENT1)",
        "CloseHandle(EVENT1)",
    };
    EXPECT_TRUE(reads(all_of(WINDOWS).only({"LeaveCriticalSection(<*>", "<*>(EVENT1)"}), expected));
}

namespace {

using Leave = void(WINAPI*)(LPCRITICAL_SECTION);
Leave leave_lock;
DWORD starter;

// Leaves a lock; the thread that has started the resets goes on only when the last one is done.
void WINAPI leave_and_see_the_resets_end(LPCRITICAL_SECTION lock) {
    const size_t left_before = count(windows_calls(), "LeaveCriticalSection(RESET_LOCK)");
    leave_lock(lock);
    if (GetCurrentThreadId() == starter && left_before == 0 &&
        holds(windows_calls(), "LeaveCriticalSection(RESET_LOCK)")) {
        EXPECT_TRUE(comes("SetEvent(EVENT1)"));
    }
}

}  // namespace

TEST_F(StartUpResets, AreWaitedForAlsoWhenTheyAreDoneAtOnce) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("LeaveCriticalSection", leave_lock, leave_and_see_the_resets_end));
    starter = GetCurrentThreadId();
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds(windows_calls(), "WaitForSingleObject(EVENT1, INFINITE)"));
}

TEST_F(StartUpResets, CountAThreadThatCannotBeStartedLikeTheOthers) {
    windows.threads.start = false;
    windows.objects.on_wait = [](HANDLE, DWORD) { return WAIT_OBJECT_0; };
    EXPECT_EQ(initialise(), 0);
    const Lines expected = joined({
        kReadyForResets,
        kResetsBegun,
        {
            "DornLineAttach(channel=4)",
            kResetStarted,
            "_beginthread(stack=16384)",
            "DornLineAttach(channel=5)",
            kResetStarted,
            "_beginthread(stack=16384)",
        },
        kResetsAwaited,
        {"[15] TSPI_providerInit(0) Good"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(StartUpResets, AreCountedAnewAtEveryStart) {
    windows.threads.start = false;
    windows.objects.on_wait = [](HANDLE, DWORD) { return WAIT_OBJECT_0; };
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(shut_down(), 0);
    windows.threads.start = true;
    windows.objects.on_wait = nullptr;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(count(windows_calls(), "SetEvent(EVENT2)"), 1u);
}

TEST_F(StartUpResets, MarksAChannelThatDoesNotAttachAsBadAndGoesOnWithTheOthers) {
    driver.channel(4).attaches = false;
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = joined({
        kReadyForResets,
        kResetsBegun,
        {"DornLineAttach(channel=4)", "[4] TSPI_providerInit() LineAttach for chan 4 failed!"},
        event_log_entry_with_number("1", "0xC000000D", "4"),
        {"DornLineAttach(channel=5)", kResetStarted, "_beginthread(stack=16384)"},
        kResetsAwaited,
        {"[15] TSPI_providerInit(-2147483573) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(own(everything()), expected));
    EXPECT_TRUE(reads(driver_calls().only({"DornSessionDetach(<*>"}), {"DornSessionDetach(CHAN5)"}));

    HDRVLINE opened = nullptr;
    EXPECT_EQ(tsp.TSPI_lineOpen(7, tapi.line_handle(0), &opened, kTspiVersion, tapi_event),
              failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), "[4] Open err, channel marked bad, val= -5"));
    EXPECT_NE(open_line(1), nullptr);
}

TEST_F(StartUpResets, ReportsChannelNumbersInHexadecimal) {
    driver.modules = {{2, 10, 1}};
    driver.channel(10).attaches = false;
    enumerate();
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(event_log(), {"event log(category=1, 0xC000000D, \"\", \"A\")"}));
}

TEST_F(StartUpResets, WithNoChannelThatAttachesFailsWithoutWaiting) {
    driver.channel(4).attaches = driver.channel(5).attaches = false;
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = joined({
        kReadyForResets,
        kResetsBegun,
        {"DornLineAttach(channel=4)", "[4] TSPI_providerInit() LineAttach for chan 4 failed!"},
        event_log_entry_with_number("1", "0xC000000D", "4"),
        {"DornLineAttach(channel=5)", "[4] TSPI_providerInit() LineAttach for chan 5 failed!"},
        event_log_entry_with_number("1", "0xC000000D", "5"),
        {
            "LeaveCriticalSection(RESET_LOCK)",
            "CloseHandle(EVENT1)",
            "DeleteCriticalSection(RESET_LOCK)",
            "[15] TSPI_providerInit(-2147483573) Failed",
            "DornShutdown()",
        },
    });
    EXPECT_TRUE(reads(everything(), expected));
    EXPECT_NE(windows.mapping.view, nullptr);
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(StartUpResets, MarksAChannelWithoutMemoryForItsResetAsBad) {
    windows.memory.fail_once_after("DornLineAttach(channel=4)", 16);
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = joined({
        kReadyForResets,
        kResetsBegun,
        {"DornLineAttach(channel=4)", "[4] Memory allocation failure during providerinit"},
        event_log_entry("3", "0xC0000008"),
        {
            "DornSessionDetach(CHAN4)",
            "[4] TSPI_providerInit() #1 for chan 4 failed!",
            "DornLineAttach(channel=5)",
            kResetStarted,
            "_beginthread(stack=16384)",
        },
        kResetsAwaited,
        {"[15] TSPI_providerInit(-2147483573) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(own(everything()), expected));
    EXPECT_EQ(driver.attached(), 0u);

    HDRVLINE opened = nullptr;
    EXPECT_EQ(tsp.TSPI_lineOpen(7, tapi.line_handle(0), &opened, kTspiVersion, tapi_event),
              failed(LINEERR_RESOURCEUNAVAIL));
}

TEST_F(StartUpResets, SaysSoWhenTheMemoryFailureCannotBeReported) {
    windows.memory.fail_once_after("DornLineAttach(channel=4)", 16);
    windows.event_log.takes_entries = false;
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "[4] Memory allocation failure during providerinit",
        "[8] report_event",
        "RegisterEventSourceW(null, \"Halvorsund Telephony Service Provider\")",
        "refused event log(category=3, 0xC0000008, \"\")",
        "DeregisterEventSource()",
        "[9] report_event(-1)",
        "[4] tspi_PROVIDERINIT called report_event with error",
        "DornSessionDetach(CHAN4)",
        "[4] TSPI_providerInit() #1 for chan 4 failed!",
        "DornLineAttach(channel=5)",
    };
    EXPECT_TRUE(reads_in_order(own(everything()), expected));
}

TEST_F(StartUpResets, StartsEveryLineWithTheRateOf14400UntilItsResetTellsOtherwise) {
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(device_caps(0).dwMaxRate, 14400u);
    EXPECT_EQ(device_caps(1).dwMaxRate, 2400u);
}
