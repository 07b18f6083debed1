// The provider test harness: one include for every test of the provider.
//
// A test loads the real qorvtsp.tsp and plays everything around it: the board (scripted_driver.h, through a
// calddlld.dll of the tests' own), Windows (fake_windows.h, by replacing what the provider imports), and TAPI
// (tapi_side.h). All of them write into one journal (journal.h), and a test reads as: given this board and this
// machine, when this call is made, then this journal.
//
//     using namespace harness;
//
//     class RingDetection : public ProviderFixture {
//         void SetUp() override {
//             ProviderFixture::SetUp();
//             start_provider();              // enumerates and initialises; a new chapter of the journal
//             open_waiting_line(0);          // LINE1 on channel 4, unit 14; its thread waits for calls
//         }
//     };
//
//     TEST_F(RingDetection, ReportsARingOnlyOnceAsANewCall) {
//         offer_call(0, {"5551234", "", "5550100", "SENDER"});
//         const Lines expected = {
//             "LINE_NEWCALL(HTLINE1, 0, LINE1, &htCall, 0x0)",
//             "LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, 0x20)",
//             ...
//         };
//         EXPECT_TRUE(reads(events(), expected));
//     }
//
// Given. The board has module 2 with channels 4 and 5, whose units are 14 and 15 (channel + 10), all capabilities, and
// calls that succeed; the lines have the indexes 0 and 1, the device IDs 7 and 8 and the names LINE1 and LINE2. The
// host service runs, the fax service is installed, Windows is 6.1. Change `driver`, `windows` and `tapi` before the
// call that is to see the change.
//
// When. Call the provider's exports through `tsp`: tsp.TSPI_lineDrop(next_request(), call(0), nullptr, 0). A call that
// blocks goes on a thread of its own: Call drop([&] { return tsp.TSPI_lineDrop(...); }); ... drop.result(). The fixture
// has short forms for what many tests need: start_provider, open_line, offer_call, take_call, place_call, close_line.
//
// Then. reads(view, lines) compares all lines of a view, reads_in_order some of them, holds and holds_no one. "<*>" in
// an expectation stands for anything. new_chapter() forgets what came before. SharedRecord shows a line's shared
// record. Function entries and exits (levels 8 and 9) are left out of the views unless .levels({8, 9}) or .all_levels()
// asks for them, and so are the five lines that taking and giving back a line lock writes at level 4. whole_story.h has
// the view of everything that a thread did, for tests of the order between traces, board, Windows and TAPI.
//
// Waiting. Never sleep. What another thread does is awaited with comes("line of the journal"), wait_until(condition),
// or by holding that thread in a place of one's choice: driver.gate("DornFaxSendPageTiff").close(),
// sleep_gate(6000).close(), then .holds_somebody() and .open(). A Sleep in the provider lasts a thousandth of its time,
// waits last as long as they say (windows.objects.longest_wait shortens them). A handler may block with
// driver.block(line) until the provider alerts the unit or the test releases it.
//
// What is checked without being asked: every record given to the driver is zero but for its input fields; no driver
// call on a line that is not attached; the stamp of every trace line; and, at the end, that lines close, the provider
// shuts down and all its threads end. A test that hangs is ended after 45 s with the journal printed.
//
// Every test has a process of its own under ctest; a test program may also be run whole, then the provider is loaded
// anew for each test. A new folder of tests needs one line in tests/CMakeLists.txt and a CMakeLists.txt that calls
// add_provider_tests.
#pragma once

#include "fake_windows.h"
#include "import_table.h"
#include "journal.h"
#include "provider_exports.h"
#include "provider_fixture.h"
#include "scripted_driver.h"
#include "tapi_side.h"
#include "text.h"
#include "waiting.h"
