// What TSPI_providerInit makes of an exception or a fault at each of its stages.
#include "start_up.h"

using namespace harness;

using StartUpExceptions = StartUp;

TEST_F(StartUpExceptions, TurnsAnExceptionIntoAFailureAndClosesTheLibrary) {
    driver.on.DornLineAttach = [](DornAttachRecord*) -> DornLine* { throw 1; };
    SetLastError(0);
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_NE(GetLastError(), 1064u);
    const Lines expected = joined({
        kReadyForResets,
        {
            "CreateEvent -> EVENT1",
            "InitializeCriticalSection(RESET_LOCK)",
            "EnterCriticalSection(RESET_LOCK)",
            "[4] gdwNumLines=2",
            "DornLineAttach(channel=4)",
            "LeaveCriticalSection(RESET_LOCK)",
            "[4] TSPI_providerInit - Catch Error",
            "[15] TSPI_providerInit(-2147483576) Failed",
            "DornShutdown()",
        },
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(StartUpExceptions, TurnsAFaultIntoAFailure) {
    driver.on.DornLineAttach = [](DornAttachRecord*) -> DornLine* { return cause_access_violation(), nullptr; };
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(holds(traces(), "[4] TSPI_providerInit - Catch Error"));
}

TEST_F(StartUpExceptions, LetsTheStartedResetsEndAfterAnException) {
    driver.on.DornLineAttach = [](DornAttachRecord* record) -> DornLine* {
        if (record->dwChannel == 5) throw 1;
        return ScriptedDriver::usual().DornLineAttach(record);
    };
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(windows.all_threads_end(kPatience));
}

TEST_F(StartUpExceptions, LetsTheStartedResetsEndAfterAFault) {
    driver.on.DornLineAttach = [](DornAttachRecord* record) -> DornLine* {
        if (record->dwChannel == 5) cause_access_violation();
        return ScriptedDriver::usual().DornLineAttach(record);
    };
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(windows.all_threads_end(kPatience));
}

TEST_F(StartUpExceptions, TurnsAnExceptionWhileTheLibraryOpensIntoAFailure) {
    driver.on.DornInitialize = []() -> int { throw 1; };
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads(everything(), {"DornInitialize()", kPanicFile, "[1] TSPI_providerInit: Exception"}));
}

TEST_F(StartUpExceptions, TurnsAnExceptionWhileTheLibraryClosesIntoAFailure) {
    windows.services.state.erase(L"Fax");
    driver.on.DornShutdown = [] { throw 1; };
    EXPECT_EQ(initialise(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads_in_order(
        story(), {"[15] TSPI_providerInit(-2147483573) Failed", "DornShutdown()", "[1] TSPI_providerInit: Exception"}));
    EXPECT_EQ(count(traces(), "[15] <*>"), 1u);
}
