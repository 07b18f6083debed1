// What reaches the driver of a dial string, and which ones are refused.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class DialString : public LineFixture {
  protected:
    // What the driver is told to dial.
    std::string dialled(const std::wstring& number) {
        EXPECT_EQ(make_call(number.c_str()), 0x21);
        worker_ends();
        return lines(driver_calls().only({"DornCallSetup(<*>"})).at(0);
    }
};

std::string setup(const std::string& number) {
    return "DornCallSetup(CHAN4, \"" + number + "\")";
}

const wchar_t* const kPrefixAndBlanks = L"T 555  1234";

// ---- by protocol ----------------------------------------------------------------------------------------------------

class ProtocolWithoutBlanks : public DialString, public testing::WithParamInterface<uint32_t> {};
class OtherProtocol : public DialString, public testing::WithParamInterface<uint32_t> {};

}  // namespace

TEST_P(ProtocolWithoutBlanks, LosesThePrefixAndOneOfTwoBlanks) {
    driver.channel(4).protocol = GetParam();
    EXPECT_EQ(dialled(kPrefixAndBlanks), setup("555 1234"));
}

INSTANTIATE_TEST_SUITE_P(From12To20, ProtocolWithoutBlanks, testing::Range(12u, 21u));

TEST_P(OtherProtocol, DialsTheStringAsItIs) {
    driver.channel(4).protocol = GetParam();
    EXPECT_EQ(dialled(kPrefixAndBlanks), setup("T 555  1234"));
}

INSTANTIATE_TEST_SUITE_P(BelowAndAbove, OtherProtocol, testing::Values(0u, 1u, 11u, 21u, 0xFFFFFFFFu));

TEST_F(DialString, IsDialledAsItIsWhenTheProtocolIsNotKnown) {
    driver.on.DornLineCCProtocolGet = [](DornLine*, DornProtocolRecord* record) {
        record->status = KX_STATUS_ERROR;
        record->dwProtocol = 12;
        return 0;
    };
    EXPECT_EQ(dialled(kPrefixAndBlanks), setup("T 555  1234"));
}

TEST_F(DialString, DependsOnTheProtocolsRecordAndNotOnTheResult) {
    driver.on.DornLineCCProtocolGet = [](DornLine*, DornProtocolRecord* record) {
        record->dwProtocol = 12;
        return -1;
    };
    EXPECT_EQ(dialled(L"T555"), setup("555"));
}

namespace {

struct Rewriting {
    const wchar_t* given;
    const char* dialled;
};

void PrintTo(const Rewriting& rewriting, std::ostream* out) {
    *out << '"' << narrow(rewriting.given) << '"';
}

class RewrittenDialString : public DialString, public testing::WithParamInterface<Rewriting> {};

}  // namespace

TEST_P(RewrittenDialString, ReachesTheDriver) {
    driver.channel(4).protocol = 12;
    EXPECT_EQ(dialled(GetParam().given), setup(GetParam().dialled));
}

INSTANTIATE_TEST_SUITE_P(Prefix, RewrittenDialString,
                         testing::Values(Rewriting{L"T555", "555"}, Rewriting{L"t555", "555"},
                                         Rewriting{L"P555", "555"}, Rewriting{L"p555", "555"},
                                         Rewriting{L"TP555", "P555"}, Rewriting{L" T555", "T555"},
                                         Rewriting{L"5T5", "5T5"}, Rewriting{L"T", ""}));
// Each blank goes, and the character that takes its place is stepped over.
INSTANTIATE_TEST_SUITE_P(Blanks, RewrittenDialString,
                         testing::Values(Rewriting{L"5 5 5", "555"}, Rewriting{L"5  5", "5 5"},
                                         Rewriting{L"5   5", "5 5"}, Rewriting{L"5    5", "5  5"},
                                         Rewriting{L" 5", "5"}, Rewriting{L"  5", " 5"}, Rewriting{L"5 ", "5"},
                                         Rewriting{L"5  ", "5 "}, Rewriting{L" ", ""}));
INSTANTIATE_TEST_SUITE_P(OtherCharacters, RewrittenDialString,
                         testing::Values(Rewriting{L"0W1!2,3", "0W1!2,3"}, Rewriting{L"+49(0)89#*", "+49(0)89#*"},
                                         Rewriting{L"ABCDabcd|^/", "ABCDabcd|^/"}, Rewriting{L"", ""}));

// ---- length ---------------------------------------------------------------------------------------------------------

TEST_F(DialString, IsCutAt255Characters) {
    EXPECT_EQ(dialled(std::wstring(300, L'7')), setup(std::string(255, '7')));
}

TEST_F(DialString, IsACompleteOneWhenItIsEmpty) {
    EXPECT_EQ(dialled(L""), setup(""));
    EXPECT_TRUE(reads_in_order(events(), {"LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                                          "LINE_CALLSTATE(HTLINE1, HTCALL1, PROCEEDING, 0x0, 0x20)",
                                          "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"}));
}

TEST_F(DialString, MayBeLeftOut) {
    EXPECT_EQ(make_call(nullptr), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(of_out_call_thread(story()),
                      {
                          "DornCallSetup(CHAN4, null)",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x8, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALTONE, 0x0, 0x20)",
                      }));
    EXPECT_TRUE(holds(traces().levels({9}), "[9] CheckDialCharacters(0)"));
}

// ---- more to follow -------------------------------------------------------------------------------------------------

