// The whole order of what the thread of a line does: traces of all levels, the board, Windows and TAPI in one list.
#include "harness.h"
#include "whole_story.h"

using namespace harness;

namespace {

const std::string kParked = "WaitForSingleObject(RING_DET_WAIT, INFINITE)";

class OrderOfTheThread : public LineFixture {
  protected:
    testing::AssertionResult thread_reads(const Lines& expected) {
        testing::AssertionResult result = reads(of_ring_det_thread(whole_story()), expected);
        new_chapter();
        return result;
    }
    static Lines woken_by_a_ring() {
        return {"[4] LumLineWaitForCall res.status = KX_STATUS_OK", "[4] Did not Timeout", "[4] res.line_status = 1"};
    }
    static Lines offered(const std::string& before, const std::string& after) {
        return {"[8] " + before + "send_linenewcall", "[4] " + before + "Sending LINE_NEWCALL",
                "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)", "[4] " + after + "Sent LINE_NEWCALL",
                "[9] " + after + "send_linenewcall"};
    }
    static Lines announced() {
        return joined({offered(kNoCall, kCall),
                       {"ResetEvent(RING_DET_WAIT)"},
                       call_state_sent(0x2, "OFFERING", 1),
                       number_of_calls_sent()});
    }
    static Lines ring_reported(unsigned ring) {
        return joined({ring_count_looked_up(),
                       {text("[4] RING_DET_THREAD: number of incoming rings = %u  NRINGS = 1", ring)},
                       ring_sent(ring),
                       lock_given_back(),
                       {"Sleep(6000)"}});
    }
    static Lines pause_over() {
        return joined({lock_taken(), {"[4] RING_DET_THREAD: call not connected, eLineState(4)"}});
    }
    static Lines waits_again(unsigned timeout) { return {text("DornLineWaitForCallISDN(CHAN4, timeout=%u)", timeout)}; }
    static Lines abandoned(const std::string& previous, const std::string& waiting) {
        return joined({{previous}, call_end_sent(), lock_given_back(), {waiting, kParked}});
    }
    void expect_release_by_the_close(const Lines& idle) {
        new_chapter();
        EXPECT_EQ(close_call(), 0);
        EXPECT_TRUE(driver.waits_for_call(4));
        EXPECT_TRUE(thread_reads(joined({idle, waits_again(0)})));
    }
};

}  // namespace

TEST_F(OrderOfTheThread, OffersACallAndCountsItsRings) {
    offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
    EXPECT_TRUE(
        thread_reads(joined({woken_by_a_ring(), lock_taken(kNoCall), announced(), call_info_sent(0x10000, "CALLEDID"),
                             call_info_sent(0x8000, "CALLERID"), ring_reported(1)})));
    end_the_pause();
    EXPECT_TRUE(thread_reads(joined({pause_over(), lock_given_back(), waits_again(12000)})));
    ring_again();
    EXPECT_TRUE(thread_reads(joined(
        {woken_by_a_ring(), lock_taken(), ring_reported(2), pause_over(), lock_given_back(), waits_again(12000)})));
}

TEST_F(OrderOfTheThread, OffersACallTwice) {
    tapi.refused_new_calls = 2;
    ring_again();
    const Lines refused = joined({offered(kNoCall, kNoCall),
                                  {"[4] " + kNoCall + "LINE_NEWCALL return NULL"},
                                  lock_given_back(kNoCall),
                                  {"Sleep(1000)"},
                                  lock_taken(kNoCall)});
    EXPECT_TRUE(thread_reads(joined({woken_by_a_ring(),
                                     lock_taken(kNoCall),
                                     refused,
                                     refused,
                                     {"[4] NEWCALL returned NULL htCall, go back to waitforcall"},
                                     lock_given_back(kNoCall),
                                     waits_again(0)})));
}

TEST_F(OrderOfTheThread, ParksWhileACallIsConnected) {
    offer_call(0);
    EXPECT_EQ(answer(), 0x21);
    new_chapter();
    sleep_gate(6000).open();
    EXPECT_TRUE(comes(kParked));
    EXPECT_TRUE(thread_reads(joined({lock_taken(),
                                     lock_given_back(),
                                     {"[4] pLine->eLineState = 0x6 Wait for ring_det_wait_event.",
                                      "[4] RING_DET_THREAD: call connected", kParked}})));
    expect_release_by_the_close({"[4] RING_DET_THREAD: call connected and now idle"});
}

