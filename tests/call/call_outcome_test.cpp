// What becomes of an outgoing call: the call state of every status and cause, and what follows a failure.
#include <algorithm>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class OutgoingCall : public LineFixture {
  protected:
    // The call states of a call from its first to its last.
    Lines states_of_a_call() {
        EXPECT_EQ(make_call(), 0x21);
        worker_ends();
        return lines(events().only({"LINE_CALLSTATE(<*>"}));
    }
};

std::string state(const char* name, DWORD mode) {
    return text("LINE_CALLSTATE(HTLINE1, HTCALL1, %s, 0x%lX, 0x20)", name, mode);
}

struct Outcome {
    uint32_t status, cause;
    const char* state;
    DWORD mode;
};

bool read_alike(const Lines& seen, const Lines& expected) {
    return std::equal(seen.begin(), seen.end(), expected.begin(), expected.end(),
                      [](const std::string& line, const std::string& pattern) { return matches(pattern, line); });
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "status " << outcome.status << ", cause " << outcome.cause;
}

constexpr DWORD kUnavailable = LINEDISCONNECTMODE_UNAVAIL, kNoDialTone = LINEDISCONNECTMODE_NODIALTONE;

class SetupFailure : public OutgoingCall, public testing::WithParamInterface<Outcome> {};
class CallOutcome : public OutgoingCall, public testing::WithParamInterface<Outcome> {};

}  // namespace

// ---- the setup ------------------------------------------------------------------------------------------------------

TEST_P(SetupFailure, IsReportedAndTheCallIsOver) {
    driver.channel(4).setup_status = GetParam().status;
    driver.channel(4).setup_cause = GetParam().cause;
    EXPECT_EQ(states_of_a_call(),
              (Lines{state("DIALING", 0), state(GetParam().state, GetParam().mode), state("IDLE", 0)}));
    EXPECT_TRUE(holds_no(driver_calls(), "DornCallWaitForComplete(<*>"));
}

INSTANTIATE_TEST_SUITE_P(
    Unavailable, SetupFailure,
    testing::Values(Outcome{3, 0, "DISCONNECTED", kUnavailable}, Outcome{3, 257, "DISCONNECTED", kUnavailable},
                    Outcome{3, 260, "DISCONNECTED", kUnavailable}, Outcome{3, 262, "DISCONNECTED", kUnavailable},
                    Outcome{3, 264, "DISCONNECTED", kUnavailable}, Outcome{3, 267, "DISCONNECTED", kUnavailable},
                    Outcome{3, 339, "DISCONNECTED", kUnavailable},
                    Outcome{3, 0xFFFFFFFF, "DISCONNECTED", kUnavailable}));
INSTANTIATE_TEST_SUITE_P(NoDialTone, SetupFailure,
                         testing::Values(Outcome{3, 258, "DISCONNECTED", kNoDialTone},
                                         Outcome{3, 259, "DISCONNECTED", kNoDialTone},
                                         Outcome{3, 265, "DISCONNECTED", kNoDialTone},
                                         Outcome{3, 266, "DISCONNECTED", kNoDialTone}));
INSTANTIATE_TEST_SUITE_P(NoTrunk, SetupFailure, testing::Values(Outcome{3, 261, "BUSY", LINEBUSYMODE_TRUNK}));
INSTANTIATE_TEST_SUITE_P(OtherStatus, SetupFailure,
                         testing::Values(Outcome{1, 258, "DISCONNECTED", kUnavailable},
                                         Outcome{2, 261, "DISCONNECTED", kUnavailable},
                                         Outcome{4, 3, "DISCONNECTED", kUnavailable},
                                         Outcome{7, 265, "DISCONNECTED", kUnavailable},
                                         Outcome{0xFFFFFFFF, 0, "DISCONNECTED", kUnavailable}));

// ---- the far end ----------------------------------------------------------------------------------------------------

