// A thread's whole story in one list: what it says at every level, what it asks of the board and of Windows, and what
// TAPI hears, so that the order of any two steps shows. The steps that many flows have are written here once.
//
//     EXPECT_TRUE(reads(on_this_thread(whole_story()),
//                       joined({{"[16] " + kCall + "TSPI_lineAccept"}, handle_is_valid(), lock_taken(), ...})));
//
// The lock and the events have the names that LineFixture gives them.
#pragma once

#include "line_fixture.h"

namespace harness {

// Everything but the level 4 lines of the lock, the questions about the log, the panic file, the ways through the
// registry, and what goes on inside a report to the event log.
View whole_story();
// What the line's own thread did; it is known by what nobody else does.
View of_ring_det_thread(const View& view);

// What the test's own thread did in this chapter; the next one begins.
testing::AssertionResult this_thread_did(const Lines& expected);

// Entry and exit of an internal function with a line at hand, and what it does in between.
Lines function(const std::string& name, const Lines& steps = {}, const std::string& of_the_line = kCall);
// The lock, taken and given back.
Lines lock_taken(const std::string& of_the_line = kCall);
Lines lock_given_back(const std::string& of_the_line = kCall);
// The check of the handle, which is a good one.
Lines handle_is_valid(const std::string& of_the_line = kCall);

// LINE1's channel is alerted.
inline const Lines kAlert = {"DornLineUnitGet(CHAN4)", "DornLineAlert(unit=14)"};

// Messages to TAPI, each from the function that sends it. The numbers are those of the trace, the texts those of the
// event.
Lines call_state_sent(unsigned state, const std::string& shown, unsigned mode = 0);
Lines call_state_kept();  // it was sent before
Lines number_of_calls_sent();
Lines call_end_sent();
Lines call_info_sent(unsigned state, const std::string& shown);
Lines ring_sent(unsigned count);

// The channel is reset, a call on it cleared first.
Lines channel_reset(const std::string& of_the_line, bool clears_a_call);
// The ring count is looked up, and the fax service knows no device.
Lines ring_count_looked_up();

// Memory has run out, and the event log does not take the entry either.
inline const std::string kEntryRefused = "refused event log(category=3, 0xC0000008, \"\")";

// The whole of a call function that looks under the lock and refuses.
Lines refused_request(const std::string& name, const std::string& of_the_line, DWORD error);
// The beginning of every close of a call that finds something to do, and its end once the line is still.
Lines close_begun(const Lines& file_closed = {});
Lines handed_back(bool clears_a_call);

}  // namespace harness