TEST_F(OrderOfTheThread, GivesACallUpWhoseRingsHaveStopped) {
    offer_call_and_wait();
    new_chapter();
    driver.wait_ends(4, KX_STATUS_OK, 353);
    EXPECT_TRUE(comes(kParked));
    EXPECT_TRUE(thread_reads(joined({{"[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                                      "[4] LumLineWaitForCall res.line_status = WAIT_FOR_CALL_TIMEOUT(353)"},
                                     lock_taken(),
                                     abandoned("[4] Previous NEWCALL has not been picked up.",
                                               "[4] RING_DET_THREAD: call not answered wait for idle")})));
    expect_release_by_the_close({"[4] RING_DET_THREAD: call not answered and now idle"});
}

TEST_F(OrderOfTheThread, GivesACallUpWhoseWaitHasTimedOut) {
    offer_call_and_wait();
    new_chapter();
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(comes(kParked));
    EXPECT_TRUE(thread_reads(joined({{"[4] LumLineWaitForCall res.status = KX_STATUS_TIMEOUT"},
                                     lock_taken(),
                                     abandoned("[4] Previous NEWCALL has not been pickep up.",
                                               "[4] RING_DET_THREAD: timeout, call not answered wait for idle")})));
    expect_release_by_the_close({"[4] RING_DET_THREAD: timeoutrings, call not answered and now idle"});
}

TEST_F(OrderOfTheThread, GivesACallUpAfterItsTwentyFirstRing) {
    offer_call_and_wait();
    for (int ring = 2; ring <= 20; ++ring) ring_again();
    new_chapter();
    driver.ring(4);
    EXPECT_TRUE(comes(kParked));
    EXPECT_TRUE(thread_reads(joined({woken_by_a_ring(), lock_taken(), ring_reported(21), pause_over(),
                                     abandoned("[4] Previous NEWCALL has not been pickep up.",
                                               "[4] RING_DET_THREAD: max rings, call not answered wait for idle")})));
    expect_release_by_the_close({"[4] RING_DET_THREAD: max rings, call not answered and now idle"});
}

TEST_F(OrderOfTheThread, WaitsOnWithoutACall) {
    driver.wait_ends(4, KX_STATUS_OK, 353);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(thread_reads(joined({{"[4] LumLineWaitForCall res.status = KX_STATUS_OK",
                                      "[4] LumLineWaitForCall res.line_status = WAIT_FOR_CALL_TIMEOUT(353)"},
                                     lock_taken(kNoCall),
                                     lock_given_back(kNoCall),
                                     waits_again(0)})));
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(thread_reads(joined({{"[4] LumLineWaitForCall res.status = KX_STATUS_TIMEOUT"},
                                     lock_taken(kNoCall),
                                     lock_given_back(kNoCall),
                                     waits_again(0)})));
}

TEST_F(OrderOfTheThread, ResetsTheChannelAfterADriverError) {
    driver.wait_ends(4, KX_STATUS_ERROR);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_TRUE(thread_reads(joined({lock_taken(kNoCall),
                                     {"[4] Ring_det received error!"},
                                     channel_reset(kNoCall, false),
                                     lock_given_back(kNoCall),
                                     waits_again(0)})));
}

TEST_F(OrderOfTheThread, StandsAsideForAnAlert) {
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(
        thread_reads(joined({{"[4] LumLineWaitForCall res.status = KX_STATUS_ALERT"},
                             lock_taken(),
                             {"ResetEvent(RING_DET_WAIT)", "SetEvent(WORKER_IDLE)", "[4] Ring_det received alert"},
                             lock_given_back(),
                             {kParked}})));
    expect_release_by_the_close({});
}

TEST_F(OrderOfTheThread, WinsACollision) {
    driver.on.DornLineAlert = [](DornAlertRecord*) { return driver.ring(4), 0; };
    sleep_gate(6000).close();
    EXPECT_EQ(make_call(), failed(LINEERR_CALLUNAVAIL));
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
    const Lines whole = lines(of_ring_det_thread(whole_story()));
    const Lines expected = joined({woken_by_a_ring(),
                                   {"[8] " + kCall + "lock_line", "WaitForSingleObject(LOCK, INFINITE)",
                                    "[9] " + kCall + "lock_line", "ResetEvent(RING_DET_WAIT)"},
                                   lock_given_back(),
                                   {"SetEvent(WORKER_IDLE)", "[4] r_d_t: Collision detected", kParked}});
    ASSERT_GE(whole.size(), expected.size());
    EXPECT_EQ(Lines(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(expected.size())), expected);
}

// ---- what is stored when TAPI hears of it ---------------------------------------------------------------------------

TEST_F(OrderOfTheThread, StoresWhatTheNetworkTellsBeforeItTellsTapi) {
    constexpr DWORD kCallInfoSize = 340;
    struct {
        LINECALLINFO fixed;
        wchar_t texts[1024];
    } info = {};
    Lines found;
    tapi.on_event = [&](const LineEvent& event) {
        if (event.message != LINE_CALLINFO) return;
        info = {};
        info.fixed.dwTotalSize = sizeof(info);
        info.fixed.dwUsedSize = kCallInfoSize;
        EXPECT_EQ(tsp.TSPI_lineGetCallInfo(call(0), &info.fixed), 0);
        found.push_back(text("called %lu, caller %lu, name %lu", info.fixed.dwCalledIDSize, info.fixed.dwCallerIDSize,
                             info.fixed.dwCallerIDNameSize));
    };
    offer_call(0, {"5551234", "", "5550100", "SENDER", "routing"});
    tapi.on_event = nullptr;
    EXPECT_EQ(found, (Lines{"called 16, caller 0, name 0", "called 16, caller 16, name 14"}));
}
