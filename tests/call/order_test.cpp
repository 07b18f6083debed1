// The whole order of taking up and ending a call: traces of all levels, the board, Windows and TAPI in one list.
#include <algorithm>
#include <atomic>

#include "harness.h"
#include "whole_story.h"

using namespace harness;

namespace {

class OrderOfACall : public LineFixture {
  protected:
    static Lines nothing_to_close(const std::string& of_the_line) {
        return joined({{"[16] " + of_the_line + "TSPI_lineCloseCall"},
                       handle_is_valid(of_the_line),
                       lock_taken(of_the_line),
                       {"DornLineUnitGet(CHAN4)", "[4] Closing call on line 15"},
                       lock_given_back(of_the_line),
                       {"[17] " + of_the_line + "TSPI_lineCloseCall(0) Good"}});
    }
    static Lines cleared_by_a_drop(const Lines& completion, const Lines& alert = kAlert) {
        return function("drop_call_thread", joined({alert,
                                                    {"WaitForSingleObject(WORKER_IDLE, INFINITE)", kDidYouKnow},
                                                    lock_taken(),
                                                    {"DornLineTerminateCallISDN(CHAN4)"},
                                                    call_state_kept(),
                                                    completion,
                                                    {"SetEvent(DROP_DONE)"},
                                                    lock_given_back()}));
    }
    void place_call_with_a_deaf_worker() {
        place_call_that_lasts();
        driver.on.DornLineAlert = [](DornAlertRecord*) { return 0; };
        new_chapter();
    }
};

}  // namespace

// ---- refusals -------------------------------------------------------------------------------------------------------

TEST_F(OrderOfACall, ThatIsAskedForWithoutAHandle) {
    struct Refusal {
        const char* name;
        std::function<LONG()> ask;
        const char* complaint;
        DWORD error;
    };
    const Refusal refusals[] = {
        {"TSPI_lineAccept", [&] { return tsp.TSPI_lineAccept(0x21, nullptr, nullptr, 0); },
         "[4] TSPI_lineAccept - Invalid Call handle", LINEERR_INVALCALLHANDLE},
        {"TSPI_lineAnswer", [&] { return tsp.TSPI_lineAnswer(0x21, nullptr, nullptr, 0); },
         "[2] TSPI_lineAnswer - Invalid call handle.", LINEERR_INVALCALLHANDLE},
        {"TSPI_lineDrop", [&] { return tsp.TSPI_lineDrop(0x21, nullptr, nullptr, 0); },
         "[4] TSPI_lineDrop - Invalid CallHandle", LINEERR_INVALCALLHANDLE},
        {"TSPI_lineCloseCall", [&] { return tsp.TSPI_lineCloseCall(nullptr); },
         "[4] TSPI_lineCloseCall - Invalid CallHandle", LINEERR_INVALCALLHANDLE},
        {"TSPI_lineDial", [&] { return tsp.TSPI_lineDial(0x21, nullptr, L"1", 0); },
         "[4] TSPI_lineDial - Invalid call handle.", LINEERR_INVALCALLHANDLE},
        {"TSPI_lineMakeCall", [&] { return tsp.TSPI_lineMakeCall(0x21, nullptr, nullptr, &placed, L"1", 0, nullptr); },
         "[4] TSPI_lineMakeCall - Invalid line handle.", LINEERR_INVALLINEHANDLE},
    };
    for (const Refusal& refusal : refusals) {
        EXPECT_EQ(refusal.ask(), failed(refusal.error));
        EXPECT_TRUE(
            this_thread_did({text("[16] %s", refusal.name), "[8] IsValidLine", "[9] IsValidLine(0)", refusal.complaint,
                             text("[17] %s(%ld) Failed", refusal.name, failed(refusal.error))}));
    }
}