TEST_P(CallOutcome, IsReportedAndTheCallIsOver) {
    driver.channel(4).complete_status = GetParam().status;
    driver.channel(4).complete_cause = GetParam().cause;
    EXPECT_EQ(states_of_a_call(), (Lines{state("DIALING", 0), state("PROCEEDING", 0),
                                         state(GetParam().state, GetParam().mode), state("IDLE", 0)}));
}

INSTANTIATE_TEST_SUITE_P(Busy, CallOutcome,
                         testing::Values(Outcome{0, 301, "BUSY", LINEBUSYMODE_STATION},
                                         Outcome{0, 302, "BUSY", LINEBUSYMODE_STATION},
                                         Outcome{0, 303, "BUSY", LINEBUSYMODE_TRUNK}));
INSTANTIATE_TEST_SUITE_P(Ringback, CallOutcome,
                         testing::Values(Outcome{0, 308, "RINGBACK", 0}, Outcome{0, 309, "RINGBACK", 0}));
INSTANTIATE_TEST_SUITE_P(NoAnswer, CallOutcome,
                         testing::Values(Outcome{0, 325, "DISCONNECTED", LINEDISCONNECTMODE_NOANSWER}));
INSTANTIATE_TEST_SUITE_P(SpecialInformation, CallOutcome,
                         testing::Values(Outcome{0, 327, "SPECIALINFO", LINESPECIALINFO_CUSTIRREG},
                                         Outcome{0, 329, "SPECIALINFO", LINESPECIALINFO_CUSTIRREG},
                                         Outcome{0, 330, "SPECIALINFO", LINESPECIALINFO_REORDER},
                                         Outcome{0, 331, "SPECIALINFO", LINESPECIALINFO_NOCIRCUIT}));
INSTANTIATE_TEST_SUITE_P(
    AnyOtherCause, CallOutcome,
    testing::Values(Outcome{0, 0, "DISCONNECTED", kUnavailable}, Outcome{0, 300, "DISCONNECTED", kUnavailable},
                    Outcome{0, 304, "DISCONNECTED", kUnavailable}, Outcome{0, 307, "DISCONNECTED", kUnavailable},
                    Outcome{0, 310, "DISCONNECTED", kUnavailable}, Outcome{0, 324, "DISCONNECTED", kUnavailable},
                    Outcome{0, 326, "DISCONNECTED", kUnavailable}, Outcome{0, 328, "DISCONNECTED", kUnavailable},
                    Outcome{0, 332, "DISCONNECTED", kUnavailable}, Outcome{0, 338, "DISCONNECTED", kUnavailable},
                    Outcome{0, 340, "DISCONNECTED", kUnavailable}, Outcome{0, 258, "DISCONNECTED", kUnavailable}));
INSTANTIATE_TEST_SUITE_P(
    OtherStatus, CallOutcome,
    testing::Values(Outcome{4, 3, "DISCONNECTED", kNoDialTone}, Outcome{4, 2, "DISCONNECTED", kUnavailable},
                    Outcome{4, 4, "DISCONNECTED", kUnavailable}, Outcome{4, 301, "DISCONNECTED", kUnavailable},
                    Outcome{3, 3, "DISCONNECTED", kUnavailable}, Outcome{3, 258, "DISCONNECTED", kUnavailable},
                    Outcome{1, 339, "DISCONNECTED", kUnavailable}, Outcome{2, 301, "DISCONNECTED", kUnavailable},
                    Outcome{6, 339, "DISCONNECTED", kUnavailable}, Outcome{7, 339, "DISCONNECTED", kUnavailable}));

class LineStateAtTheAnswer : public OutgoingCall, public testing::WithParamInterface<uint32_t> {};

TEST_P(LineStateAtTheAnswer, DisconnectsTheCallUnlessItIsConnected) {
    driver.channel(4).line_state = GetParam();
    EXPECT_EQ(states_of_a_call(), (Lines{state("DIALING", 0), state("PROCEEDING", 0),
                                         state("DISCONNECTED", kUnavailable), state("IDLE", 0)}));
}

