// The live state of a line, its address and its call.
#include <cstddef>

#include "caps_answer.h"

using namespace harness;

namespace {

// The records as TAPI 2.0 has them, which are written whatever room there is said to be.
constexpr size_t kAddressStatusSize = 64, kLineStatusSize = 88, kCallStatusSize = 56;

using AddressAnswer = Answer<LINEADDRESSSTATUS>;
using LineAnswer = Answer<LINEDEVSTATUS>;
using CallAnswer = Answer<LINECALLSTATUS>;

AddressAnswer expected_address(DWORD active_calls) {
    AddressAnswer answer;
    answer->dwNeededSize = answer->dwUsedSize = kAddressStatusSize;
    answer->dwNumActiveCalls = active_calls;
    answer->dwAddressFeatures = 2;
    return answer;
}

LineAnswer expected_line(DWORD active_calls) {
    LineAnswer answer;
    answer->dwNeededSize = answer->dwUsedSize = kLineStatusSize;
    answer->dwNumActiveCalls = active_calls;
    answer->dwDevStatusFlags = 5;
    return answer;
}

CallAnswer expected_idle_call(DWORD state = LINECALLSTATE_IDLE) {
    CallAnswer answer;
    answer->dwNeededSize = answer->dwUsedSize = kCallStatusSize;
    answer->dwCallState = state;
    return answer;
}

CallAnswer expected_call(DWORD state, DWORD mode, DWORD features) {
    CallAnswer answer = expected_idle_call(state);
    answer->dwCallStateMode = mode;
    answer->dwCallFeatures = features;
    return answer;
}

class Status : public QueryFixture {
  protected:
    LONG address_status(HDRVLINE asked, AddressAnswer& answer, DWORD address = 0) {
        return tsp.TSPI_lineGetAddressStatus(asked, address, &answer.caps);
    }
    LONG line_status(HDRVLINE asked, LineAnswer& answer) { return tsp.TSPI_lineGetLineDevStatus(asked, &answer.caps); }
    LONG call_status(HDRVCALL asked, CallAnswer& answer) { return tsp.TSPI_lineGetCallStatus(asked, &answer.caps); }

    testing::AssertionResult counts_calls(DWORD expected) {
        AddressAnswer of_address;
        LineAnswer of_line;
        if (address_status(line(0), of_address) != 0 || line_status(line(0), of_line) != 0)
            return testing::AssertionFailure() << "refused";
        Lines wrong = differences(expected_address(expected), of_address);
        for (const std::string& place : differences(expected_line(expected), of_line)) wrong.push_back("line " + place);
        if (wrong.empty()) return testing::AssertionSuccess();
        return testing::AssertionFailure() << testing::PrintToString(wrong);
    }
    testing::AssertionResult is_call(const CallAnswer& expected, CallAnswer& seen) {
        LONG result = call_status(call(0), seen);
        Lines wrong = differences(expected, seen);
        if (result == 0 && wrong.empty()) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "result " << result << ", differs " << testing::PrintToString(wrong)
                                           << text(": state 0x%lX, mode 0x%lX, features 0x%lX", seen->dwCallState,
                                                   seen->dwCallStateMode, seen->dwCallFeatures);
    }
    testing::AssertionResult is_call(const CallAnswer& expected) {
        CallAnswer seen;
        return is_call(expected, seen);
    }

    // Asks TAPI's way, from inside the report of a state.
    void ask_when_reported(DWORD state, CallAnswer& answer) {
        tapi.on_event = [this, state, &answer](const LineEvent& event) {
            if (event.message != LINE_CALLSTATE || event.parameters[0] != state) return;
            call_status(call(0), answer);
            note("asked");
        };
    }
};

class AddressStatus : public Status {};
class LineStatus : public Status {};
class CallStatus : public Status {};
class CallAddress : public Status {};

}  // namespace

// ---- how many calls -------------------------------------------------------------------------------------------------

TEST_F(Status, CountsNoCallOnAnIdleLine) {
    EXPECT_TRUE(counts_calls(0));
}

TEST_F(Status, CountsACallFromItsOfferToItsEnd) {
    offer_call(0);
    EXPECT_TRUE(counts_calls(1));
    EXPECT_EQ(accept(), 0x21);
    EXPECT_TRUE(counts_calls(1));
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(counts_calls(1));
    // A dropped call is there until it is closed.
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(counts_calls(1));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(counts_calls(0));
}

