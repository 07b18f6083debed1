// TSPI_providerShutdown: the segment goes, the library closes.
#include "start_up.h"

using namespace harness;

namespace {

class ShutDown : public ProviderFixture {};

const char* const kEntry = "[14] TSPI_providerShutdown: dwTSPIVersion(0x20000), dwPermanentProviderID(3)";
const char* const kExit = "[15] TSPI_providerShutdown(0) Good";
const char* const kUnmapping = "UnmapViewOfFile(VIEW)";
const char* const kClosing = "[4] Closing Shared Memory HalvorsundMSFTSPSharedMemory";
const char* const kClosed = "CloseHandle(MAPPING)";

}  // namespace

TEST_F(ShutDown, UnmapsAndClosesTheSegmentAndTheLibrary) {
    start_provider();
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(everything(), {kEntry, kUnmapping, kClosing, kClosed, kExit, "DornShutdown()"}));
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(ShutDown, GoesOnWhenTheSegmentCannotBeUnmapped) {
    start_provider();
    windows.mapping.unmap_error = 487;
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(everything(), {kEntry, kUnmapping, "[4] Couldn't Unmap SharedMemory", "[2] GetLastError() = 487",
                                     kClosing, kClosed, kExit, "DornShutdown()"}));
}

TEST_F(ShutDown, GoesOnWhenTheSegmentCannotBeClosed) {
    start_provider();
    windows.mapping.close_error = 6;
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(everything(),
                      {kEntry, kUnmapping, kClosing, kClosed, "[4] Could not close handle to file mapping (ghMapFile)",
                       "[2] GetLastError() = 6", kExit, "DornShutdown()"}));
}

TEST_F(ShutDown, WithoutAnInitialisationTouchesNothingButTheTrace) {
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(everything(), {"DornInitialize()", kEntry, kExit, "DornShutdown()"}));
}

TEST_F(ShutDown, KeepsItsStaleHandlesAndTriesThemAgain) {
    start_provider();
    EXPECT_EQ(shut_down(), 0);
    new_chapter();
    windows.mapping.unmap_error = 487;
    EXPECT_EQ(shut_down(), 0);
    const Lines expected = {
        "DornInitialize()",
        kEntry,
        kUnmapping,
        "[4] Couldn't Unmap SharedMemory",
        "[2] GetLastError() = 487",
        kClosing,
        "CloseHandle(MAPPING) again",
        "[4] Could not close handle to file mapping (ghMapFile)",
        "[2] GetLastError() = 6",
        kExit,
        "DornShutdown()",
    };
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(ShutDown, MakesRoomForANewStart) {
    start_provider();
    EXPECT_EQ(shut_down(), 0);
    start_provider();
    EXPECT_NE(open_line(0), nullptr);
}

TEST_F(ShutDown, TurnsAnExceptionIntoAFailure) {
    start_provider();
    driver.on.DornShutdown = [] { throw 1; };
    SetLastError(0);
    EXPECT_EQ(shut_down(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    const Lines expected = {kEntry, kUnmapping,       kClosing,   kClosed,
                            kExit,  "DornShutdown()", kPanicFile, "[1] TSPI_providerShutdown: Exception"};
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(ShutDown, TurnsAnExceptionWhileTheLibraryOpensIntoAFailure) {
    driver.on.DornInitialize = []() -> int { throw 1; };
    EXPECT_EQ(shut_down(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads(everything(), {"DornInitialize()", kPanicFile, "[1] TSPI_providerShutdown: Exception"}));
}
