// Attaching, ringing, answering, placing and clearing calls.
#include "support.h"

using softboard::Thread;

constexpr char RINGS_QUICKLY[] = "[board]\nring_interval_ms=50\n";

// A line that calls a number until the test's end: the cause is in *cause once the thread is through.
static std::unique_ptr<Thread> calling(DornLine* line, const char* number, KXResult* result) {
    return std::make_unique<Thread>([=] {
        set_up(line, number);
        *result = wait_for_complete(line);
    });
}

static void alert_until_ended(DornLine* line, const Thread& thread) {
    while (!thread.ended()) alert(line);
}

// ---- lines --------------------------------------------------------------------------------------------------------

TEST(Lines, TheDefaultBoardHasOneModuleWithFourChannels) {
    Board board;
    for (uint32_t number = 2; number <= 126; ++number) {
        DornModuleInfoRecord record{};
        record.dwModule = number;
        EXPECT_EQ(DornModuleInfo(nullptr, &record), 0);
        EXPECT_EQ(record.status, uint32_t{KX_STATUS_OK});
        EXPECT_EQ(record.dwPresence[0] != 0 && record.dwPresence[1] != 0 && record.dwPresence[2] != 0, number == 2);
        EXPECT_EQ(record.dwFirstChannel, 0u);
        EXPECT_EQ(record.dwChannelCount, number == 2 ? 4u : 0u);
    }
    for (uint32_t channel = 0; channel < 4; ++channel) EXPECT_NE(attach(channel), nullptr);
    EXPECT_EQ(attach(4), nullptr);
}

TEST(Lines, ChannelAndUnitNumbersAreTwoNumberings) {
    Board board("[module.3]\nfirst_channel=40\nchannels=2\nfirst_unit=7\n[channel.41]\nunit=100\n");
    EXPECT_EQ(DornLineUnitGet(attach(40)), 7u);
    EXPECT_EQ(DornLineUnitGet(attach(41)), 100u);
    EXPECT_EQ(attach(7), nullptr);
    EXPECT_EQ(alert_unit(7), 0);
    EXPECT_EQ(alert_unit(40), -1);
}

TEST(Lines, CapabilitiesCanBeTakenAway) {
    Board board("[channel.1]\nmissing_capabilities=20, 41\n");
    DornLine* const whole = attach(0);
    DornLine* const lacking = attach(1);
    for (const int capability : {14, 20, 41}) EXPECT_NE(DornLineCapCheck(whole, capability), 0);
    EXPECT_NE(DornLineCapCheck(lacking, 14), 0);
    EXPECT_EQ(DornLineCapCheck(lacking, 20), 0);
    EXPECT_EQ(DornLineCapCheck(lacking, 41), 0);
    EXPECT_EQ(DornLineCapCheck(whole, 99), 0);
}

TEST(Lines, AChannelIsAttachedOnceAtATime) {
    Board board;
    DornLine* const line = attach(0);
    EXPECT_EQ(attach(0), nullptr);
    EXPECT_EQ(detach(line), 0);
    EXPECT_NE(attach(0), nullptr);
}

