// The whole order of an outgoing call: traces of all levels, the board, Windows and TAPI in one list.
#include <algorithm>
#include <atomic>

#include "harness.h"
#include "whole_story.h"

using namespace harness;

namespace {

class OrderOfAnOutgoingCall : public LineFixture {
  protected:
    void SetUp() override {
        LineFixture::SetUp();
        windows.objects.on_wait = patiently;
    }
    // A wait for the line's thread lasts until it answers.
    static std::optional<DWORD> patiently(HANDLE object, DWORD milliseconds) {
        if (milliseconds != 500) return std::nullopt;
        return WaitForSingleObject(object, kPatience);
    }
    // The beginning of every outgoing call, up to the answer of the line's thread.
    static Lines line_asked_for(const std::string& answer = "WAIT_OBJECT_0") {
        return joined({{"[16] " + kNoCall + "TSPI_lineMakeCall"},
                       handle_is_valid(kNoCall),
                       lock_taken(kNoCall),
                       {"ResetEvent(WORKER_IDLE)"},
                       kAlert,
                       lock_given_back(),
                       waited_for_the_thread(answer)});
    }
    static Lines waited_for_the_thread(const std::string& answer) {
        return {"WaitForSingleObject(WORKER_IDLE, 500)", kDidYouKnow,
                "[4] TSPI_lineMakeCall - WaitForSingleObject() result= (" + answer + ")"};
    }
    static Lines dial_string_checked(LONG result = 0) {
        return {"[8] CheckDialCharacters", text("[9] CheckDialCharacters(%ld)", result)};
    }
    static Lines line_given_up(DWORD error) {
        return joined({{"SetEvent(RING_DET_WAIT)"},
                       lock_given_back(kNoCall),
                       {text("[17] %sTSPI_lineMakeCall(%ld) Failed", kNoCall.c_str(), failed(error))}});
    }
    // The beginning of every outgoing worker, up to the set-up of the call.
    static Lines set_up(const std::string& number = "5551234") {
        return joined({{"[8] " + kCall + "out_call_thread", "DornLineCCProtocolGet(CHAN4)"},
                       call_state_sent(0x10, "DIALING"),
                       lock_taken(),
                       lock_given_back(),
                       {"DornCallSetup(CHAN4, \"" + number + "\")"}});
    }
    static Lines awaited() {
        return joined({call_state_sent(0x200, "PROCEEDING"), {"DornCallWaitForComplete(CHAN4, timeout=1000000)"}});
    }
    static Lines worker_done() {
        return joined({{"SetEvent(WORKER_IDLE)"}, lock_given_back(), {"[9] " + kCall + "out_call_thread"}});
    }
    static Lines failed_call_cleared() {
        return joined({lock_taken(), channel_reset(kCall, true), call_state_sent(0x1, "IDLE"), worker_done()});
    }
    void expect_of_the_worker(const Lines& expected) {
        EXPECT_EQ(make_call(), 0x21);
        worker_ends();
        EXPECT_TRUE(reads(of_out_call_thread(whole_story()), expected));
    }
};

}  // namespace

// ---- make a call ----------------------------------------------------------------------------------------------------

TEST_F(OrderOfAnOutgoingCall, ThatIsMade) {
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(on_this_thread(whole_story()),
                      joined({line_asked_for(),
                              lock_taken(),
                              dial_string_checked(),
                              {"ResetEvent(WORKER_IDLE)", "_beginthread(stack=16384)",
                               "[4] TSPI_lineMakeCall() Async completion requestID= 0x21: result= 0x0",
                               "completion(request=0x21, result=0x0)"},
                              number_of_calls_sent(),
                              lock_given_back(),
                              {"[17] TSPI_lineMakeCall(33) Good"}})));
    EXPECT_TRUE(reads(of_out_call_thread(whole_story()), joined({set_up(),
                                                                 awaited(),
                                                                 {"DornLineStateAccess(CHAN4)"},
                                                                 lock_taken(),
                                                                 lock_given_back(),
                                                                 call_state_sent(0x100, "CONNECTED", 1),
                                                                 lock_taken(),
                                                                 worker_done()})));
}

TEST_F(OrderOfAnOutgoingCall, WhoseHandleTheCallerHasChangedMeanwhile) {
    static char elsewhere;
    name_pointer(&elsewhere, "ELSEWHERE");
    tapi.on_completion = [this](DRV_REQUESTID, LONG) { placed = reinterpret_cast<HDRVCALL>(&elsewhere); };
    EXPECT_EQ(make_call(), 0x21);
    worker_ends();
    const Lines end = joined({number_of_calls_sent(),
                              lock_given_back(),
                              {"[4] Note: *lphdCall 0xELSEWHERE, pLine 0xLINE1", "[17] TSPI_lineMakeCall(33) Good"}});
    const Lines whole = lines(on_this_thread(whole_story()));
    ASSERT_GE(whole.size(), end.size());
    EXPECT_EQ(Lines(whole.end() - static_cast<ptrdiff_t>(end.size()), whole.end()), end);
}