TEST_F(OrderOfACall, ThatIsNotThere) {
    EXPECT_EQ(accept(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineAccept", kNoCall, LINEERR_INVALCALLSTATE)));
    EXPECT_EQ(answer(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineAnswer", kNoCall, LINEERR_INVALCALLSTATE)));
    EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineDrop", kNoCall, LINEERR_INVALCALLSTATE)));
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineDial", kNoCall, LINEERR_INVALCALLHANDLE)));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(this_thread_did(nothing_to_close(kNoCall)));
}

TEST_F(OrderOfACall, ThatIsConnectedAlready) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(accept(), failed(LINEERR_INUSE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineAccept", kCall, LINEERR_INUSE)));
    EXPECT_EQ(answer(), failed(LINEERR_INUSE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineAnswer", kCall, LINEERR_INUSE)));
    EXPECT_EQ(dial(L"1"), failed(LINEERR_INUSE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineDial", kCall, LINEERR_INUSE)));
    EXPECT_EQ(make_call(), failed(LINEERR_INUSE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineMakeCall", kCall, LINEERR_INUSE)));
}

TEST_F(OrderOfACall, ThatAnotherThreadIsClosing) {
    take_call(0);
    driver.gate("DornLineReset").close();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(driver.gate("DornLineReset").holds_somebody());
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(this_thread_did(nothing_to_close(kCall)));
    EXPECT_EQ(drop(), failed(LINEERR_INVALCALLSTATE));
    EXPECT_TRUE(this_thread_did(refused_request("TSPI_lineDrop", kCall, LINEERR_INVALCALLSTATE)));
    driver.gate("DornLineReset").open();
    EXPECT_EQ(closing.result(), 0);
}

// ---- accept, answer, drop -------------------------------------------------------------------------------------------

TEST_F(OrderOfACall, ThatIsAcceptedAndAnswered) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(accept(), 0x21);
    EXPECT_TRUE(this_thread_did(joined({{"[16] " + kCall + "TSPI_lineAccept"},
                                        handle_is_valid(),
                                        lock_taken(),
                                        call_state_sent(0x4, "ACCEPTED"),
                                        {"[4] TSPI_lineAccept() Async completion requestID= 0x21: result= 0x0",
                                         "completion(request=0x21, result=0x0)"},
                                        lock_given_back(),
                                        {"[17] " + kCall + "TSPI_lineAccept(33) Good"}})));
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(this_thread_did(joined({{"[16] " + kCall + "TSPI_lineAnswer"},
                                        handle_is_valid(),
                                        lock_taken(),
                                        {"DornLineAnswerISDN(CHAN4)"},
                                        call_state_sent(0x100, "CONNECTED", 1),
                                        {"[4] TSPI_lineAnswer - Async completion requestID= 0x21: result= 0x0",
                                         "completion(request=0x21, result=0x0)"},
                                        lock_given_back(),
                                        {"[17] " + kCall + "TSPI_lineAnswer(33) Good"}})));
}

TEST_F(OrderOfACall, WhoseAnswerThrows) {
    offer_call(0);
    new_chapter();
    driver.on.DornLineAnswerISDN = [](DornLine*, DornLineResultRecord*) -> int { throw 1; };
    EXPECT_EQ(answer(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(this_thread_did(
        joined({{"[16] " + kCall + "TSPI_lineAnswer"},
                handle_is_valid(),
                lock_taken(),
                {"DornLineAnswerISDN(CHAN4)"},
                lock_given_back(),
                {"[4] TSPI_lineAnswer - Catch Error", "[17] " + kCall + "TSPI_lineAnswer(-2147483576) Failed"}})));
}

TEST_F(OrderOfACall, ThatIsDroppedWithoutAWorker) {
    take_call(0);
    new_chapter();
    const Lines completed = joined(
        {{"[4] TSPI_lineDrop() Async completion requestID= 0x21: result= 0x0", "completion(request=0x21, result=0x0)"},
         lock_given_back(),
         {"[17] " + kCall + "TSPI_lineDrop(33) Good"}});
    const Lines begun = joined({{"[16] " + kCall + "TSPI_lineDrop"}, handle_is_valid(), lock_taken()});
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(this_thread_did(joined({begun, call_end_sent(), completed})));
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(this_thread_did(joined({begun, completed})));
}

TEST_F(OrderOfACall, ThatIsDroppedUnderItsWorker) {
    place_call_that_lasts();
    new_chapter();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(comes("[9] " + kCall + "drop_call_thread"));
    EXPECT_TRUE(reads(on_this_thread(whole_story()), joined({{"[16] " + kCall + "TSPI_lineDrop"},
                                                             handle_is_valid(),
                                                             lock_taken(),
                                                             {"ResetEvent(DROP_DONE)", "_beginthread(stack=16384)"},
                                                             lock_given_back(),
                                                             {"WaitForSingleObject(DROP_DONE, INFINITE)",
                                                              "[17] " + kCall + "TSPI_lineDrop(33) Good"}})));
    EXPECT_TRUE(reads(of_drop_call_thread(whole_story()),
                      cleared_by_a_drop(joined({{"[4] drop_call_thread() Async completion requestID= 0x21: result= 0x0",
                                                 "completion(request=0x21, result=0x0)", "SetEvent(WORKER_IDLE)"},
                                                number_of_calls_sent()}))));
}

TEST_F(OrderOfACall, ThatIsDroppedTwice) {
    place_call_with_a_deaf_worker();
    driver.channel(4).complete_cause = 301;  // the worker itself ends the call
    Call first([this] { return drop(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)"));
    Call second([this] { return tsp.TSPI_lineDrop(0x22, call(0), nullptr, 0); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)", 2));
    driver.release(4);
    EXPECT_EQ(first.result(), 0x21);
    EXPECT_EQ(second.result(), 0x22);
    EXPECT_TRUE(comes("[9] " + kCall + "drop_call_thread", 2));
    EXPECT_TRUE(reads(of_drop_call_thread(whole_story()),
                      cleared_by_a_drop(joined({{"[4] drop_call_thread() Async completion requestID= 0x22: result= 0x0",
                                                 "completion(request=0x22, result=0x0)", "SetEvent(WORKER_IDLE)"},
                                                number_of_calls_sent()}),
                                        {})));
}

TEST_F(OrderOfACall, WhoseDropFindsNoMemory) {
    place_call_that_lasts();
    const Lines refused_for_lack_of_memory =
        joined({{"[16] " + kCall + "TSPI_lineDrop"}, handle_is_valid(), lock_taken(), lock_given_back()});
    const Lines exit = {"[17] " + kCall + "TSPI_lineDrop(-2147483580) Failed"};
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    new_chapter();
    EXPECT_EQ(drop(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(
        this_thread_did(joined({refused_for_lack_of_memory, {"event log(category=3, 0xC0000008, \"\")"}, exit})));
    windows.event_log.takes_entries = false;
    EXPECT_EQ(drop(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(this_thread_did(joined({refused_for_lack_of_memory,
                                        {kEntryRefused, "[4] TSPI_lineDevSpecific called report_event with error"},
                                        exit})));
    windows.memory.fails = nullptr;
}

// ---- close ----------------------------------------------------------------------------------------------------------

TEST_F(OrderOfACall, ThatIsClosedWithoutAWorker) {
    take_call(0);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(this_thread_did(joined({close_begun(), call_end_sent(), kAlert, handed_back(true)})));
}

TEST_F(OrderOfACall, ThatIsClosedAfterItsWorkerHasEnded) {
    place_call(0);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(this_thread_did(joined({close_begun(), call_end_sent(), kAlert, handed_back(true)})));
}

TEST_F(OrderOfACall, ThatIsClosedAfterItsDropAndWithItsFileOpen) {
    static DornTiff file;
    name_pointer(&file, "FILE");
    driver.on.DornTiffOpen = [](DornTiffRecord*) { return &file; };
    driver.on.DornTiffClose = [](DornTiffRecord*) { return 0; };
    take_call(0);
    uint32_t block[272] = {1};  // the command to open a file
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x31, line(0), 0, nullptr, block, sizeof(block)), 0x31);
    EXPECT_EQ(drop(), 0x21);
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(this_thread_did(joined({close_begun({"DornTiffClose(FILE)"}), kAlert, handed_back(true)})));
    EXPECT_TRUE(driver.waits_for_call(4));
    // The file is closed once.
    driver.ring(4);
    EXPECT_TRUE(comes("LINE_LINEDEVSTATE(<*>RINGING<*>"));
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffClose(<*>"));
}

TEST_F(OrderOfACall, ThatIsClosedUnderItsWorker) {
    place_call_that_lasts();
    std::atomic<bool> heard_once = false;
    driver.on.DornLineAlert = [&](DornAlertRecord* record) {
        return heard_once.exchange(true) ? ScriptedDriver::usual().DornLineAlert(record) : 0;
    };
    new_chapter();
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(this_thread_did(
        joined({close_begun(), lock_given_back(), cleared_by_a_drop({}), lock_taken(), handed_back(false)})));
}

TEST_F(OrderOfACall, ThatIsClosedWhileItIsDropped) {
    place_call_with_a_deaf_worker();
    Call dropping([this] { return drop(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)"));
    EXPECT_TRUE(comes("WaitForSingleObject(DROP_DONE, INFINITE)"));
    new_chapter();
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes("WaitForSingleObject(DROP_DONE, INFINITE)"));
    driver.release(4);
    EXPECT_EQ(dropping.result(), 0x21);
    EXPECT_EQ(closing.result(), 0);
    EXPECT_TRUE(reads(whole_story().on_thread(closing.thread()), joined({close_begun(),
                                                                         lock_given_back(),
                                                                         {"WaitForSingleObject(DROP_DONE, INFINITE)"},
                                                                         lock_taken(),
                                                                         handed_back(false)})));
}

TEST_F(OrderOfACall, ThatIsClosedBeforeItsWorkerHasEnded) {
    place_call_with_a_deaf_worker();
    // The worker's event seems to be signalled all the same.
    std::atomic<bool> woken = false;
    windows.objects.on_wait = [&](HANDLE object, DWORD) -> std::optional<DWORD> {
        if (object_name(object) != "WORKER_IDLE" || woken.exchange(true)) return std::nullopt;
        return WAIT_OBJECT_0;
    };
    Call closing([this] { return close_call(); });
    EXPECT_TRUE(comes("WaitForSingleObject(WORKER_IDLE, INFINITE)", 2));
    driver.release(4);
    EXPECT_EQ(closing.result(), 0);
    const Lines whole = lines(whole_story().on_thread(closing.thread()));
    const Lines after_the_drop = joined({{"[9] " + kCall + "drop_call_thread"},
                                         lock_taken(),
                                         {"ResetEvent(WORKER_IDLE)"},
                                         lock_given_back(),
                                         {"WaitForSingleObject(WORKER_IDLE, INFINITE)", kDidYouKnow},
                                         lock_taken(),
                                         lock_given_back(),
                                         {"[8] " + kCall + "LumLineResetReg"}});
    const auto place = std::find(whole.begin(), whole.end(), after_the_drop.front());
    ASSERT_GE(static_cast<size_t>(whole.end() - place), after_the_drop.size());
    EXPECT_EQ(Lines(place, place + static_cast<ptrdiff_t>(after_the_drop.size())), after_the_drop);
}

TEST_F(OrderOfACall, WhoseCloseFindsNoMemory) {
    HTAPICALL* handle_place = nullptr;
    tapi.on_event = [&](const LineEvent& event) {
        if (event.message == LINE_NEWCALL) handle_place = reinterpret_cast<HTAPICALL*>(event.parameters[1]);
    };
    take_call(0);
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    tapi.calls_given = 0;  // so that the next one is the first again
    place_call_with_a_deaf_worker();
    windows.memory.fails = drop_requests_of(GetCurrentThreadId());
    windows.event_log.takes_entries = false;
    EXPECT_EQ(close_call(), failed(LINEERR_NOMEM));
    windows.memory.fails = nullptr;
    EXPECT_TRUE(this_thread_did(joined({close_begun(),
                                        lock_given_back(),
                                        {kEntryRefused, "[4] tspi_lineclosecall called report_event with error",
                                         "[17] " + kCall + "TSPI_lineCloseCall(-2147483580) Failed"}})));
    driver.release(4);
    worker_ends();
    // The call would stay for ever; it is taken away and the line's thread let go from outside.
    *handle_place = nullptr;
    for (const auto& [handle, name] : windows.objects.open)
        if (name == "RING_DET_WAIT") SetEvent(handle);
}
