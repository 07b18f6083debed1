// Line handles and the line lock, seen through an entry point that checks the handle and takes the lock once.
#include <memory>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class LineLock : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
        open_waiting_line(0);
    }

    LONG address_status(HDRVLINE asked) {
        LINEADDRESSSTATUS status = {};
        status.dwTotalSize = sizeof(status);
        return tsp.TSPI_lineGetAddressStatus(asked, 0, &status);
    }
};

const std::string kLine = "hdLine(0xLINE1), htLine(0xHTLINE1), dwDeviceID(0x7), htCall(0x0000000000000000): ";
const char* const kLockTaken = "[4] lock_line() WaitForSingleObject() result= (WAIT_OBJECT_0)";

std::string this_thread() {
    return text("0x%lX", GetCurrentThreadId());
}

}  // namespace

TEST_F(LineLock, TracesTheCheckOfTheHandleAndTheTakingAndGivingBackOfTheLock) {
    std::string opened_in = this_thread();
    EXPECT_EQ(address_status(line(0)), 0);
    const Lines expected = {
        "[16] " + kLine + "TSPI_lineGetAddressStatus",
        "[8] " + kLine + "IsValidLine",
        "[9] " + kLine + "IsValidLine(1)",
        "[8] " + kLine + "lock_line",
        "WaitForSingleObject(MUTEX1, INFINITE)",
        "[4] lock_line() WaitForSingleObject( pLine->line_mutex= 0xMUTEX1 )  thread= " + this_thread(),
        kLockTaken,
        "[9] " + kLine + "lock_line",
        "[8] " + kLine + "unlock_line",
        "ReleaseMutex(MUTEX1)",
        "[4] unlock_line()        ReleaseMutex( pLine->line_mutex= 0xMUTEX1 )  thread= " + this_thread(),
        "[4] unlock_line() pLine->line_mutex_CreatedInThreadId= " + opened_in,
        "[4] unlock_line() pLine->line_mutex_WaitOn_InThreadId= " + this_thread(),
        "[9] " + kLine + "unlock_line",
        "[17] " + kLine + "TSPI_lineGetAddressStatus(0) Good",
    };
    EXPECT_TRUE(reads(on_this_thread(all_of(TRACE | WINDOWS).all_levels()), expected));
}

TEST_F(LineLock, TellsTheThreadThatOpenedTheLineFromTheOneThatHasTheLock) {
    std::string opened_in = this_thread();
    Call asking([this] { return address_status(line(0)); });
    EXPECT_EQ(asking.result(), 0);
    EXPECT_TRUE(holds(traces().levels({4}), "[4] unlock_line() pLine->line_mutex_CreatedInThreadId= " + opened_in));
    EXPECT_TRUE(holds(traces().levels({4}),
                      text("[4] unlock_line() pLine->line_mutex_WaitOn_InThreadId= 0x%lX", asking.thread())));
}

TEST_F(LineLock, HoldsUpEveryOtherThread) {
    driver.gate("DornLineAnswerISDN").close();
    offer_call(0);
    Call answering([this] { return tsp.TSPI_lineAnswer(0x11, call(0), nullptr, 0); });
    EXPECT_TRUE(driver.gate("DornLineAnswerISDN").holds_somebody());
    Call asking([this] { return address_status(line(0)); });
    EXPECT_FALSE(asking.returns_within(50));
    driver.gate("DornLineAnswerISDN").open();
    EXPECT_EQ(answering.result(), 0x11);
    EXPECT_EQ(asking.result(), 0);
}

TEST_F(LineLock, NamesItsHolderAndNotWhoWaitsForIt) {
    const DWORD holder = GetCurrentThreadId();
    std::unique_ptr<Call> waiting;
    auto waits = [&] {
        return holds(windows_calls().on_thread(waiting->thread()), "WaitForSingleObject(MUTEX1, INFINITE)");
    };
    driver.on.QorvLogLogMsg = [&](uint32_t, int, const char* text, const char*, uint32_t) {
        if (waiting || GetCurrentThreadId() != holder || !matches("<*>: unlock_line", text)) return;
        waiting = std::make_unique<Call>([this] { return address_status(line(0)); });
        EXPECT_TRUE(wait_until(waits));
    };
    EXPECT_EQ(address_status(line(0)), 0);
    ASSERT_NE(waiting, nullptr);
    EXPECT_EQ(waiting->result(), 0);
    EXPECT_TRUE(holds(on_this_thread(traces().levels({4})),
                      "[4] unlock_line() pLine->line_mutex_WaitOn_InThreadId= " + this_thread()));
}

struct WaitOutcome {
    DWORD result;
    const char* name;
};

std::ostream& operator<<(std::ostream& out, const WaitOutcome& one) {
    return out << one.name;
}

class OutcomeOfTheWait : public LineLock, public testing::WithParamInterface<WaitOutcome> {};

