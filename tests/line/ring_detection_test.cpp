// The line's thread: it waits for calls, offers each to TAPI at its first ring, reports every ring, and stands aside.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

constexpr DWORD kCallInfoSize = 340;  // LINECALLINFO as TAPI 2.0 has it

struct CallInfo {
    LINECALLINFO fixed;
    uint8_t texts[2048];

    std::string at(DWORD size, DWORD offset) {
        if (size == 0) return "";
        return narrow(reinterpret_cast<const wchar_t*>(reinterpret_cast<uint8_t*>(this) + offset));
    }
};

class RingDetection : public LineFixture {
  protected:
    CallInfo call_info();
    // The called number, the calling number and the calling name that the provider has stored.
    Lines parties();
};

// What a ring looks like until the pause, after the call was announced.
Lines ring_reported(int ring, int reported, const std::string& of_the_line) {
    return joined({kNoRingCount,
                   {
                       text("[4] RING_DET_THREAD: number of incoming rings = %d  NRINGS = 1", ring),
                       text("[4] %sSending LINE_LINEDEVSTATE, newstate=0x2, Parm2=0x1, Parm3=0x%X", of_the_line.c_str(),
                            reported),
                       text("LINE_LINEDEVSTATE(HTLINE1, <*>, RINGING, 0x1, 0x%X)", reported),
                   }});
}

CallInfo RingDetection::call_info() {
    CallInfo info = {};
    info.fixed.dwTotalSize = sizeof(info);
    info.fixed.dwUsedSize = kCallInfoSize;
    EXPECT_EQ(tsp.TSPI_lineGetCallInfo(call(0), &info.fixed), 0);
    return info;
}

Lines RingDetection::parties() {
    CallInfo info = call_info();
    return {info.at(info.fixed.dwCalledIDSize, info.fixed.dwCalledIDOffset),
            info.at(info.fixed.dwCallerIDSize, info.fixed.dwCallerIDOffset),
            info.at(info.fixed.dwCallerIDNameSize, info.fixed.dwCallerIDNameOffset)};
}

const Lines kWaitEnded = {
    "[4] LumLineWaitForCall res.status = KX_STATUS_OK",
    "[4] Did not Timeout",
    "[4] res.line_status = 1",
};

}  // namespace

TEST_F(RingDetection, OffersACallAtItsFirstRing) {
    offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
    EXPECT_TRUE(
        reads(story(), joined({kWaitEnded,
                               {
                                   "[4] " + kNoCall + "Sending LINE_NEWCALL",
                                   "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                   "[4] " + kCall + "Sent LINE_NEWCALL",
                                   "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x2, dwCallStateMode=0x1",
                                   "LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, 0x20)",
                               },
                               kNumCalls,
                               {
                                   "[4] " + kCall + "Sending LINE_CALLINFO callinfo_state=0x10000",
                                   "LINE_CALLINFO(HTLINE1, HTCALL1, CALLEDID, 0x0, 0x0)",
                                   "[4] " + kCall + "Sending LINE_CALLINFO callinfo_state=0x8000",
                                   "LINE_CALLINFO(HTLINE1, HTCALL1, CALLERID, 0x0, 0x0)",
                               },
                               ring_reported(1, 1, kCall)})));
    new_chapter();
    end_the_pause();
    EXPECT_TRUE(reads(story(), {"[4] RING_DET_THREAD: call not connected, eLineState(4)",
                                "DornLineWaitForCallISDN(CHAN4, timeout=12000)"}));
}

TEST_F(RingDetection, TracesEveryFunctionOfAnOffer) {
    offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
    Lines expected;
    auto function = [&](const std::string& name) {
        expected.push_back("[8] " + kCall + name);
        expected.push_back("[9] " + kCall + name);
    };
    auto call_state = [&] {
        expected.push_back("[8] " + kCall + "SetCallState");
        function("lock_line");
        function("unlock_line");
        expected.push_back("[9] " + kCall + "SetCallState");
    };
    expected = {"[8] " + kNoCall + "lock_line", "[9] " + kNoCall + "lock_line", "[8] " + kNoCall + "send_linenewcall",
                "[9] " + kCall + "send_linenewcall"};
    call_state();
    for (const char* name : {"send_linedevstate", "send_addrstate", "send_linecallinfo", "send_linecallinfo"})
        function(name);
    expected = joined({expected, {"[8] findNringsFromLineID", "[9] findNringsFromLineID(1)"}});
    for (const char* name : {"send_linedevstate", "unlock_line"}) function(name);
    EXPECT_TRUE(reads(traces().levels({8, 9}), expected));
}