TEST_F(DialString, EndsAtASemicolonWhenMoreIsToFollow) {
    EXPECT_EQ(dialled(L"555;1234"), setup("555"));
    EXPECT_TRUE(reads(of_out_call_thread(story()),
                      {
                          "DornLineCCProtocolGet(CHAN4)",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x10, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALING, 0x0, 0x20)",
                          "DornCallSetup(CHAN4, \"555\")",
                          "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x8, dwCallStateMode=0x0",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALTONE, 0x0, 0x20)",
                      }));
}

TEST_F(DialString, IsCutAtTheFirstSemicolon) {
    EXPECT_EQ(dialled(L"5;5;5"), setup("5"));
}

TEST_F(DialString, MayBeASemicolonAlone) {
    EXPECT_EQ(dialled(L";"), setup(""));
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, DIALTONE, 0x0, 0x20)"));
}

TEST_F(DialString, IsCutBeforeItsBlanksAreRemoved) {
    driver.channel(4).protocol = 12;
    EXPECT_EQ(dialled(L"T5 5; 5"), setup("55"));
}

// ---- refused characters ---------------------------------------------------------------------------------------------

namespace {

struct Refusal {
    const wchar_t* number;
    DWORD error;
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << '"' << narrow(refusal.number) << '"';
}

class RefusedDialString : public DialString, public testing::WithParamInterface<Refusal> {};

}  // namespace

TEST_P(RefusedDialString, GivesTheLineBack) {
    const LONG error = failed(GetParam().error);
    EXPECT_EQ(make_call(GetParam().number), error);
    EXPECT_TRUE(reads(on_this_thread(story()), {
                                                   "[16] " + kNoCall + "TSPI_lineMakeCall",
                                                   "DornLineAlert(unit=14)",
                                                   "[4] !!!!!! Did you know !!!!!!!!!",
                                                   "[4] TSPI_lineMakeCall - WaitForSingleObject() result= "
                                                   "(WAIT_OBJECT_0)",
                                                   text("[17] <*>TSPI_lineMakeCall(%ld) Failed", error),
                                               }));
    EXPECT_TRUE(reads(on_this_thread(traces().levels({8, 9}).only({"<*>CheckDial<*>"})),
                      {"[8] CheckDialCharacters", text("[9] CheckDialCharacters(%ld)", error)}));
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_EQ(active_calls(), 0u);
    EXPECT_TRUE(reads(completions(), {}));
}

INSTANTIATE_TEST_SUITE_P(Billing, RefusedDialString,
                         testing::Values(Refusal{L"$", LINEERR_DIALBILLING}, Refusal{L"5551234$", LINEERR_DIALBILLING},
                                         Refusal{L"555$1234", LINEERR_DIALBILLING}));
INSTANTIATE_TEST_SUITE_P(Prompt, RefusedDialString,
                         testing::Values(Refusal{L"?", LINEERR_DIALPROMPT}, Refusal{L"555?1234", LINEERR_DIALPROMPT}));
INSTANTIATE_TEST_SUITE_P(Quiet, RefusedDialString,
                         testing::Values(Refusal{L"@", LINEERR_DIALQUIET}, Refusal{L"0@555", LINEERR_DIALQUIET}));
INSTANTIATE_TEST_SUITE_P(TheFirstOne, RefusedDialString,
                         testing::Values(Refusal{L"5?$@", LINEERR_DIALPROMPT}, Refusal{L"5@$", LINEERR_DIALQUIET},
                                         Refusal{L"5$?", LINEERR_DIALBILLING}));
INSTANTIATE_TEST_SUITE_P(BehindASemicolon, RefusedDialString, testing::Values(Refusal{L"5;$", LINEERR_DIALBILLING}));

TEST_F(DialString, ThatIsRefusedReleasesTheLinesThreadUnderTheLock) {
    EXPECT_EQ(make_call(L"$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(reads(on_this_thread(handshake()), {
                                                       "WaitForSingleObject(LOCK, INFINITE)",
                                                       "ResetEvent(WORKER_IDLE)",
                                                       "DornLineAlert(unit=14)",
                                                       "ReleaseMutex(LOCK)",
                                                       "WaitForSingleObject(WORKER_IDLE, 500)",
                                                       "WaitForSingleObject(LOCK, INFINITE)",
                                                       "SetEvent(RING_DET_WAIT)",
                                                       "ReleaseMutex(LOCK)",
                                                   }));
}

TEST_F(DialString, ThatIsRefusedLeavesTheLineFreeForAnother) {
    EXPECT_EQ(make_call(L"$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(driver.waits_for_call(4));
    place_call(0);
}

// The refusal leaves the line as if an outgoing call were still requested, so that the next ring meets it.
TEST_F(DialString, ThatIsRefusedLetsTheNextRingCollide) {
    EXPECT_EQ(make_call(L"$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(driver.waits_for_call(4));
    new_chapter();
    driver.ring(4);
    EXPECT_TRUE(comes("WaitForSingleObject(RING_DET_WAIT, INFINITE)"));
    EXPECT_TRUE(holds(traces(), "[4] r_d_t: Collision detected"));
    EXPECT_TRUE(reads(events(), {}));
    // The next outgoing call finds the ring that was noted then, backs off and thereby lets the call in.
    sleep_gate(6000).close();
    shorten_waits(500);
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
    EXPECT_TRUE(holds(events(), "LINE_NEWCALL(<*>"));
}