INSTANTIATE_TEST_SUITE_P(NotConnected, LineStateAtTheAnswer, testing::Values(0u, 1u, 3u, 0x102u));

TEST_F(OutgoingCall, IsConnectedWhenTheLineIs) {
    EXPECT_EQ(states_of_a_call(), (Lines{state("DIALING", 0), state("PROCEEDING", 0), state("CONNECTED", 1)}));
    // A connected line is no longer being dialled.
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INUSE));
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineReset(<*>"));
}

// ---- after a failure ------------------------------------------------------------------------------------------------

TEST_F(OutgoingCall, ThatFailedIsClearedWithTheLockHeld) {
    driver.channel(4).complete_cause = 301;
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    Lines whole = lines(of_out_call_thread(handshake()));
    auto outcome = std::find(whole.begin(), whole.end(), "LINE_CALLSTATE(HTLINE1, HTCALL1, BUSY, 0x1, 0x20)");
    EXPECT_PRED2(read_alike, Lines(outcome, whole.end()),
                 (Lines{
                     "LINE_CALLSTATE(HTLINE1, HTCALL1, BUSY, 0x1, 0x20)",
                     "ReleaseMutex(LOCK)",
                     "WaitForSingleObject(LOCK, INFINITE)",
                     "DornLineTerminateCallISDN(CHAN4)",
                     "DornLineReset(CHAN4, <*>",
                     "WaitForSingleObject(LOCK, INFINITE)",
                     "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
                     "ReleaseMutex(LOCK)",
                     "SetEvent(WORKER_IDLE)",
                     "ReleaseMutex(LOCK)",
                 }));
}

TEST_F(OutgoingCall, ThatFailedSendsNoNumberOfCalls) {
    driver.channel(4).setup_status = 3;
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(of_out_call_thread(events()).without({"LINE_CALLSTATE(<*>"}), {}));
}

TEST_F(OutgoingCall, ThatFailedLeavesTheLineIdleWithItsCallHandle) {
    driver.channel(4).setup_status = 3;
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_EQ(active_calls(), 0u);
    EXPECT_EQ(make_call(), failed(LINEERR_INUSE));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    driver.channel(4).setup_status = 0;
    place_call(0);
}

TEST_F(OutgoingCall, IsSetUpAndAwaitedWithoutTheLock) {
    driver.gate("DornCallSetup").close();
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(driver.gate("DornCallSetup").holds_somebody());
    EXPECT_EQ(active_calls(), 1u);
    driver.gate("DornCallWaitForComplete").close();
    driver.gate("DornCallSetup").open();
    EXPECT_TRUE(driver.gate("DornCallWaitForComplete").holds_somebody());
    EXPECT_EQ(active_calls(), 1u);
    driver.gate("DornCallWaitForComplete").open();
    worker_ends();
}

// ---- exceptions -----------------------------------------------------------------------------------------------------

TEST_F(OutgoingCall, WhoseSetupThrowsCanBeClosed) {
    driver.on.DornCallSetup = [](DornLine*, DornCallRecord*) -> int { throw 1; };
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(comes("[1] out_call_thread: Exception"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(OutgoingCall, WhoseWaitFaultsCanBeDropped) {
    driver.on.DornCallWaitForComplete = [](DornLine*, DornCallRecord*) { return cause_access_violation(), 0; };
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(comes("[1] out_call_thread: Exception"));
    EXPECT_EQ(drop(), 0x21);
    EXPECT_EQ(close_call(), 0);
}

TEST_F(OutgoingCall, WhoseResetThrowsCanBeClosed) {
    driver.channel(4).setup_status = 3;
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(comes("[1] out_call_thread: Exception"));
    EXPECT_TRUE(comes("SetEvent(WORKER_IDLE)", 2));
    driver.on.DornLineReset = ScriptedDriver::usual().DornLineReset;
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
}
