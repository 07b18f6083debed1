// TSPI_providerShutdown: the segment goes, the library closes.
#include "harness.h"

using namespace harness;

namespace {

class ShutDown : public ProviderFixture {};

const char* const kEntry = "[14] TSPI_providerShutdown: dwTSPIVersion(0x20000), dwPermanentProviderID(3)";
const char* const kExit = "[15] TSPI_providerShutdown(0) Good";
const char* const kClosing = "[4] Closing Shared Memory HalvorsundMSFTSPSharedMemory";

View of_the_segment() {
    return windows_calls().only({"UnmapViewOfFile(<*>", "CloseHandle(MAPPING)<*>"});
}

}  // namespace

TEST_F(ShutDown, UnmapsAndClosesTheSegmentAndTheLibrary) {
    start_provider();
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(story(), {kEntry, kClosing, kExit, "DornShutdown()"}));
    EXPECT_TRUE(reads(of_the_segment(), {"UnmapViewOfFile(VIEW)", "CloseHandle(MAPPING)"}));
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(ShutDown, GoesOnWhenTheSegmentCannotBeUnmapped) {
    start_provider();
    windows.mapping.unmap_error = 487;
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(story(), {kEntry, "[4] Couldn't Unmap SharedMemory", "[2] GetLastError() = 487", kClosing, kExit,
                                "DornShutdown()"}));
}

TEST_F(ShutDown, GoesOnWhenTheSegmentCannotBeClosed) {
    start_provider();
    windows.mapping.close_error = 6;
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(story(), {kEntry, kClosing, "[4] Could not close handle to file mapping (ghMapFile)",
                                "[2] GetLastError() = 6", kExit, "DornShutdown()"}));
}

TEST_F(ShutDown, WithoutAnInitialisationTouchesNothingButTheTrace) {
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(story(), {"DornInitialize()", kEntry, kExit, "DornShutdown()"}));
    EXPECT_TRUE(reads(of_the_segment(), {}));
}

TEST_F(ShutDown, KeepsItsStaleHandlesAndTriesThemAgain) {
    start_provider();
    EXPECT_EQ(shut_down(), 0);
    new_chapter();
    windows.mapping.unmap_error = 487;
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(of_the_segment(), {"UnmapViewOfFile(VIEW)", "CloseHandle(MAPPING) again"}));
    EXPECT_TRUE(reads_in_order(traces(), {"[4] Couldn't Unmap SharedMemory", kClosing,
                                          "[4] Could not close handle to file mapping (ghMapFile)", kExit}));
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
    EXPECT_TRUE(reads_in_order(story(), {kExit, "DornShutdown()", "[1] TSPI_providerShutdown: Exception"}));
}

TEST_F(ShutDown, TurnsAnExceptionWhileTheLibraryOpensIntoAFailure) {
    driver.on.DornInitialize = []() -> int { throw 1; };
    EXPECT_EQ(shut_down(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads(story(), {"DornInitialize()", "[1] TSPI_providerShutdown: Exception"}));
}