TEST_P(OutcomeOfTheWait, IsTracedByNameAndChangesNothing) {
    windows.objects.on_wait = [](HANDLE, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != INFINITE) return std::nullopt;
        return GetParam().result;
    };
    EXPECT_EQ(address_status(line(0)), 0);
    EXPECT_TRUE(holds(traces().levels({4}),
                      std::string("[4] lock_line() WaitForSingleObject() result= (") + GetParam().name + ")"));
    EXPECT_TRUE(holds(traces().levels({9}), "[9] " + kLine + "lock_line"));
    EXPECT_TRUE(holds(traces().levels({4}), "[4] unlock_line() pLine->line_mutex_WaitOn_InThreadId= " + this_thread()));
}

INSTANTIATE_TEST_SUITE_P(EachName, OutcomeOfTheWait,
                         testing::Values(WaitOutcome{0xFFFFFFFF, "WAIT_FAILED"}, WaitOutcome{128, "WAIT_ABANDONED"},
                                         WaitOutcome{0, "WAIT_OBJECT_0"}, WaitOutcome{258, "WAIT_TIMEOUT"},
                                         WaitOutcome{5, "Unknown!"}));

TEST_F(LineLock, SaysSoWhenItIsGivenBackByAThreadThatDoesNotOwnIt) {
    windows.objects.on_wait = [](HANDLE, DWORD) -> std::optional<DWORD> { return WAIT_FAILED; };
    EXPECT_EQ(address_status(line(0)), 0);
    const Lines expected = {
        "[8] " + kLine + "unlock_line",
        "ReleaseMutex(MUTEX1)",
        "[4] unlock_line() ReleaseMutex() failed ############################# lastErr= 0x120",
        "[4] unlock_line()        ReleaseMutex( pLine->line_mutex= 0xMUTEX1 )  thread= " + this_thread(),
        "[4] unlock_line() pLine->line_mutex_CreatedInThreadId= " + this_thread(),
        "[4] unlock_line() pLine->line_mutex_WaitOn_InThreadId= " + this_thread(),
        "[9] " + kLine + "unlock_line",
    };
    EXPECT_TRUE(reads(
        on_this_thread(all_of(TRACE | WINDOWS).all_levels()).only({"<*>unlock_line<*>", "ReleaseMutex<*>"}), expected));
}

// ---- handles ------------------------------------------------------------------------------------------------------

using LineHandle = LineLock;

TEST_F(LineHandle, NullIsNotALine) {
    EXPECT_EQ(address_status(nullptr), failed(LINEERR_INVALLINEHANDLE));
    const Lines expected = {
        "[16] TSPI_lineGetAddressStatus",
        "[8] IsValidLine",
        "[9] IsValidLine(0)",
        "[4] TSPI_lineGetAddressStatus - Invalid Line Handle",
        "[17] TSPI_lineGetAddressStatus(-2147483605) Failed",
    };
    EXPECT_TRUE(reads(on_this_thread(traces().all_levels()), expected));
}

TEST_F(LineHandle, IsReadBeforeItIsKnownToBeALine) {
    static uint64_t no_line[1024] = {};
    name_pointer(no_line, "NOLINE");
    EXPECT_EQ(address_status(reinterpret_cast<HDRVLINE>(no_line)), failed(LINEERR_INVALLINEHANDLE));
    const std::string no_line_at =
        "hdLine(0xNOLINE), htLine(0x0000000000000000), dwDeviceID(0x0), htCall(0x0000000000000000): ";
    EXPECT_TRUE(reads_in_order(on_this_thread(traces().all_levels()),
                               {"[8] " + no_line_at + "IsValidLine", "[9] " + no_line_at + "IsValidLine(0)",
                                "[4] TSPI_lineGetAddressStatus - Invalid Line Handle"}));
    EXPECT_TRUE(holds_no(on_this_thread(traces().all_levels()), "[8] <*>: lock_line"));
}

TEST_F(LineHandle, IsInvalidOnceTheLineIsClosed) {
    HDRVLINE closed = line(0);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_EQ(address_status(closed), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_EQ(tsp.TSPI_lineClose(closed), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(holds(traces(), "[4] Invalid line handle"));
}

TEST_F(LineHandle, IsFoundByTheUnitOfItsChannelAndNotByItsIndex) {
    open_waiting_line(1);
    EXPECT_EQ(address_status(line(0)), 0);
    EXPECT_EQ(address_status(line(1)), 0);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_EQ(address_status(line(1)), 0);
}

TEST_F(LineHandle, MayHaveTheFirstOrTheLastUnitOfTheTable) {
    for (uint32_t unit : {0u, 4047u}) {
        driver.channel(5).unit = unit;
        open_waiting_line(1);
        EXPECT_EQ(address_status(line(1)), 0) << unit;
        EXPECT_EQ(close_line(1), 0);
    }
}
