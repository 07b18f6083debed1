// What the reset of a channel at start-up leaves for its line, and what it must not do to other lines.
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "harness.h"

using namespace harness;

namespace {

// Two lines: channels 4 and 5, units 14 and 15.
class StartUpReset : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        ASSERT_EQ(enumerate(), 0);
        new_chapter();
    }

    LONG open_result(unsigned index) {
        HDRVLINE opened = nullptr;
        LONG result =
            tsp.TSPI_lineOpen(kDeviceIdBase + index, tapi.line_handle(index), &opened, kTspiVersion, tapi_event);
        EXPECT_EQ(tsp.TSPI_lineClose(opened), result == 0 ? 0 : failed(LINEERR_OPERATIONFAILED));
        return result;
    }
};

// Blocks of the argument's size that begin like that of channel 4's thread, as the provider gives them back.
std::atomic<int> arguments_given_back{0};

void __cdecl free_watched(void* block) {
    if (block && _msize(block) == 16) {
        struct {
            DornLine* channel;
            uint32_t index;
        } begin = {};
        std::memcpy(&begin, block, sizeof(void*) + sizeof(uint32_t));
        if (begin.channel && begin.channel == driver.line_of(4) && begin.index == 0) ++arguments_given_back;
    }
    std::free(block);
}

}  // namespace

TEST_F(StartUpReset, GivesItsArgumentBack) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("free", reinterpret_cast<void*>(free_watched)));
    arguments_given_back = 0;
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(windows.all_threads_end(kPatience));
    EXPECT_EQ(arguments_given_back, 1);
}

TEST_F(StartUpReset, MarksOnlyTheChannelThatFailed) {
    driver.channel(5).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(traces().levels({1}), {"[1] Reset failure or no fw on chan 15!"}));
    driver.channel(5).reset_result = 0;
    EXPECT_EQ(open_result(0), 0);
    EXPECT_EQ(open_result(1), failed(LINEERR_RESOURCEUNAVAIL));
}

TEST_F(StartUpReset, LeavesTheRateOfAFailedChannel) {
    driver.channel(5).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(device_caps(0).dwMaxRate, 2400u);
    EXPECT_EQ(device_caps(1).dwMaxRate, 14400u);
}

TEST_F(StartUpReset, DoesNotAskAFailedChannelForItsCapabilities) {
    driver.channel(5).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineCapCheck(CHAN5, <*>"));
    EXPECT_TRUE(holds(driver_calls(), "DornSessionDetach(CHAN5)"));
}

TEST_F(StartUpReset, TracesTheUnitOfAChannelWithoutFax) {
    driver.channel(5).capabilities = {};
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(traces().only({"<*>support fax!"}), {"[4] (Channel 15) doesn't support fax!"}));
    EXPECT_EQ(device_caps(1).dwMaxRate, 2400u);
}

TEST_F(StartUpReset, DetachesEveryChannelAfterItsReset) {
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    for (const char* channel : {"CHAN4", "CHAN5"})
        EXPECT_TRUE(reads_in_order(driver_calls(), {std::string("DornLineReset(") + channel + ", <*>",
                                                    std::string("DornSessionDetach(") + channel + ")"}));
    EXPECT_EQ(driver.attached(), 0u);
}

TEST_F(StartUpReset, MarksAChannelBadUntilTheNextEnumeration) {
    driver.channel(5).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(shut_down(), 0);
    driver.channel(5).reset_result = 0;
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(open_result(1), 0);
}

TEST_F(StartUpReset, IsFinishedForTheOthersWhenOneThrows) {
    driver.on.DornLineReset = [](DornLine* line, DornResetRecord*) -> int {
        if (driver.channel_of(line).number == 5) throw 1;
        return 0;
    };
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(traces().levels({1}), {"[1] ResetChannelThread: Exception"}));
    EXPECT_EQ(open_result(0), 0);
    driver.on.DornLineReset = ScriptedDriver::usual().DornLineReset;
}

TEST_F(StartUpReset, IsFinishedWhenTheDetachFaults) {
    driver.on.DornSessionDetach = [](DornLine*, DornAttachRecord*) { return cause_access_violation(), 0; };
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(count(traces(), "[1] ResetChannelThread: Exception"), 2u);
}
