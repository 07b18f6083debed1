// What is left when the board's library or TAPI's procedure throws or faults in the middle of a job: a line that can be
// used, and a fax service that has been told.
#include <functional>
#include <memory>

#include "board_report_fixture.h"

using namespace harness;

namespace {

[[noreturn]] void throw_something() {
    throw 7;
}

// Both kinds of exception.
const std::function<void()> kExceptions[] = {throw_something, cause_access_violation};

class FaxException : public OutgoingFaxFixture {
  protected:
    // A job of either kind in which a driver function does this; the place is in `driver.on`.
    template <class Function>
    void run_job(Command job, Function& place, const std::function<void()>& exception) {
        open_file();
        new_chapter();
        before(place, exception);
        EXPECT_EQ(command(CommandBlock::fax(job, {"HEADER", "ID", 1})), 0u);
        fax_thread_ends();
        driver.on = ScriptedDriver::usual();
    }

    // The job has ended for everybody, once.
    void expect_ended(Command job) {
        EXPECT_TRUE(
            holds(traces(), job == FAXSEND ? "[1] Thread_Send_Fax: Exception" : "[1] Thread_Receive_Fax: Exception"));
        EXPECT_EQ(outcome(), (Lines{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x2, 0x0)",
                                    "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x2, 0x20)"}));
        EXPECT_FALSE(line_is_locked());
        EXPECT_EQ(driver.channel(4).handler, nullptr);
        EXPECT_GT(tsp.TSPI_lineDrop(next_request(), call(0), nullptr, 0), 0);
    }

    template <class Function>
    void expect_recovery(Command job, Function& place) {
        for (const std::function<void()>& exception : kExceptions) {
            run_job(job, place, exception);
            expect_ended(job);
        }
    }
};

using ReportException = BoardReportFixture;

}  // namespace

TEST_F(FaxException, InAnyStepOfATransmissionEndsIt) {
    for (auto* step : {&driver.on.DornFaxHeader, &driver.on.DornFaxSetLocalId, &driver.on.DornFaxBeginSendTiff,
                       &driver.on.DornFaxGetRemoteInfo, &driver.on.DornFaxWaitForTraining,
                       &driver.on.DornFaxNextPageTiff, &driver.on.DornFaxSendPageTiff, &driver.on.DornFaxEndOfDocument})
        expect_recovery(FAXSEND, *step);
}

TEST_F(FaxException, InAnyStepOfAReceptionEndsIt) {
    for (auto* step : {&driver.on.DornFaxSetReceiveFmt, &driver.on.DornFaxSetLocalId, &driver.on.DornFaxBeginReceive,
                       &driver.on.DornFaxGetRemoteInfo, &driver.on.DornFaxWaitForTraining,
                       &driver.on.DornFaxRcvPageTiff, &driver.on.DornFaxEndReception})
        expect_recovery(FAXRECEIVE, *step);
}

TEST_F(FaxException, AtTheHandlersSlotEndsTheJob) {
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        // The first call fills the slot, a later one empties it.
        auto calls = std::make_shared<int>(0);
        run_job(job, driver.on.DornLineIncomingCmdFuncAccess, [calls] {
            if (++*calls == 1) throw_something();
        });
        expect_ended(job);
    }
}

TEST_F(FaxException, AtTheHandlersSlotTimeAndAgainStillEndsTheJob) {
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        run_job(job, driver.on.DornLineIncomingCmdFuncAccess, throw_something);
        EXPECT_EQ(count(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, <*>"), 1u);
        EXPECT_GT(tsp.TSPI_lineDrop(next_request(), call(0), nullptr, 0), 0);
    }
}

TEST_F(FaxException, UnderTheLineLockReleasesIt) {
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        // The fax thread asks for the unit first when it publishes the empty status.
        std::function<void()> throw_once = [thrown = std::make_shared<bool>(false), caller = GetCurrentThreadId()] {
            if (GetCurrentThreadId() == caller || *thrown) return;
            *thrown = true;
            throw_something();
        };
        run_job(job, driver.on.DornLineUnitGet, throw_once);
        expect_ended(job);
    }
}

