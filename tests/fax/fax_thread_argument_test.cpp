// The argument block of the fax threads: how it is laid out, and what a thread does without it or without its line.
#include <algorithm>

#include "fax_fixture.h"
#include "wanted_thread.h"

using namespace harness;

namespace {

int blocks_freed;
HGLOBAL WINAPI count_and_free(HGLOBAL block) {
    return ++blocks_freed, GlobalFree(block);
}

// What a thread is given, as it is when the thread starts.
uint8_t given[112];
uintptr_t __cdecl look_at_the_argument(void(__cdecl*)(void*), unsigned, void* argument) {
    std::memcpy(given, argument, sizeof(given));
    return 1;
}

class FaxThreadArgument : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        blocks_freed = 0;
    }

    // Has the provider want a thread for this job.
    void want(Replacements& table, Command job) {
        table.replace("GlobalFree", reinterpret_cast<void*>(&count_and_free));
        EXPECT_EQ(command(CommandBlock::fax(job, {"HEADER TEXT", "LOCAL ID", 0x12345678})), 0u);
        new_chapter();
    }

    void expect_nothing_but(const std::string& trace) {
        EXPECT_TRUE(reads(story(), {trace}));
        EXPECT_EQ(blocks_freed, 0);
        new_chapter();
    }
};

}  // namespace

TEST_F(FaxThreadArgument, HoldsTheLineAndTheBlocksParameters) {
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        const WantedThread thread(module);
        Replacements table(module);
        want(table, job);
        EXPECT_EQ(value_at<const void*>(thread.argument(), 0), line(0));
        EXPECT_STREQ(reinterpret_cast<const char*>(thread.argument() + 8), "HEADER TEXT");
        EXPECT_STREQ(reinterpret_cast<const char*>(thread.argument() + 58), "LOCAL ID");
        EXPECT_EQ(value_at<uint32_t>(thread.argument(), 108), 0x12345678u);
        thread.run(thread.argument());
        EXPECT_EQ(blocks_freed, 1);
        blocks_freed = 0;
    }
}

TEST_F(FaxThreadArgument, IsTheWholeOfTheBlocksParametersByteForByte) {
    CommandBlock block(FAXSEND);
    for (size_t i = 0; i < 104; ++i) block.put(32 + i, static_cast<uint8_t>(i + 1));
    const WantedThread thread(module);
    EXPECT_EQ(command(block), 0u);
    EXPECT_TRUE(std::equal(thread.argument() + 8, thread.argument() + 112, block.data() + 32));
    put_value(thread.argument(), 8, uint8_t{0});
    put_value(thread.argument(), 58, uint8_t{0});
    thread.run(thread.argument());
}

TEST_F(FaxThreadArgument, IsCompleteWhenTheThreadStarts) {
    CommandBlock block(FAXSEND);
    for (size_t i = 0; i < 104; ++i) block.put(32 + i, static_cast<uint8_t>(i + 1));
    Replacements table(module);
    ASSERT_TRUE(table.replace("_beginthread", reinterpret_cast<void*>(&look_at_the_argument)));
    EXPECT_EQ(command(block), 0u);
    EXPECT_EQ(value_at<const void*>(given, 0), line(0));
    EXPECT_TRUE(std::equal(given + 8, given + 112, block.data() + 32));
}

TEST_F(FaxThreadArgument, MayBeMissingOrWithoutALine) {
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        const std::string name = job == FAXSEND ? "[2] Thread_Send_Fax" : "[2] Thread_Receive_Fax";
        const WantedThread thread(module);
        Replacements table(module);
        want(table, job);
        thread.run(nullptr);
        expect_nothing_but(name + " arg=NULL");
        put_value<const void*>(thread.argument(), 0, nullptr);
        thread.run(thread.argument());
        expect_nothing_but(name + " pLine=NULL");
        put_value<const void*>(thread.argument(), 0, line(0));
        thread.run(thread.argument());
        EXPECT_TRUE(holds(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)"));
        blocks_freed = 0;
    }
}
