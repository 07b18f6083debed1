// TSPI_providerInit: its order, and what it requires of the machine.
#include "start_up.h"

using namespace harness;

TEST_F(StartUp, MapsTheSegmentAndResetsEveryChannel) {
    options = 77;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(options, 0u);
    const Lines expected = {
        "DornInitialize()",
        kStartUpEntry,
        "[4] Future Version ",
        kFaxServiceFound,
        "[4] Future Version ",
        "[4] Creating Shared Memory HalvorsundMSFTSPSharedMemory",
        "[4] Mapped Shared Memory HalvorsundMSFTSPSharedMemory",
        "[4] Check if calder is running",
        "[4] calder is running.",
        "[4] gdwNumLines=2",
        "DornLineAttach(channel=4)",
        kResetStarted,
        "DornLineAttach(channel=5)",
        kResetStarted,
        "[15] TSPI_providerInit(0) Good",
    };
    EXPECT_TRUE(reads(own(story()), expected));
    EXPECT_EQ(driver.attached(), 0u);
}

TEST_F(StartUp, LeavesTheLibraryOpenOnSuccess) {
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(driver.initialisations, 1);
    EXPECT_TRUE(holds_no(driver_calls(), "DornShutdown()"));
}

TEST_F(StartUp, WithNoLinesSucceedsAtOnce) {
    line_count = 0;
    EXPECT_EQ(initialise(), 0);
    EXPECT_NE(windows.mapping.view, nullptr);
    EXPECT_TRUE(holds(traces(), "[4] gdwNumLines=0"));
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineAttach(<*>"));
    EXPECT_TRUE(holds_no(windows_calls(), "WaitForSingleObject(EVENT1, <*>"));
    EXPECT_TRUE(holds(windows_calls(), "CloseHandle(EVENT1)"));
}

TEST_F(StartUp, WithoutTheFaxServiceFails) {
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "DornInitialize()",
        kStartUpEntry,
        "[4] Future Version ",
        kFaxServiceFound,
        "[4] schService == NULL, Fax",
        "[4] dwOpenService==ERROR_SERVICE_DOES_NOT_EXIST",
        "[4] IsFaxServicePresent()==FALSE",
        "[15] TSPI_providerInit(-2147483573) Failed",
        "DornShutdown()",
    };
    EXPECT_TRUE(reads(story(), expected));
    EXPECT_EQ(windows.mapping.view, nullptr);
}

TEST_F(StartUp, WithoutTheHostServiceFailsWithTheSegmentMapped) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    EXPECT_EQ(initialise(), failed(LINEERR_NODRIVER));
    const Lines expected = {
        "[4] Mapped Shared Memory HalvorsundMSFTSPSharedMemory",
        "[4] calder is not running.",
        "[1] Calder Host Service is not running!",
        "event log(category=1, 0xC000000E, \"\")",
        "[15] TSPI_providerInit(-2147483581) Failed",
        "DornShutdown()",
    };
    EXPECT_TRUE(reads_in_order(story(), expected));
    EXPECT_NE(windows.mapping.view, nullptr);
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineAttach(<*>"));
}

TEST_F(StartUp, NamesAnotherFunctionWhenTheEventLogEntryCannotBeWritten) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    windows.event_log.source_opens = false;
    EXPECT_EQ(initialise(), failed(LINEERR_NODRIVER));
    const Lines expected = {
        "[1] Calder Host Service is not running!",
        "[4] tspi_lineclosecall called report_event with error",
        "[15] TSPI_providerInit(-2147483581) Failed",
    };
    EXPECT_TRUE(reads_in_order(traces(), expected));
}