TEST_F(FaxException, InTheErrorTextEndsTheJob) {
    for (const std::function<void()>& exception : kExceptions) {
        driver.on.DornFaxBeginSendTiff = fax_step(0, KX_STATUS_ERROR, 0);
        run_job(FAXSEND, driver.on.DornErrorMessage, exception);
        expect_ended(FAXSEND);
    }
}

TEST_F(FaxException, OfTapisProcedureIsSwallowedByATransmission) {
    open_file();
    tapi.on_event = [](const LineEvent& event) {
        if (event.message == LINE_CALLDEVSPECIFIC) throw 1;
    };
    send_fax();
    EXPECT_TRUE(
        reads(traces().levels({1}), {"[1] Send_CallDevSpecific: Exception", "[1] Send_CallDevSpecific: Exception"}));
    EXPECT_TRUE(holds(driver_calls(), "DornFaxEndOfDocument(CHAN4)"));
    EXPECT_EQ(outcome(), (Lines{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)",
                                "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)"}));
}

TEST_F(FaxException, OfEveryEventIsSwallowedByAReception) {
    open_file();
    tapi.on_event = [](const LineEvent&) { cause_access_violation(); };
    receive_fax();
    EXPECT_EQ(count(traces(), "[1] Send_CallDevSpecific: Exception"), 2u);
    EXPECT_EQ(count(traces(), "[1] SetCallState: Exception"), 1u);
    EXPECT_TRUE(holds_no(traces(), "[1] Thread_Receive_Fax: Exception"));
    EXPECT_FALSE(line_is_locked());
}

namespace {

using NumbersException = FaxFixture;

}  // namespace

TEST_F(NumbersException, OfTapisProcedureUnderTheLineLockIsSwallowed) {
    take_call(0, {"5551234", "", "", ""});
    open_file();
    tapi.on_event = [](const LineEvent&) { throw 1; };
    receive_fax();
    EXPECT_EQ(count(traces(), "[1] Send_CallDevSpecific: Exception"), 3u);
    EXPECT_TRUE(holds(driver_calls(), "DornFaxEndReception(CHAN4)"));
    EXPECT_FALSE(line_is_locked());
}

TEST_F(ReportException, WhileTheReportIsReadIsSwallowed) {
    for (const std::function<void()>& exception : kExceptions) {
        new_chapter();
        driver.on.DornGetTaggedValues = [exception](DornReport*, DornTaggedValue*) { return exception(), 0; };
        announce_more_pages();
        page_end();
        EXPECT_EQ(count(traces(), "[1] InterruptFromLUM: Exception"), 2u);
        EXPECT_FALSE(line_is_locked());
    }
}

TEST_F(ReportException, UnderTheLineLockReleasesIt) {
    for (const std::function<void()>& exception : kExceptions) {
        new_chapter();
        driver.on.DornLineDcsGet = [exception](DornLine*) -> const uint8_t* { return exception(), nullptr; };
        frame(RECEIVED, {DCS});
        EXPECT_TRUE(holds(traces(), "[1] InterruptFromLUM: Exception"));
        EXPECT_FALSE(line_is_locked());
    }
}

TEST_F(ReportException, OfTapisProcedureIsSwallowed) {
    tapi.on_event = [](const LineEvent&) { throw 1; };
    driver.channel(4).dcs[2] = 7;
    frame(RECEIVED, {DCS});
    announce_more_pages();
    page_end();
    EXPECT_TRUE(
        reads(traces().levels({1}), {"[1] send_linecallinfo: Exception", "[1] Send_CallDevSpecific: Exception"}));
    EXPECT_EQ(rate(), 14400u);
    EXPECT_EQ(pages(), 1u);
    EXPECT_FALSE(line_is_locked());
}
