// The messages to TAPI: what they carry, when a call state is not sent, and a TAPI procedure that fails.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class Events : public LineFixture {
  protected:
    static void throw_at(DWORD message) {
        tapi.on_event = [message](const LineEvent& event) {
            if (event.message == message) throw 1;
        };
    }

    DWORD remembered_state() {
        LINECALLSTATUS status = {};
        EXPECT_EQ(tsp.TSPI_lineGetCallStatus(call(0), &status), 0);
        return status.dwCallState;
    }
};

}  // namespace

TEST_F(Events, CarryTheRecordAsTheNewCallAndThePlaceOfItsHandle) {
    tapi.on_event = [this](const LineEvent& event) {
        if (event.message != LINE_NEWCALL) return;
        EXPECT_EQ(event.line, tapi.line_handle(0));
        EXPECT_EQ(event.call, nullptr);
        EXPECT_EQ(reinterpret_cast<HDRVCALL>(event.parameters[0]), call(0));
        EXPECT_EQ(*reinterpret_cast<HTAPICALL*>(event.parameters[1]), nullptr);
        EXPECT_EQ(event.parameters[2], 0u);
        note("a new call");
    };
    offer_call(0);
    EXPECT_TRUE(holds(all_of(NOTE), "a new call"));
    EXPECT_TRUE(
        reads_in_order(traces(), {"[4] " + kNoCall + "Sending LINE_NEWCALL", "[4] " + kCall + "Sent LINE_NEWCALL"}));
}

TEST_F(Events, ExtendTheirParametersWithZeros) {
    std::wstring device = kFaxDevices + L"\\0000000001\\Provider";
    windows.registry.set(device, L"TAPI Permanent Lineid", (kProviderId << 16) | 4);
    windows.registry.set(device, L"Rings", 0xFFFFFFFF);
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0xFFFFFFFF)"));
}

TEST_F(Events, GoToTheProcedureAndTheHandleOfTheirLine) {
    open_waiting_line(1);
    offer_call(1);
    EXPECT_TRUE(reads(events(), {
                                    "LINE_NEWCALL(HTLINE2, 0, LINE2, &htCall, 0x0)",
                                    "LINE_CALLSTATE(HTLINE2, HTCALL1, OFFERING, 0x1, 0x20)",
                                    "LINE_LINEDEVSTATE(HTLINE2, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                    "LINE_ADDRESSSTATE(HTLINE2, 0, 0x0, NUMCALLS, 0x0)",
                                    "LINE_LINEDEVSTATE(HTLINE2, HTCALL1, RINGING, 0x1, 0x1)",
                                }));
}

// ---- call states that are not sent ----------------------------------------------------------------------------------

TEST_F(Events, DoNotRepeatACallState) {
    place_call_that_lasts();
    EXPECT_EQ(drop(), 0x21);
    EXPECT_TRUE(comes("[9] " + kCall + "drop_call_thread"));
    EXPECT_EQ(count(events(), "LINE_CALLSTATE(<*>IDLE<*>"), 1u);
    // The worker sends it; the drop finds it sent.
    EXPECT_TRUE(reads(of_drop_call_thread(traces().levels({8, 9}).only({"<*>SetCallState"})),
                      {"[8] " + kCall + "SetCallState", "[9] " + kCall + "SetCallState"}));
    EXPECT_TRUE(holds_no(of_drop_call_thread(traces()), "<*>Sending LINE_CALLSTATE<*>"));
    EXPECT_TRUE(holds(of_out_call_thread(traces()), "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x1, <*>"));
}