TEST_F(Status, CountsAnOutgoingCallUntilItHasFailed) {
    place_call_that_lasts();
    EXPECT_TRUE(counts_calls(1));
    driver.on.DornCallSetup = ScriptedDriver::usual().DornCallSetup;
    driver.channel(4).complete_cause = 301;
    driver.release(4);
    worker_ends();
    // TAPI's handle is still there; the line is idle.
    EXPECT_TRUE(counts_calls(0));
}

TEST_F(Status, CountsNoCallWithoutAHandleThoughTheLineIsBusy) {
    EXPECT_EQ(make_call(L"$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(counts_calls(0));
}

TEST_F(Status, CountsTheCallsUnderTheLock) {
    offer_call(0);
    before_the_lock_is_taken([this] {
        Call closing([this] { return close_call(); });
        EXPECT_EQ(closing.result(), 0);
    });
    AddressAnswer of_address;
    EXPECT_EQ(address_status(line(0), of_address), 0);
    EXPECT_EQ(of_address->dwNumActiveCalls, 0u);

    end_the_pause();
    offer_call(0);
    before_the_lock_is_taken([this] {
        Call closing([this] { return close_call(); });
        EXPECT_EQ(closing.result(), 0);
    });
    LineAnswer of_line;
    EXPECT_EQ(line_status(line(0), of_line), 0);
    EXPECT_EQ(of_line->dwNumActiveCalls, 0u);
}

TEST_F(Status, BelongsToTheLineThatIsAsked) {
    open_waiting_line(1);
    offer_call(1);
    EXPECT_TRUE(counts_calls(0));
    LineAnswer of_line;
    EXPECT_EQ(line_status(line(1), of_line), 0);
    EXPECT_EQ(of_line->dwNumActiveCalls, 1u);
    CallAnswer of_call;
    EXPECT_EQ(call_status(call(1), of_call), 0);
    EXPECT_EQ(of_call->dwCallState, 2u);
}

TEST_F(Status, ChangesNothing) {
    offer_call(0);
    EXPECT_TRUE(leaves_the_line_as_it_is([this] {
        AddressAnswer of_address;
        LineAnswer of_line;
        CallAnswer of_call;
        DWORD address = 0;
        EXPECT_EQ(address_status(line(0), of_address), 0);
        EXPECT_EQ(line_status(line(0), of_line), 0);
        EXPECT_EQ(call_status(call(0), of_call), 0);
        EXPECT_EQ(tsp.TSPI_lineGetCallAddressID(call(0), &address), 0);
    }));
}

// ---- the address ----------------------------------------------------------------------------------------------------

TEST_F(AddressStatus, IsReadInOneHoldOfTheLock) {
    AddressAnswer answer;
    EXPECT_EQ(address_status(line(0), answer), 0);
    EXPECT_TRUE(reads(query_story(), joined({valid_line(kNoCall, "TSPI_lineGetAddressStatus"),
                                             kOneHoldOfTheLock,
                                             {"[17] " + kNoCall + "TSPI_lineGetAddressStatus(0) Good"}})));
}

TEST_F(AddressStatus, IsTheSameForEveryAddress) {
    for (DWORD address : {1ul, 77ul, 0xFFFFFFFFul}) {
        AddressAnswer answer;
        EXPECT_EQ(address_status(line(0), answer, address), 0);
        EXPECT_EQ(differences(expected_address(0), answer), Lines{});
    }
}

TEST_F(AddressStatus, DoesNotDependOnTheRoomThatThereIsSaidToBe) {
    for (DWORD total : {0ul, 12ul, 63ul, 0xFFFFFFFFul}) {
        AddressAnswer answer, expected = expected_address(0);
        answer->dwTotalSize = expected->dwTotalSize = total;
        EXPECT_EQ(address_status(line(0), answer), 0);
        EXPECT_EQ(differences(expected, answer), Lines{});
    }
}

TEST_F(AddressStatus, NeedsAValidLine) {
    AddressAnswer answer;
    EXPECT_EQ(address_status(nullptr, answer), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(answer.untouched_from(0));
    EXPECT_TRUE(reads(query_story(),
                      no_valid_line("TSPI_lineGetAddressStatus", "[4] TSPI_lineGetAddressStatus - Invalid Line Handle",
                                    "(-2147483605) Failed")));
}

TEST_F(AddressStatus, IsRefusedForMemoryThatIsNoLine) {
    std::vector<uint8_t> copy = line_memory();
    AddressAnswer answer;
    EXPECT_EQ(address_status(reinterpret_cast<HDRVLINE>(copy.data()), answer), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(answer.untouched_from(0));
    EXPECT_TRUE(holds_no(query_story(), "WaitForSingleObject(<*>"));
    EXPECT_TRUE(holds(traces(), "[17] hdLine(<*>): TSPI_lineGetAddressStatus(-2147483605) Failed"));
}

TEST_F(AddressStatus, CatchesAFault) {
    EXPECT_TRUE(
        survives("TSPI_lineGetAddressStatus", [this] { return tsp.TSPI_lineGetAddressStatus(line(0), 0, nullptr); }));
    EXPECT_TRUE(survives("TSPI_lineGetAddressStatus", [this] {
        AddressAnswer answer;
        return address_status(wild_line(), answer);
    }));
    EXPECT_TRUE(counts_calls(0));
}

// ---- the line -------------------------------------------------------------------------------------------------------

TEST_F(LineStatus, IsReadInOneHoldOfTheLockWithoutACheckOfTheHandle) {
    LineAnswer answer;
    EXPECT_EQ(line_status(line(0), answer), 0);
    EXPECT_TRUE(reads(query_story(), joined({{"[16] " + kNoCall + "TSPI_lineGetLineDevStatus"},
                                             kOneHoldOfTheLock,
                                             {"[17] " + kNoCall + "TSPI_lineGetLineDevStatus(0) Good"}})));
}

TEST_F(LineStatus, DoesNotDependOnTheRoomThatThereIsSaidToBe) {
    for (DWORD total : {0ul, 12ul, 87ul, 0xFFFFFFFFul}) {
        LineAnswer answer, expected = expected_line(0);
        answer->dwTotalSize = expected->dwTotalSize = total;
        EXPECT_EQ(line_status(line(0), answer), 0);
        EXPECT_EQ(differences(expected, answer), Lines{});
    }
}

TEST_F(LineStatus, NeedsAHandle) {
    LineAnswer answer;
    EXPECT_EQ(line_status(nullptr, answer), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(answer.untouched_from(0));
    EXPECT_TRUE(reads(query_story(), {
                                         "[16] TSPI_lineGetLineDevStatus",
                                         "[2] TSPI_lineGetLineDevStatus pLine=NULL",
                                         "[9] TSPI_lineGetLineDevStatus(-2147483605)",
                                     }));
}

TEST_F(LineStatus, UsesAnyOtherHandleAsGiven) {
    offer_call(0);
    std::vector<uint8_t> copy = line_memory();
    LineAnswer answer;
    EXPECT_EQ(line_status(reinterpret_cast<HDRVLINE>(copy.data()), answer), 0);
    EXPECT_EQ(differences(expected_line(1), answer), Lines{});
    EXPECT_TRUE(lock_is_free());
}

TEST_F(LineStatus, CatchesAFault) {
    EXPECT_TRUE(
        survives("TSPI_lineGetLineDevStatus", [this] { return tsp.TSPI_lineGetLineDevStatus(line(0), nullptr); }));
    EXPECT_TRUE(survives("TSPI_lineGetLineDevStatus", [this] {
        LineAnswer answer;
        return line_status(wild_line(), answer);
    }));
    EXPECT_TRUE(counts_calls(0));
}

// ---- the call's address ---------------------------------------------------------------------------------------------

TEST_F(CallAddress, IsAlwaysTheFirst) {
    for (HDRVCALL asked : {call(0), HDRVCALL{nullptr}}) {
        Answer<DWORD> answer, expected;
        expected.caps = 0;
        EXPECT_EQ(tsp.TSPI_lineGetCallAddressID(asked, &answer.caps), 0);
        EXPECT_EQ(differences(expected, answer), Lines{});
    }
    EXPECT_TRUE(reads(query_story(), {
                                         "[16] " + kNoCall + "TSPI_lineGetCallAddressID",
                                         "[17] " + kNoCall + "TSPI_lineGetCallAddressID(0) Good",
                                         "[16] TSPI_lineGetCallAddressID",
                                         "[17] TSPI_lineGetCallAddressID(0) Good",
                                     }));
}

TEST_F(CallAddress, CatchesAFault) {
    EXPECT_TRUE(
        survives("TSPI_lineGetCallAddressID", [this] { return tsp.TSPI_lineGetCallAddressID(call(0), nullptr); }));
    EXPECT_TRUE(survives("TSPI_lineGetCallAddressID", [this] {
        DWORD address = 0;
        return tsp.TSPI_lineGetCallAddressID(wild_call(), &address);
    }));
}

// ---- the call -------------------------------------------------------------------------------------------------------

TEST_F(CallStatus, OfNoCallIsNothingButIdle) {
    EXPECT_TRUE(is_call(expected_idle_call()));
}

TEST_F(CallStatus, OfAnOfferedCallLetsItBeTaken) {
    offer_call(0);
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE, 0xC5)));
}

TEST_F(CallStatus, OfAnAcceptedCallLetsItBeAnswered) {
    offer_call(0);
    EXPECT_EQ(accept(), 0x21);
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_ACCEPTED, 0, 0xC4)));
}