TEST(Lines, AResetWantsAReadableConfigurationOrNone) {
    Board board;
    DornLine* const line = attach(0);
    EXPECT_EQ(reset(line, "").status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(reset(line, board.file("softboard.ini")).status, uint32_t{KX_STATUS_OK});
    const KXResult missing = reset(line, board.file("kxcall.cfg"));
    EXPECT_LT(static_cast<int32_t>(missing.line_status), 0);
    EXPECT_NE(missing.status, uint32_t{KX_STATUS_OK});
    EXPECT_NE(std::string(DornErrorMessage(line)).find("kxcall.cfg"), std::string::npos);
}

TEST(Lines, TheCallControlProtocolIsTheConfiguredOne) {
    Board board("[channel.1]\nprotocol=3\n");
    DornProtocolRecord record{};
    EXPECT_EQ(DornLineCCProtocolGet(attach(0), &record), 0);
    EXPECT_EQ(record.dwProtocol, 12u);
    DornLineCCProtocolGet(attach(1), &record);
    EXPECT_EQ(record.dwProtocol, 3u);
}

// ---- ringing ------------------------------------------------------------------------------------------------------

TEST(Ringing, EveryRingIsOneReturnWithTheCallersData) {
    Board board(std::string(RINGS_QUICKLY) +
                "[channel.0]\nname=Caller\n[channel.1]\ninformation=a%20b\nsecond_called=2nd\n");
    DornLine* const caller = attach(0);
    DornLine* const called = attach(1);
    KXResult result{};
    const auto call = calling(caller, "T 10-1", &result);
    for (int ring = 0; ring < 3; ++ring) {
        const DornWaitForCallRecord record = wait_for_call(called);
        EXPECT_EQ(record.status, uint32_t{KX_STATUS_OK});
        EXPECT_EQ(record.line_status, 0u);
        EXPECT_STREQ(record.callData.szCalledNumber, "101");
        EXPECT_STREQ(record.callData.szSecondCalled, "2nd");
        EXPECT_STREQ(record.callData.szCallingNumber, "100");
        EXPECT_STREQ(record.callData.szCallingName, "Caller");
        EXPECT_STREQ(record.callData.szInformation, "a%20b");
    }
    answer(called);
}

TEST(Ringing, RingsThatNobodyWaitedForAreRungOnceAtTheNextWait) {
    Board board("[board]\nring_interval_ms=60000\nno_answer_ms=3600000\n");
    BoardTime time;
    DornLine* const caller = attach(0);
    DornLine* const called = attach(1);
    KXResult result{};
    const auto call = calling(caller, "101", &result);
    EXPECT_EQ(wait_for_call(called).status, uint32_t{KX_STATUS_OK});
    time.put_forward(150);  // two more rings and a half
    EXPECT_EQ(wait_for_call(called).line_status, 0u);
    EXPECT_EQ(wait_for_call(called, 50).line_status, WAIT_FOR_CALL_TIMEOUT);
    time.put_forward(60);
    EXPECT_EQ(wait_for_call(called).line_status, 0u);
    answer(called);
}

TEST(Ringing, ACallerWhoGivesUpLeavesTheWaiterToItsTimeOut) {
    Board board(RINGS_QUICKLY);
    DornLine* const caller = attach(0);
    DornLine* const called = attach(1);
    KXResult result{};
    const auto call = calling(caller, "101", &result);
    EXPECT_EQ(wait_for_call(called).line_status, 0u);
    alert_until_ended(caller, *call);
    EXPECT_EQ(result.status, uint32_t{KX_STATUS_ALERT});
    EXPECT_EQ(terminate(caller).status, uint32_t{KX_STATUS_OK});
    DornWaitForCallRecord record = wait_for_call(called, 200);
    EXPECT_EQ(record.status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(record.line_status, WAIT_FOR_CALL_TIMEOUT);
    EXPECT_EQ(answer(called).status, uint32_t{KX_STATUS_ERROR});
}

TEST(Ringing, ALineThatIsOpenedWhileItIsCalledRings) {
    Board board(RINGS_QUICKLY);
    KXResult result{};
    const auto call = calling(attach(0), "101", &result);
    DornLine* const called = attach(1);
    EXPECT_EQ(reset(called).status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(wait_for_call(called).line_status, 0u);
    EXPECT_EQ(answer(called).status, uint32_t{KX_STATUS_OK});
}

TEST(Ringing, AnAlertEndsTheWaitInProgressAndLeavesNothingBehind) {
    Board board;
    DornLine* const line = attach(1);
    alert(line);
    alert(line);
    DornWaitForCallRecord record{};
    Thread waiter([&] { record = wait_for_call(line); });
    alert_until_ended(line, waiter);
    EXPECT_EQ(record.status, uint32_t{KX_STATUS_ALERT});
    EXPECT_EQ(wait_for_call(line, 30).line_status, WAIT_FOR_CALL_TIMEOUT);
}

// ---- answering ----------------------------------------------------------------------------------------------------

TEST(Answering, ConnectsBothEnds) {
    Board board;
    DornLine* const caller = attach(0);
    DornLine* const called = attach(1);
    EXPECT_NE(*DornLineStateAccess(caller), DORN_LINE_STATE_CONNECTED);
    KXResult answered{KX_STATUS_ERROR, 0};
    {
        const auto answerer = answering(called, &answered);
        EXPECT_EQ(dial(caller, "101"), CONNECTED);
    }
    EXPECT_EQ(answered.status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(*DornLineStateAccess(caller), DORN_LINE_STATE_CONNECTED);
    EXPECT_EQ(*DornLineStateAccess(called), DORN_LINE_STATE_CONNECTED);
}

TEST(Answering, WhenOneEndClearsTheOtherSeesItAndIsFreeOnceItClearsToo) {
    Board board;
    const ConnectedLines lines(0, 1, "101");
    EXPECT_EQ(terminate(lines.caller).status, uint32_t{KX_STATUS_OK});
    EXPECT_NE(*DornLineStateAccess(lines.called), DORN_LINE_STATE_CONNECTED);
    DornCallRecord released{};
    DornCallWaitForRelease(lines.called, &released);
    EXPECT_EQ(released.status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(dial(lines.caller, "101"), 301u);
    EXPECT_EQ(reset(lines.called).status, uint32_t{KX_STATUS_OK});
    const auto answerer = answering(lines.called);
    EXPECT_EQ(dial(lines.caller, "101"), CONNECTED);
}

// ---- calling ------------------------------------------------------------------------------------------------------

TEST(Calling, ALineWithACallIsBusy) {
    Board board;
    const ConnectedLines lines(0, 1, "101");
    DornLine* const third = attach(2);
    EXPECT_EQ(dial(third, "101"), 301u);
    EXPECT_EQ(dial(third, "100"), 301u);
    EXPECT_EQ(dial(third, "102"), 301u);  // its own number
}

TEST(Calling, ALineThatNobodyAnswersIsGivenUp) {
    Board board("[board]\nno_answer_ms=100\n");
    DornLine* const caller = attach(0);
    EXPECT_EQ(dial(caller, "101"), 325u);
    DornLine* const called = attach(1);
    EXPECT_EQ(dial(caller, "101"), 325u);
    EXPECT_EQ(wait_for_call(called, 30).line_status, WAIT_FOR_CALL_TIMEOUT);
}

TEST(Calling, ANumberThatNobodyHasGetsTheSpecialInformationTone) {
    Board board;
    DornLine* const caller = attach(0);
    EXPECT_EQ(dial(caller, "999"), 327u);
    EXPECT_EQ(dial(caller, ""), 327u);
}

TEST(Calling, ALineWithoutDialToneFailsAtTheSetUp) {
    Board board("[channel.0]\ndial_tone=no\n");
    const KXResult result = set_up(attach(0), "101");
    EXPECT_EQ(result.status, uint32_t{KX_STATUS_ERROR_DIAL});
    EXPECT_EQ(result.line_status, 258u);
}

TEST(Calling, DigitsMayComeInPieces) {
    Board board;
    DornLine* const caller = attach(0);
    const auto answerer = answering(attach(1));
    EXPECT_EQ(set_up(caller, nullptr).status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(set_up(caller, "10").status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(dial(caller, "1"), CONNECTED);
}

TEST(Calling, ALineThatIsOffHookIsBusy) {
    Board board;
    set_up(attach(1), nullptr);
    EXPECT_EQ(dial(attach(0), "101"), 301u);
}

TEST(Calling, OnARingingLineIsRefused) {
    Board board(RINGS_QUICKLY);
    DornLine* const called = attach(1);
    KXResult result{};
    const auto call = calling(attach(0), "101", &result);
    EXPECT_EQ(wait_for_call(called).line_status, 0u);
    const KXResult refused = set_up(called, "102");
    EXPECT_EQ(refused.status, uint32_t{KX_STATUS_ERROR});
    EXPECT_EQ(refused.line_status, uint32_t{APIERR_RINGING});
    EXPECT_EQ(answer(called).status, uint32_t{KX_STATUS_OK});
}

TEST(Calling, AResetStopsTheRinging) {
    Board board(RINGS_QUICKLY);
    DornLine* const caller = attach(0);
    DornLine* const called = attach(1);
    KXResult result{};
    {
        const auto call = calling(caller, "101", &result);
        EXPECT_EQ(wait_for_call(called).line_status, 0u);
        EXPECT_EQ(reset(caller).status, uint32_t{KX_STATUS_OK});
    }
    EXPECT_EQ(result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_EQ(wait_for_call(called, 100).line_status, WAIT_FOR_CALL_TIMEOUT);
}
