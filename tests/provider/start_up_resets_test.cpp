// The resets that TSPI_providerInit starts, one thread a channel, and its wait for the last of them.
#include "start_up.h"

using namespace harness;

using StartUpResets = StartUp;

TEST_F(StartUpResets, WaitsForTheResetsOnAnEventOfItsOwn) {
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "CreateEvent -> EVENT1",
        "_beginthread(stack=16384)",
        "_beginthread(stack=16384)",
        "WaitForSingleObject(EVENT1, "
        "INFINITE)",
        "CloseHandle(EVENT1)",
    };
    EXPECT_TRUE(reads(own(windows_calls()).only({"<*>EVENT1<*>", "_beginthread<*>"}), expected));
}

TEST_F(StartUpResets, FailsWhenTheEventCannotBeCreated) {
    windows.objects.events[1] = {fails, 1450};
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "[4] calder is running.",
        "event log(category=3, 0xC0000007, \"\", \"5AA\")",
        "[15] TSPI_providerInit(-2147483573) Failed",
        "DornShutdown()",
    };
    EXPECT_TRUE(reads_in_order(story(), expected));
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineAttach(<*>"));
}

TEST_F(StartUpResets, ForgetsAnEventThatExistsAlreadyWithoutClosingIt) {
    windows.objects.events[1] = {exists_already};
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "[4] TSPI_providerInit - erroralreadyexists",
        "event log(category=3, 0xC0000007, \"\", \"B7\")",
        "[15] TSPI_providerInit(-2147483573) Failed",
    };
    EXPECT_TRUE(reads_in_order(story(), expected));
    EXPECT_TRUE(holds_no(windows_calls(), "CloseHandle(EVENT1)"));
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
    EXPECT_EQ(count(windows_calls(), "SetEvent(EVENT1)"), 1u);
    EXPECT_TRUE(reads_in_order(all_of(DRIVER | WINDOWS),
                               {"DornSessionDetach(CHAN4)", "DornSessionDetach(CHAN5)", "SetEvent(EVENT1)"}));
}

TEST_F(StartUpResets, MarksAChannelThatDoesNotAttachAsBadAndGoesOnWithTheOthers) {
    driver.channel(4).attaches = false;
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "DornLineAttach(channel=4)",
        "[4] TSPI_providerInit() LineAttach for chan 4 failed!",
        "event log(category=1, 0xC000000D, \"\", \"4\")",
        "DornLineAttach(channel=5)",
        kResetStarted,
        "[15] TSPI_providerInit(-2147483573) Failed",
        "DornShutdown()",
    };
    EXPECT_TRUE(reads_in_order(own(story()), expected));
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
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
    EXPECT_TRUE(holds_no(windows_calls(), "WaitForSingleObject(EVENT1, <*>"));
    EXPECT_TRUE(holds(windows_calls(), "CloseHandle(EVENT1)"));
    EXPECT_NE(windows.mapping.view, nullptr);
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(StartUpResets, MarksAChannelWithoutMemoryForItsResetAsBad) {
    windows.memory.fail_once_after("DornLineAttach(channel=4)", 16);
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "DornLineAttach(channel=4)",
        "[4] Memory allocation failure during providerinit",
        "event log(category=3, 0xC0000008, \"\")",
        "DornSessionDetach(CHAN4)",
        "[4] TSPI_providerInit() #1 for chan 4 failed!",
        "DornLineAttach(channel=5)",
        kResetStarted,
        "[15] TSPI_providerInit(-2147483573) Failed",
    };
    EXPECT_TRUE(reads_in_order(own(story()), expected));
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
        "refused event log(category=3, 0xC0000008, \"\")",
        "[4] tspi_PROVIDERINIT called report_event with error",
        "DornSessionDetach(CHAN4)",
    };
    EXPECT_TRUE(reads_in_order(own(story()), expected));
}

TEST_F(StartUpResets, StartsEveryLineWithTheRateOf14400UntilItsResetTellsOtherwise) {
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(device_caps(0).dwMaxRate, 14400u);
    EXPECT_EQ(device_caps(1).dwMaxRate, 2400u);
}
