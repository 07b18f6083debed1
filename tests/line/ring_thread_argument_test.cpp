// What ring_det_thread does without its line.
#include "harness.h"
#include "wanted_thread.h"
#include "whole_story.h"

using namespace harness;

namespace {

using RingThread = ProviderFixture;

}  // namespace

TEST_F(RingThread, EndsWithoutALine) {
    start_provider();
    const WantedThread thread(module);
    open_line(0);
    new_chapter();
    thread.run(nullptr);
    EXPECT_TRUE(reads(whole_story(), {"[8] ring_det_thread", "[2] ring_det_thread pLine=NULL", "[9] ring_det_thread"}));
    Call ringing([&] { return thread.run(thread.argument()), 0; });
    EXPECT_EQ(close_line(0), 0);
    ringing.result();
}