TEST_F(Events, AreLostForACallWithoutAHandle) {
    EXPECT_EQ(tsp.TSPI_lineMakeCall(0x21, line(0), nullptr, &placed, L"5551234", 0, nullptr), 0x21);
    worker_ends();
    EXPECT_TRUE(reads(events(), {"LINE_LINEDEVSTATE(HTLINE1, 0, NUMCALLS, 0x0, 0x0)",
                                 "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)"}));
    EXPECT_EQ(remembered_state(), static_cast<DWORD>(LINECALLSTATE_UNKNOWN));
    EXPECT_TRUE(holds_no(traces(), "<*>Sending LINE_CALLSTATE<*>"));
    // A call that nobody can close: the next one on the line, which can, sets the line right.
    shorten_waits(500);
    EXPECT_EQ(make_call(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_EQ(close_call(), 0);
}

TEST_F(Events, StartWithTheFirstStateOfEveryCall) {
    for (int i = 1; i <= 2; ++i) {
        place_call(0);
        EXPECT_EQ(close_call(), 0);
        EXPECT_TRUE(driver.waits_for_call(4));
        EXPECT_TRUE(reads(events().only({text("LINE_CALLSTATE(<*>HTCALL%d, <*>", i)}),
                          {
                              text("LINE_CALLSTATE(HTLINE1, HTCALL%d, DIALING, 0x0, 0x20)", i),
                              text("LINE_CALLSTATE(HTLINE1, HTCALL%d, PROCEEDING, 0x0, 0x20)", i),
                              text("LINE_CALLSTATE(HTLINE1, HTCALL%d, CONNECTED, 0x1, 0x20)", i),
                              text("LINE_CALLSTATE(HTLINE1, HTCALL%d, IDLE, 0x0, 0x20)", i),
                          }));
    }
}

TEST_F(Events, AreSentOnceWhenTwoThreadsReportTheSameState) {
    take_call(0);
    new_chapter();
    // The first drop stands in TAPI's procedure, with the lock held.
    Gate in_the_procedure;
    in_the_procedure.close();
    tapi.on_event = [&](const LineEvent& event) {
        if (event.message == LINE_CALLSTATE) in_the_procedure.pass();
    };
    Call first([this] { return drop(); });
    EXPECT_TRUE(in_the_procedure.holds_somebody());
    Call second([this] { return tsp.TSPI_lineDrop(0x22, call(0), nullptr, 0); });
    EXPECT_TRUE(comes("WaitForSingleObject(LOCK, INFINITE)", 3));
    in_the_procedure.open();
    EXPECT_EQ(first.result(), 0x21);
    EXPECT_EQ(second.result(), 0x22);
    tapi.on_event = nullptr;
    EXPECT_TRUE(reads(events().only({"LINE_CALLSTATE(<*>"}), {"LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)"}));
}

// ---- a procedure that throws ----------------------------------------------------------------------------------------

TEST_F(Events, SurviveAnExceptionAtACallState) {
    offer_call(0);
    new_chapter();
    throw_at(LINE_CALLSTATE);
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(reads(story(), {
                                   "[16] " + kCall + "TSPI_lineAnswer",
                                   "DornLineAnswerISDN(CHAN4)",
                                   "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x100, dwCallStateMode=0x1",
                                   "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)",
                                   "[1] SetCallState: Exception",
                                   "[4] TSPI_lineAnswer - Async completion requestID= 0x21: result= 0x0",
                                   "completion(request=0x21, result=0x0)",
                                   "[17] " + kCall + "TSPI_lineAnswer(33) Good",
                               }));
    EXPECT_TRUE(lock_is_given_back());
    tapi.on_event = nullptr;
    Call asking([this] { return remembered_state(); });
    EXPECT_EQ(asking.result(), LINECALLSTATE_CONNECTED);
}

TEST_F(Events, SurviveAFaultAtACallState) {
    offer_call(0);
    tapi.on_event = [](const LineEvent& event) {
        if (event.message == LINE_CALLSTATE) cause_access_violation();
    };
    EXPECT_EQ(answer(), 0x21);
    EXPECT_TRUE(holds(traces(), "[1] SetCallState: Exception"));
    tapi.on_event = nullptr;
    Call asking([this] { return remembered_state(); });
    EXPECT_EQ(asking.result(), LINECALLSTATE_CONNECTED);
}

TEST_F(Events, SurviveAnExceptionAtANewCall) {
    throw_at(LINE_NEWCALL);
    ring_again();
    EXPECT_TRUE(reads_in_order(traces().all_levels(), {
                                                          "[8] " + kNoCall + "send_linenewcall",
                                                          "[4] " + kNoCall + "Sending LINE_NEWCALL",
                                                          "[1] send_linenewcall: Exception",
                                                          "[4] " + kNoCall + "Sent LINE_NEWCALL",
                                                          "[9] " + kNoCall + "send_linenewcall",
                                                          "[4] " + kNoCall + "LINE_NEWCALL return NULL",
                                                          "[8] " + kNoCall + "send_linenewcall",
                                                          "[1] send_linenewcall: Exception",
                                                          "[4] NEWCALL returned NULL htCall, go back to waitforcall",
                                                      }));
}

namespace {

struct Sender {
    DWORD message;
    const char* function;
};

void PrintTo(const Sender& sender, std::ostream* out) {
    *out << sender.function;
}

class FailingProcedure : public Events, public testing::WithParamInterface<Sender> {};

}  // namespace

TEST_P(FailingProcedure, IsTracedUnderTheSendersNameAndChangesNothing) {
    throw_at(GetParam().message);
    offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
    EXPECT_TRUE(
        reads(events().without({"LINE_<*>RINGING<*>"}), {
                                                            "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
                                                            "LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, 0x20)",
                                                            "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
                                                            "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
                                                            "LINE_CALLINFO(HTLINE1, HTCALL1, CALLEDID, 0x0, 0x0)",
                                                            "LINE_CALLINFO(HTLINE1, HTCALL1, CALLERID, 0x0, 0x0)",
                                                        }));
    const std::string function = GetParam().function;
    EXPECT_TRUE(
        reads_in_order(traces().levels({1, 8, 9}),
                       {"[8] " + kCall + function, "[1] " + function + ": Exception", "[9] " + kCall + function}));
    for (const std::string& line : lines(traces().levels({1}))) EXPECT_EQ(line, "[1] " + function + ": Exception");
}

INSTANTIATE_TEST_SUITE_P(EachSender, FailingProcedure,
                         testing::Values(Sender{LINE_CALLSTATE, "SetCallState"},
                                         Sender{LINE_LINEDEVSTATE, "send_linedevstate"},
                                         Sender{LINE_ADDRESSSTATE, "send_addrstate"},
                                         Sender{LINE_CALLINFO, "send_linecallinfo"}));
