// TSPI_providerInit: its order, and what it requires of the machine.
#include "start_up.h"

using namespace harness;

TEST_F(StartUp, MapsTheSegmentAndResetsEveryChannel) {
    options = 77;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(options, 0u);
    const Lines expected = joined({
        kReadyForResets,
        {
            "CreateEvent -> EVENT1",
            "InitializeCriticalSection(RESET_LOCK)",
            "EnterCriticalSection(RESET_LOCK)",
            "[4] gdwNumLines=2",
            "DornLineAttach(channel=4)",
            kResetStarted,
            "_beginthread(stack=16384)",
            "DornLineAttach(channel=5)",
            kResetStarted,
            "_beginthread(stack=16384)",
            "LeaveCriticalSection(RESET_LOCK)",
            "WaitForSingleObject(EVENT1, INFINITE)",
            "CloseHandle(EVENT1)",
            "DeleteCriticalSection(RESET_LOCK)",
            "[15] TSPI_providerInit(0) Good",
        },
    });
    EXPECT_TRUE(reads(own(everything()), expected));
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
    const Lines expected = joined({
        {"DornInitialize()", "[14] TSPI_providerInit: <*>"},
        kFaxServiceThere,
        kSegmentMapped,
        kHostServiceRuns,
        {
            "CreateEvent -> EVENT1",
            "InitializeCriticalSection(RESET_LOCK)",
            "EnterCriticalSection(RESET_LOCK)",
            "[4] gdwNumLines=0",
            "LeaveCriticalSection(RESET_LOCK)",
            "CloseHandle(EVENT1)",
            "DeleteCriticalSection(RESET_LOCK)",
            "[15] TSPI_providerInit(0) Good",
        },
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(StartUp, WithoutTheFaxServiceFails) {
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = joined({
        {"DornInitialize()", kStartUpEntry},
        kFaxServiceAsked,
        {
            "[4] schService == NULL, Fax",
            "[4] dwOpenService==ERROR_SERVICE_DOES_NOT_EXIST",
            "CloseServiceHandle(manager)",
            "[9] IsFaxServicePresent(0)",
            "[4] IsFaxServicePresent()==FALSE",
            "[15] TSPI_providerInit(-2147483573) Failed",
            "DornShutdown()",
        },
    });
    EXPECT_TRUE(reads(everything(), expected));
    EXPECT_EQ(windows.mapping.view, nullptr);
}

TEST_F(StartUp, WithoutTheHostServiceFailsWithTheSegmentMapped) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    EXPECT_EQ(initialise(), failed(LINEERR_NODRIVER));
    const Lines expected = joined({
        kMapped,
        kHostServiceStopped,
        event_log_entry("1", "0xC000000E"),
        {"[15] TSPI_providerInit(-2147483581) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
    EXPECT_NE(windows.mapping.view, nullptr);
}

TEST_F(StartUp, NamesAnotherFunctionWhenTheEventLogEntryCannotBeWritten) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    windows.event_log.source_opens = false;
    EXPECT_EQ(initialise(), failed(LINEERR_NODRIVER));
    const Lines expected = joined({
        kMapped,
        kHostServiceStopped,
        kNoEventLog,
        {"[4] tspi_lineclosecall called report_event with error", "[15] TSPI_providerInit(-2147483581) Failed",
         "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}