TEST_F(RingDetection, HoldsTheLockFromTheRingToThePause) {
    offer_call(0, {"5551234"});
    EXPECT_TRUE(reads(handshake().without({"LINE_LINEDEVSTATE(<*>", "LINE_ADDRESSSTATE(<*>"}),
                      {
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                          "ResetEvent(RING_DET_WAIT)",
                          "WaitForSingleObject(LOCK, INFINITE)",
                          "LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, 0x20)",
                          "ReleaseMutex(LOCK)",
                          "LINE_CALLINFO(HTLINE1, HTCALL1, CALLEDID, 0x0, 0x0)",
                          "ReleaseMutex(LOCK)",
                          "Sleep(6000)",
                      }));
    new_chapter();
    end_the_pause();
    EXPECT_TRUE(reads(handshake(), {
                                       "WaitForSingleObject(LOCK, INFINITE)",
                                       "ReleaseMutex(LOCK)",
                                       "DornLineWaitForCallISDN(CHAN4, timeout=12000)",
                                   }));
}

TEST_F(RingDetection, OffersACallOnlyOnce) {
    offer_call_and_wait({"5551234"});
    new_chapter();
    offer_call(0, {"5551234"});
    EXPECT_TRUE(reads(story(), joined({kWaitEnded, ring_reported(2, 2, kCall)})));
    new_chapter();
    end_the_pause();
    EXPECT_TRUE(reads(story(), {"[4] RING_DET_THREAD: call not connected, eLineState(4)",
                                "DornLineWaitForCallISDN(CHAN4, timeout=12000)"}));
}

TEST_F(RingDetection, OffersAFaxCallAtTheLinesRate) {
    offer_call(0);
    EXPECT_EQ(call_info().fixed.dwMediaMode, static_cast<DWORD>(LINEMEDIAMODE_G3FAX));
    EXPECT_EQ(call_info().fixed.dwRate, 2400u);
}

TEST_F(RingDetection, TakesAnyLineStatusButTheTimeOutsForARing) {
    sleep_gate(6000).close();
    driver.wait_ends(4, KX_STATUS_OK, 352);
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
    EXPECT_TRUE(holds(traces(), "[4] res.line_status = 352"));
    EXPECT_TRUE(holds(events(), "LINE_NEWCALL(<*>"));
}

TEST_F(RingDetection, ReportsTheRingsTimesTheWantedNumber) {
    std::wstring device = kFaxDevices + L"\\0000000001\\Provider";
    windows.registry.set(device, L"TAPI Permanent Lineid", (kProviderId << 16) | 4);
    windows.registry.set(device, L"Rings", 2);
    offer_call_and_wait();
    ring_again();
    ring_again();
    EXPECT_TRUE(reads(events().only({"<*>RINGING<*>"}), {
                                                            "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x2)",
                                                            "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x4)",
                                                            "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x6)",
                                                        }));
    EXPECT_TRUE(reads(traces().only({"[4] RING_DET_THREAD: number<*>"}),
                      {
                          "[4] RING_DET_THREAD: number of incoming rings = 1  NRINGS = 2",
                          "[4] RING_DET_THREAD: number of incoming rings = 2  NRINGS = 2",
                          "[4] RING_DET_THREAD: number of incoming rings = 3  NRINGS = 2",
                      }));
}

// ---- what the network tells ----------------------------------------------------------------------------------------

class PartiesOfACall : public RingDetection {
  protected:
    // The call information events of an offer.
    Lines announced(const CallData& data) {
        offer_call(0, data);
        return lines(events().only({"LINE_CALLINFO(<*>"}));
    }
};

const char* const kCalledId = "LINE_CALLINFO(HTLINE1, HTCALL1, CALLEDID, 0x0, 0x0)";
const char* const kCallerId = "LINE_CALLINFO(HTLINE1, HTCALL1, CALLERID, 0x0, 0x0)";

TEST_F(PartiesOfACall, AreNotAnnouncedWhenTheNetworkTellsNothing) {
    EXPECT_EQ(announced({}), Lines{});
}

TEST_F(PartiesOfACall, AreTheCalledAndTheCallingNumber) {
    EXPECT_EQ(announced({"5551234", "", "5550100", "SENDER", ""}), (Lines{kCalledId, kCallerId}));
    EXPECT_EQ(parties(), (Lines{"5551234", "5550100", "SENDER"}));
}

TEST_F(PartiesOfACall, IncludeACalledPartyKnownOnlyByTheSecondText) {
    EXPECT_EQ(announced({"", "1234", "", "", ""}), Lines{kCalledId});
    EXPECT_EQ(parties(), (Lines{"", "", ""}));
}