TEST_F(CallStatus, OfAnAcceptedCallThatRingsAgainIsTheSame) {
    offer_call_and_wait();
    EXPECT_EQ(accept(), 0x21);
    ring_again();
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_ACCEPTED, 0, 0xC4)));
}

TEST_F(CallStatus, OfAnAnsweredCallLetsItBeDropped) {
    take_call(0);
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE, 0xC0)));
}

TEST_F(CallStatus, OfAPlacedCallIsThatOfAnAnsweredOne) {
    place_call(0);
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE, 0xC0)));
}

TEST_F(CallStatus, OfACallThatIsRequestedAllowsDialling) {
    driver.gate("DornLineCCProtocolGet").close();
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(driver.gate("DornLineCCProtocolGet").holds_somebody());
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_UNKNOWN, 0, 0xC0)));
    driver.gate("DornLineCCProtocolGet").open();
    worker_ends();
}

TEST_F(CallStatus, OfACallBeingPlacedOffersOnlyToDropIt) {
    place_call_that_lasts();
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_DIALING, 0, 0x80)));
}

TEST_F(CallStatus, OfACallThatWaitsForDigitsOffersOnlyToDropIt) {
    EXPECT_EQ(make_call(L"555;"), 0x21);
    worker_ends();
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_DIALTONE, 0, 0x80)));
}