TEST_F(OrderOfAnOutgoingCall, WhoseEveryWaitTimesOut) {
    windows.objects.on_wait = [](HANDLE, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 500) return std::nullopt;
        return WAIT_TIMEOUT;
    };
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    Lines expected = line_asked_for("WAIT_TIMEOUT");
    for (int attempt = 2; attempt <= 5; ++attempt) expected = joined({expected, waited_for_the_thread("WAIT_TIMEOUT")});
    expected.push_back("[17] " + kCall + "TSPI_lineMakeCall(-2147483573) Failed");
    EXPECT_TRUE(comes("[4] Ring_det received alert"));
    EXPECT_TRUE(this_thread_did(expected));
}

TEST_F(OrderOfAnOutgoingCall, WhoseFirstWaitFails) {
    std::atomic<bool> failed_once = false;
    windows.objects.on_wait = [&](HANDLE object, DWORD milliseconds) -> std::optional<DWORD> {
        if (milliseconds != 500 || failed_once.exchange(true)) return patiently(object, milliseconds);
        SetLastError(0x6D9);
        return WAIT_FAILED;
    };
    EXPECT_EQ(make_call(L"$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(this_thread_did(joined({line_asked_for("WAIT_FAILED"),
                                        {"[4] TSPI_lineMakeCall - WaitForSingleObject() LastError= 0x6D9"},
                                        waited_for_the_thread("WAIT_OBJECT_0"),
                                        lock_taken(),
                                        dial_string_checked(failed(LINEERR_DIALBILLING)),
                                        line_given_up(LINEERR_DIALBILLING)})));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(OrderOfAnOutgoingCall, ThatMeetsARing) {
    driver.on.DornLineAlert = [](DornAlertRecord*) { return driver.ring(4), 0; };
    sleep_gate(6000).close();
    EXPECT_EQ(make_call(), failed(LINEERR_CALLUNAVAIL));
    // The exit trace may already name the call that won.
    EXPECT_TRUE(this_thread_did(joined(
        {line_asked_for(),
         lock_taken(),
         {"[4] MakeCall: collision detected, backing off", "SetEvent(RING_DET_WAIT)", "[8] " + kNoCall + "unlock_line",
          "ReleaseMutex(LOCK)", "[9] " + kNoCall + "unlock_line", "[17] <*>TSPI_lineMakeCall(-2147483643) Failed"}})));
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
}

