// The handles that TAPI passes: the record of an open line is its line handle and its call handle.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class CallHandle : public LineFixture {
  protected:
    // Every call function on a handle; the results in the order of the names below.
    std::vector<LONG> ask_all(HDRVCALL asked) {
        return {
            tsp.TSPI_lineAccept(0x21, asked, nullptr, 0), tsp.TSPI_lineAnswer(0x21, asked, nullptr, 0),
            tsp.TSPI_lineDrop(0x21, asked, nullptr, 0),   tsp.TSPI_lineCloseCall(asked),
            tsp.TSPI_lineDial(0x21, asked, L"1", 0),
        };
    }
};

}  // namespace

TEST_F(CallHandle, IsInvalidOnceTheLineIsClosed) {
    HDRVCALL closed = call(0);
    EXPECT_EQ(close_line(0), 0);
    new_chapter();
    EXPECT_EQ(ask_all(closed), std::vector<LONG>(5, failed(LINEERR_INVALCALLHANDLE)));
    EXPECT_TRUE(reads(traces().levels({2, 4}), {
                                                   "[4] TSPI_lineAccept - Invalid Call handle",
                                                   "[2] TSPI_lineAnswer - Invalid call handle.",
                                                   "[4] TSPI_lineDrop - Invalid CallHandle",
                                                   "[4] TSPI_lineCloseCall - Invalid CallHandle",
                                                   "[4] TSPI_lineDial - Invalid call handle.",
                                               }));
    EXPECT_TRUE(reads(all_of(DRIVER | EVENT | COMPLETION), {}));
}

TEST_F(CallHandle, OfAClosedLineMakesNoCall) {
    HDRVLINE closed = line(0);
    EXPECT_EQ(close_line(0), 0);
    EXPECT_EQ(tsp.TSPI_lineMakeCall(0x21, closed, tapi.new_call_handle(), &placed, L"1", 0, nullptr),
              failed(LINEERR_INVALLINEHANDLE));
    EXPECT_EQ(placed, nullptr);
}

TEST_F(CallHandle, IsTheLinesOwn) {
    open_waiting_line(1);
    offer_call(0);
    new_chapter();
    EXPECT_EQ(tsp.TSPI_lineAnswer(0x21, call(1), nullptr, 0), failed(LINEERR_INVALCALLSTATE));
    EXPECT_EQ(tsp.TSPI_lineAnswer(0x22, call(0), nullptr, 0), 0x22);
    EXPECT_TRUE(reads(driver_calls(), {"DornLineAnswerISDN(CHAN4)"}));
}

TEST_F(CallHandle, OfTheOtherLineServesAnotherCallAtTheSameTime) {
    open_waiting_line(1);
    place_call_that_lasts();
    offer_call(1);
    new_chapter();
    EXPECT_EQ(tsp.TSPI_lineAnswer(0x22, call(1), nullptr, 0), 0x22);
    EXPECT_TRUE(reads(events(), {"LINE_CALLSTATE(HTLINE2, HTCALL2, CONNECTED, 0x1, 0x20)"}));
    driver.release(4);
    worker_ends();
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"));
}