TEST_F(CallStatus, OfACallThatProceedsOffersOnlyToDropIt) {
    driver.gate("DornCallWaitForComplete").close();
    EXPECT_EQ(make_call(), 0x21);
    EXPECT_TRUE(driver.gate("DornCallWaitForComplete").holds_somebody());
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_PROCEEDING, 0, 0x80)));
    driver.gate("DornCallWaitForComplete").open();
    worker_ends();
}

TEST_F(CallStatus, AfterAFailedCallIsIdleAgain) {
    driver.channel(4).complete_cause = 301;
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(is_call(expected_idle_call()));
}

TEST_F(CallStatus, AfterADropIsIdleAgain) {
    offer_call(0);
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(is_call(expected_idle_call()));
}

TEST_F(CallStatus, OfADisconnectedCallOffersToDialOnceTheCallIsNotBeingPlaced) {
    place_call_that_lasts();
    CallAnswer answer;
    ask_when_reported(LINECALLSTATE_DISCONNECTED, answer);
    EXPECT_EQ(drop(), 0x21);
    worker_ends();
    EXPECT_TRUE(holds(all_of(NOTE), "asked"));
    EXPECT_EQ(differences(expected_call(LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_UNAVAIL, 0xC0), answer),
              Lines{});
}

namespace {

struct Failure {
    DWORD cause, state, mode;
};

void PrintTo(const Failure& failure, std::ostream* out) {
    *out << "cause " << failure.cause;
}

class StatusOfAFailingCall : public CallStatus, public testing::WithParamInterface<Failure> {};

}  // namespace

TEST_P(StatusOfAFailingCall, TellsTheReasonAndOffersOnlyToDropIt) {
    driver.channel(4).complete_cause = GetParam().cause;
    CallAnswer answer;
    ask_when_reported(GetParam().state, answer);
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(holds(all_of(NOTE), "asked"));
    EXPECT_EQ(differences(expected_call(GetParam().state, GetParam().mode, 0x80), answer), Lines{});
}

