// What the threads of calls do without their request or without its line: they say so and are gone.
#include "line_fixture.h"
#include "wanted_thread.h"
#include "whole_story.h"

using namespace harness;

namespace {

using CallThread = LineFixture;

}  // namespace

TEST_F(CallThread, OfAnOutgoingCallEndsWithoutALine) {
    const WantedThread thread(module);
    EXPECT_GT(make_call(), 0);
    new_chapter();
    thread.run_with_zeros();
    EXPECT_TRUE(reads(whole_story().only({"[<*>] out_call_thread<*>"}),
                      {"[8] out_call_thread", "[2] out_call_thread pLine=NULL", "[9] out_call_thread"}));
    thread.run(thread.argument());
    EXPECT_TRUE(holds(events(), "LINE_CALLSTATE(HTLINE1, HTCALL1, CONNECTED, 0x1, 0x20)"));
}

TEST_F(CallThread, OfADropEndsWithoutARequestOrALine) {
    place_call_that_lasts();
    const WantedThread thread(module);
    Call dropping([this] { return drop(); });
    wait_until([&] { return thread.argument() != nullptr; });
    new_chapter();
    thread.run(nullptr);
    EXPECT_TRUE(reads(whole_story().only({"[<*>] drop_call_thread<*>"}),
                      {"[8] drop_call_thread", "[2] drop_call_thread pDropCall=NULL", "[9] drop_call_thread"}));
    new_chapter();
    thread.run_with_zeros();
    EXPECT_TRUE(reads(whole_story().only({"[<*>] drop_call_thread<*>"}),
                      {"[8] drop_call_thread", "[2] drop_call_thread pLine=NULL", "[9] drop_call_thread"}));
    thread.run(thread.argument());
    EXPECT_GT(dropping.result(), 0);
    EXPECT_TRUE(holds(completions(), "completion(request=0x21, result=0x0)"));
}