TEST_F(PartiesOfACall, AreTheFirstCalledTextWhenThereAreBoth) {
    EXPECT_EQ(announced({"5551234", "1234", "", "", ""}), Lines{kCalledId});
    EXPECT_EQ(parties(), (Lines{"5551234", "", ""}));
}

TEST_F(PartiesOfACall, LeaveOutANameWithoutANumber) {
    EXPECT_EQ(announced({"5551234", "", "", "SENDER", ""}), Lines{kCalledId});
    EXPECT_EQ(parties(), (Lines{"5551234", "", ""}));
}

TEST_F(PartiesOfACall, MayBeACallerWithoutACalledNumber) {
    EXPECT_EQ(announced({"", "", "5550100", "", ""}), Lines{kCallerId});
    EXPECT_EQ(parties(), (Lines{"", "5550100", ""}));
}

TEST_F(PartiesOfACall, AreCutAt255Characters) {
    const std::string full(256, '7');
    announced({full, "", full, full, ""});
    const std::string cut(255, '7');
    EXPECT_EQ(parties(), (Lines{cut, cut, cut}));
}

TEST_F(PartiesOfACall, AreForgottenWhenTheCallIsClosed) {
    take_call(0, {"5551234", "", "5550100", "SENDER", ""});
    EXPECT_EQ(close_call(), 0);
    EXPECT_EQ(parties(), (Lines{"", "", ""}));
}

TEST_F(PartiesOfACall, AreNotTakenFromALaterRing) {
    offer_call_and_wait({"5551234", "", "5550100", "SENDER", ""});
    new_chapter();
    EXPECT_EQ(announced({"5559999", "", "5558888", "OTHER", ""}), Lines{});
    EXPECT_EQ(parties(), (Lines{"5551234", "5550100", "SENDER"}));
}

// ---- a call that TAPI does not want ---------------------------------------------------------------------------------

TEST_F(RingDetection, OffersACallASecondTimeAfterASecond) {
    tapi.refused_new_calls = 1;
    offer_call(0);
    EXPECT_TRUE(reads_in_order(all_of(TRACE | EVENT | WINDOWS), {
                                                                    "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                                                    "[4] " + kNoCall + "Sent LINE_NEWCALL",
                                                                    "[4] " + kNoCall + "LINE_NEWCALL return NULL",
                                                                    "ReleaseMutex(LOCK)",
                                                                    "Sleep(1000)",
                                                                    "WaitForSingleObject(LOCK, INFINITE)",
                                                                    "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                                                    "[4] " + kCall + "Sent LINE_NEWCALL",
                                                                    "LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, "
                                                                    "0x20)",
                                                                }));
    EXPECT_EQ(count(windows_calls(), "Sleep(1000)"), 1u);
}

TEST_F(RingDetection, GivesACallUpThatTapiRefusesTwice) {
    tapi.refused_new_calls = 2;
    ring_again();
    EXPECT_TRUE(reads(story(), joined({kWaitEnded,
                                       {
                                           "[4] " + kNoCall + "Sending LINE_NEWCALL",
                                           "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                           "[4] " + kNoCall + "Sent LINE_NEWCALL",
                                           "[4] " + kNoCall + "LINE_NEWCALL return NULL",
                                           "[4] " + kNoCall + "Sending LINE_NEWCALL",
                                           "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                           "[4] " + kNoCall + "Sent LINE_NEWCALL",
                                           "[4] " + kNoCall + "LINE_NEWCALL return NULL",
                                           "[4] NEWCALL returned NULL htCall, go back to waitforcall",
                                           "DornLineWaitForCallISDN(CHAN4, timeout=0)",
                                       }})));
    EXPECT_EQ(count(windows_calls(), "Sleep(1000)"), 2u);
    EXPECT_EQ(count(windows_calls(), "Sleep(6000)"), 0u);
}

TEST_F(RingDetection, OffersTheNextRingOfARefusedCallAsANewCall) {
    tapi.refused_new_calls = 2;
    ring_again();
    new_chapter();
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, 0x20)"));
    EXPECT_TRUE(holds(traces(), "[4] RING_DET_THREAD: number of incoming rings = 1  NRINGS = 1"));
}

TEST_F(RingDetection, LeavesTheLineIdleAfterARefusedCall) {
    tapi.refused_new_calls = 2;
    ring_again();
    EXPECT_EQ(active_calls(), 0u);
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
}

TEST_F(RingDetection, LetsACloseInBetweenTheTwoOffers) {
    tapi.refused_new_calls = 2;
    sleep_gate(1000).close();
    driver.ring(4);
    EXPECT_TRUE(sleep_gate(1000).holds_somebody());
    EXPECT_EQ(active_calls(), 0u);
    sleep_gate(1000).open();
    EXPECT_TRUE(driver.waits_for_call(4));
}