INSTANTIATE_TEST_SUITE_P(EachState, StatusOfAFailingCall,
                         testing::Values(Failure{301, LINECALLSTATE_BUSY, LINEBUSYMODE_STATION},
                                         Failure{303, LINECALLSTATE_BUSY, LINEBUSYMODE_TRUNK},
                                         Failure{308, LINECALLSTATE_RINGBACK, 0},
                                         Failure{325, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NOANSWER},
                                         Failure{330, LINECALLSTATE_SPECIALINFO, LINESPECIALINFO_REORDER}));

TEST_F(CallStatus, DoesNotDependOnTheRoomThatThereIsSaidToBe) {
    offer_call(0);
    for (DWORD total : {0ul, 12ul, 55ul, 0xFFFFFFFFul}) {
        CallAnswer answer, expected = expected_call(LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE, 0xC5);
        answer->dwTotalSize = expected->dwTotalSize = total;
        EXPECT_TRUE(is_call(expected, answer));
    }
}

TEST_F(CallStatus, IsReadInOneHoldOfTheLock) {
    EXPECT_TRUE(is_call(expected_idle_call()));
    offer_call(0);
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE, 0xC5)));
    EXPECT_TRUE(reads(query_story(), joined({valid_line(kNoCall, "TSPI_lineGetCallStatus"),
                                             kOneHoldOfTheLock,
                                             {"[17] " + kNoCall + "TSPI_lineGetCallStatus(0) Good"},
                                             valid_line(kCall, "TSPI_lineGetCallStatus"),
                                             kOneHoldOfTheLock,
                                             {"[17] " + kCall + "TSPI_lineGetCallStatus(0) Good"}})));
}

TEST_F(CallStatus, TakesTheStateBeforeTheLockAndTheRestUnderIt) {
    offer_call(0);
    CallAnswer answer, at_the_lock;
    before_the_lock_is_taken([&] {
        at_the_lock = answer;
        Call accepting([this] { return accept(); });
        EXPECT_EQ(accepting.result(), 0x21);
    });
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_OFFERING, 0, 0xC4), answer));
    EXPECT_EQ(differences(expected_idle_call(LINECALLSTATE_OFFERING), at_the_lock), Lines{});
}

TEST_F(CallStatus, TellsNoMoreOfACallThatEndsBeforeTheLockIsTaken) {
    offer_call(0);
    CallAnswer answer;
    before_the_lock_is_taken([&] {
        Call dropping([this] { return drop(); });
        EXPECT_EQ(dropping.result(), 0x21);
    });
    EXPECT_TRUE(is_call(expected_idle_call(LINECALLSTATE_OFFERING), answer));
}

TEST_F(CallStatus, NeedsAValidCall) {
    CallAnswer answer;
    EXPECT_EQ(call_status(nullptr, answer), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(answer.untouched_from(0));
    EXPECT_TRUE(
        reads(query_story(), no_valid_line("TSPI_lineGetCallStatus", "[4] TSPI_lineGetCallStatus - Invalid CallHandle",
                                           "(-2147483624) Failed")));
}

TEST_F(CallStatus, IsRefusedForMemoryThatIsNoLine) {
    std::vector<uint8_t> copy = line_memory();
    CallAnswer answer;
    EXPECT_EQ(call_status(reinterpret_cast<HDRVCALL>(copy.data()), answer), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(answer.untouched_from(0));
    EXPECT_TRUE(holds_no(query_story(), "WaitForSingleObject(<*>"));
}

TEST_F(CallStatus, CatchesAFault) {
    EXPECT_TRUE(survives("TSPI_lineGetCallStatus", [this] { return tsp.TSPI_lineGetCallStatus(call(0), nullptr); }));
    EXPECT_TRUE(survives("TSPI_lineGetCallStatus", [this] {
        CallAnswer answer;
        return call_status(wild_call(), answer);
    }));
    EXPECT_TRUE(is_call(expected_idle_call()));
}

TEST_F(CallStatus, GivesTheLockBackAfterAFaultUnderIt) {
    offer_call(0);
    LonePage page;
    EXPECT_TRUE(survives("TSPI_lineGetCallStatus", [&] {
        return tsp.TSPI_lineGetCallStatus(call(0),
                                          page.last<LINECALLSTATUS>(offsetof(LINECALLSTATUS, dwCallStateMode)));
    }));
    EXPECT_TRUE(lock_is_given_back());
    EXPECT_TRUE(is_call(expected_call(LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE, 0xC5)));
}