TEST_F(OrderOfAnOutgoingCall, ThatFindsNoMemory) {
    windows.memory.fails = is_call_request;
    windows.event_log.takes_entries = false;
    EXPECT_EQ(make_call(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(this_thread_did(joined({line_asked_for(),
                                        lock_taken(),
                                        dial_string_checked(),
                                        {"SetEvent(RING_DET_WAIT)"},
                                        lock_given_back(kNoCall),
                                        {kEntryRefused, "[4] tspi_linemakecall called report_event with error",
                                         "[17] " + kNoCall + "TSPI_lineMakeCall(-2147483580) Failed"}})));
    EXPECT_TRUE(driver.waits_for_call(4));
}

TEST_F(OrderOfAnOutgoingCall, ThatFindsNoMemoryForItsNumber) {
    const std::wstring number(199, L'7');
    windows.memory.fails = [](const Allocation& allocation) { return allocation.size == 200; };
    EXPECT_EQ(make_call(number.c_str()), failed(LINEERR_NOMEM));
    EXPECT_TRUE(holds(event_log(), "event log(category=3, 0xC0000008, \"\")"));
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
    EXPECT_TRUE(driver.waits_for_call(4));
}

// ---- dial further ---------------------------------------------------------------------------------------------------

class OrderOfDialling : public OrderOfAnOutgoingCall {
  protected:
    void SetUp() override {
        OrderOfAnOutgoingCall::SetUp();
        EXPECT_EQ(make_call(L"555;"), 0x21);
        worker_ends();
    }
    static Lines begun() { return joined({{"[16] " + kCall + "TSPI_lineDial"}, handle_is_valid(), lock_taken()}); }
};

TEST_F(OrderOfDialling, WaitsWithADialTone) {
    EXPECT_TRUE(reads(of_out_call_thread(whole_story()),
                      joined({set_up("555"), call_state_sent(0x8, "DIALTONE"), lock_taken(), worker_done()})));
}

TEST_F(OrderOfDialling, GoesOnWithoutAnAlert) {
    new_chapter();
    EXPECT_EQ(dial(L"1234"), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(on_this_thread(whole_story()),
                      joined({begun(),
                              dial_string_checked(),
                              {"ResetEvent(WORKER_IDLE)", "_beginthread(stack=16384)",
                               "[4] TSPI_lineDial() Async completion requestID= 0x21: result= 0x0",
                               "completion(request=0x21, result=0x0)"},
                              lock_given_back(),
                              {"[17] " + kCall + "TSPI_lineDial(33) Good"}})));
}

TEST_F(OrderOfDialling, RefusesCharactersAndTooEarlyDigits) {
    new_chapter();
    EXPECT_EQ(dial(L"1$"), failed(LINEERR_DIALBILLING));
    EXPECT_TRUE(this_thread_did(joined({begun(),
                                        dial_string_checked(failed(LINEERR_DIALBILLING)),
                                        lock_given_back(),
                                        {"[17] " + kCall + "TSPI_lineDial(-2147483640) Failed"}})));
    driver.gate("DornCallSetup").close();
    EXPECT_EQ(dial(L"1"), 0x21);
    EXPECT_TRUE(driver.gate("DornCallSetup").holds_somebody());
    new_chapter();
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineDial", kCall, LINEERR_INVALCALLSTATE)));
    driver.gate("DornCallSetup").open();
    worker_ends();
}

TEST_F(OrderOfDialling, HasAWorkerWhoseEndACloseWaitsFor) {
    driver.on.DornCallSetup = [](DornLine* line, DornCallRecord*) { return driver.block(line), 0; };
    driver.on.DornLineAlert = [](DornAlertRecord*) { return 0; };
    EXPECT_EQ(dial(L"1234"), 0x21);
    EXPECT_TRUE(driver.is_blocked(4));
    new_chapter();
    // The first wait, that of the drop, seems to be over at once.
    std::atomic<bool> woken = false;
    windows.objects.on_wait = [&](HANDLE object, DWORD) -> std::optional<DWORD> {
        if (object_name(object) != "WORKER_IDLE" || woken.exchange(true)) return std::nullopt;
        return WAIT_OBJECT_0;
    };
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)", 2));
    EXPECT_FALSE(closing.has_returned());
    driver.release(4);
    EXPECT_EQ(closing.result(), 0);
    worker_ends();
}

TEST_F(OrderOfDialling, FindsNoMemory) {
    windows.memory.fails = is_call_request;
    windows.event_log.takes_entries = false;
    new_chapter();
    EXPECT_EQ(dial(L"1234"), failed(LINEERR_NOMEM));
    EXPECT_TRUE(this_thread_did(joined({begun(),
                                        dial_string_checked(),
                                        lock_given_back(),
                                        {kEntryRefused, "[4] tspi_linedial called report_event with error",
                                         "[17] " + kCall + "TSPI_lineDial(-2147483580) Failed"}})));
}

// ---- the worker -----------------------------------------------------------------------------------------------------

TEST_F(OrderOfAnOutgoingCall, ThatCannotBeSetUp) {
    driver.channel(4).setup_status = 3;
    driver.channel(4).setup_cause = 261;
    expect_of_the_worker(joined({set_up(), call_state_sent(0x40, "BUSY", 2), failed_call_cleared()}));
}

TEST_F(OrderOfAnOutgoingCall, WhoseFarEndIsBusy) {
    driver.channel(4).complete_cause = 301;
    expect_of_the_worker(joined({set_up(), awaited(), call_state_sent(0x40, "BUSY", 1), failed_call_cleared()}));
}

TEST_F(OrderOfAnOutgoingCall, ThatIsAnsweredOnALineThatIsNotConnected) {
    driver.channel(4).line_state = 1;
    expect_of_the_worker(joined({set_up(),
                                 awaited(),
                                 {"DornLineStateAccess(CHAN4)"},
                                 call_state_sent(0x4000, "DISCONNECTED", LINEDISCONNECTMODE_UNAVAIL),
                                 failed_call_cleared()}));
}

TEST_F(OrderOfAnOutgoingCall, WithoutANumber) {
    EXPECT_EQ(make_call(nullptr), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(of_out_call_thread(whole_story()), joined({{"[8] " + kCall + "out_call_thread"},
                                                                 lock_taken(),
                                                                 lock_given_back(),
                                                                 {"DornCallSetup(CHAN4, null)"},
                                                                 call_state_sent(0x8, "DIALTONE"),
                                                                 lock_taken(),
                                                                 worker_done()})));
}
