// The fixture of tests about lines and their calls: LINE1 is open on channel 4, unit 14, and waits for calls.
//
// Its lock and its events have their own names in the journal: LOCK, WORKER_IDLE, DROP_DONE and RING_DET_WAIT, so that
// all_of(DRIVER | WINDOWS) shows what is done under the lock and who waits for whom.
#pragma once

#include <functional>
#include <string>

#include "provider_fixture.h"

namespace harness {

// What stands in front of a line's traces: without a call, with the first one, or with another one by its name.
std::string of_line(const std::string& call = "");
inline const std::string kNoCall = of_line();
inline const std::string kCall = of_line("HTCALL1");

// Only what the test's own thread did: it plays TAPI's.
View on_this_thread(const View& view);
// What the newest thread of a call, and of a drop, did; it is known by its first line.
View of_out_call_thread(const View& view);
View of_drop_call_thread(const View& view);
// Sets and resets of events, waits for them, sleeps, and every taking and giving back of the lock.
View handshake();
// The same without the lock's lines and the driver's: who signals whom, and what TAPI is told.
View signals();

// Several lists as one.
Lines joined(std::initializer_list<Lines> parts);

// How TAPI learns that the number of calls has changed, and that the call is over.
inline const Lines kNumCalls = {
    "[4] " + kCall + "Sending LINE_LINEDEVSTATE, newstate=0x800, Parm2=0x0, Parm3=0x0",
    "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
    "[4] " + kCall + "Sending LINE_ADDRESSSTATE addr=0x0, newstate=0x20, Parm3=0x0",
    "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
};
inline const Lines kCallIdle = {
    "[4] " + kCall + "Sending LINE_CALLSTATE, dwCallState=0x1, dwCallStateMode=0x0",
    "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
};
inline const Lines kCallEnded = joined({kCallIdle, kNumCalls});
// The ring count is looked up, and the fax service knows no device.
inline const Lines kNoRingCount = {
    "[4] ****** FindNringsFromLineID:  Can not open the registry",
    "[4] ****** FindNringsFromLineID: did not find it ",
};
// What a channel reset looks like.
inline const Lines kReset = {
    "[4] mmbyte using kxcall<C:\\boards\\kxcall.cfg>",
    "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
};

// How the records of requests are recognised among the provider's allocations: that of an outgoing call holds the
// parameters of the call; that of a drop is told from others by the thread that drops.
bool is_call_request(const Allocation& allocation);
std::function<bool(const Allocation&)> drop_requests_of(DWORD thread);

// Marks the end of a wait for a worker.
inline const std::string kDidYouKnow = "[4] !!!!!! Did you know !!!!!!!!!";

// The call ends as every entry point does that catches an exception.
testing::AssertionResult reports_an_exception(const std::string& function, const std::function<LONG()>& call);
// The test's thread has taken the line's lock and given it back as often.
testing::AssertionResult lock_is_given_back();

class LineFixture : public ProviderFixture {
  protected:
    void SetUp() override;
    // Opens the line of index 0 and names its lock and events.
    void open_named_line();

    // TAPI's calls on LINE1 with the usual arguments; the request is 0x21.
    LONG accept() { return tsp.TSPI_lineAccept(kRequest, call(0), nullptr, 0); }
    LONG answer() { return tsp.TSPI_lineAnswer(kRequest, call(0), nullptr, 0); }
    LONG drop() { return tsp.TSPI_lineDrop(kRequest, call(0), nullptr, 0); }
    LONG close_call() { return tsp.TSPI_lineCloseCall(call(0)); }
    LONG make_call(const wchar_t* number = L"5551234", LINECALLPARAMS* parameters = nullptr);
    LONG dial(const wchar_t* number);

    // How many calls the provider counts on LINE1: one while there is a call and the line is not idle.
    DWORD active_calls();

    // As ProviderFixture has them, and the line's thread has come to rest.
    void take_call(unsigned index, const CallData& data = {});
    void place_call(unsigned index);

    // Lets ring_det_thread out of its pause after a ring and waits until it is back in the driver.
    void end_the_pause();
    // A call is offered and the pause is over.
    void offer_call_and_wait(const CallData& data = {});
    // Another ring of the same call, until the thread is back in the driver.
    void ring_again();
    // An outgoing call is placed and stays in the driver's setup, until it is alerted or driver.release lets it go on;
    // the worker owns the line.
    void place_call_that_lasts();
    // Waits until the worker of an outgoing call has ended.
    void worker_ends(size_t times = 1);
    // Ends the waits of this length at once, as if the time had passed, unless the object is signalled.
    static void shorten_waits(DWORD milliseconds);

    static constexpr DRV_REQUESTID kRequest = 0x21;
    HDRVCALL placed = nullptr;  // what the last make_call was told
};

}  // namespace harness
