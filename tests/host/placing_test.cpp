// Placing a call on a line that may not be ready for it, over a provider of a few functions.
#include <gtest/gtest.h>

#include "call.h"

namespace {

struct PretendedProvider {
    int placed = 0;
    int closed = 0;
    HANDLE stop_when_placed = nullptr;
} gPretended;

LONG TSPIAPI refuse_call(DRV_REQUESTID, HDRVLINE, HTAPICALL, LPHDRVCALL lphdCall, LPCWSTR, DWORD, LPLINECALLPARAMS) {
    ++gPretended.placed;
    *lphdCall = reinterpret_cast<HDRVCALL>(&gPretended);
    if (gPretended.stop_when_placed) SetEvent(gPretended.stop_when_placed);
    return static_cast<LONG>(LINEERR_RESOURCEUNAVAIL);
}

LONG TSPIAPI close_call(HDRVCALL) {
    ++gPretended.closed;
    return 0;
}

}  // namespace

class Placing : public testing::Test {
  protected:
    void SetUp() override {
        gPretended = {};
        provider.tspi.lineMakeCall = refuse_call;
        provider.tspi.lineCloseCall = close_call;
        line.provider = &provider;
        line.htLine = hub_add_line(line.dwDeviceID, line.queue);
    }
    void TearDown() override { hub_remove_line(line.htLine); }

    Failure place() { return call_place(line, "101", 10000, stop.get()); }

    OwnedHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    Provider provider;
    Line line;
};

TEST_F(Placing, IsTriedThreeTimesAndEachRefusedCallButTheLastIsClosed) {
    const Failure failure = place();
    EXPECT_EQ(gPretended.placed, 3);
    EXPECT_EQ(gPretended.closed, 2);
    EXPECT_NE(line.hdCall, nullptr);
    EXPECT_EQ(failure.name, "LINEERR_RESOURCEUNAVAIL");
    EXPECT_EQ(failure.advice, "the line was not free; try again");
}

TEST_F(Placing, IsToldAsInterruptedAlsoWhenTheLineWasNotReady) {
    gPretended.stop_when_placed = stop.get();
    const Failure failure = place();
    EXPECT_EQ(gPretended.placed, 1);
    EXPECT_EQ(failure.exit_status, EXIT_INTERRUPTED) << failure.text;
}
