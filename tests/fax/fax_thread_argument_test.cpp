// The argument block of the fax threads: how it is laid out, and what a thread does without it or without its line.
#include <algorithm>

#include "fax_fixture.h"

using namespace harness;

namespace {

using ThreadBody = void(__cdecl*)(void*);

// The thread that the provider wanted to start last; it is not started.
ThreadBody wanted_body;
uint8_t* wanted_argument;

uintptr_t __cdecl keep_the_wish(ThreadBody body, unsigned, void* argument) {
    wanted_body = body;
    wanted_argument = static_cast<uint8_t*>(argument);
    return 1;
}

int blocks_freed;
HGLOBAL WINAPI count_and_free(HGLOBAL block) {
    return ++blocks_freed, GlobalFree(block);
}

class FaxThreadArgument : public OutgoingFaxFixture {
  protected:
    void SetUp() override {
        OutgoingFaxFixture::SetUp();
        open_file();
        blocks_freed = 0;
    }

    // Has the provider start a thread, without its running.
    void want_thread(Replacements& table, Command job) {
        table.replace("_beginthread", reinterpret_cast<void*>(&keep_the_wish));
        table.replace("GlobalFree", reinterpret_cast<void*>(&count_and_free));
        EXPECT_EQ(command(CommandBlock::fax(job, {"HEADER TEXT", "LOCAL ID", 0x12345678})), 0u);
        new_chapter();
    }

    // Runs the thread's body with this argument, as a thread would.
    static void run(void* argument) {
        Call thread([=] { return wanted_body(argument), 0; });
        thread.result();
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
        Replacements table(module);
        want_thread(table, job);
        EXPECT_EQ(value_at<const void*>(wanted_argument, 0), line(0));
        EXPECT_STREQ(reinterpret_cast<const char*>(wanted_argument + 8), "HEADER TEXT");
        EXPECT_STREQ(reinterpret_cast<const char*>(wanted_argument + 58), "LOCAL ID");
        EXPECT_EQ(value_at<uint32_t>(wanted_argument, 108), 0x12345678u);
        run(wanted_argument);
        EXPECT_EQ(blocks_freed, 1);
        blocks_freed = 0;
    }
}

TEST_F(FaxThreadArgument, IsTheWholeOfTheBlocksParametersByteForByte) {
    CommandBlock block(FAXSEND);
    for (size_t i = 0; i < 104; ++i) block.put(32 + i, static_cast<uint8_t>(i + 1));
    Replacements table(module);
    table.replace("_beginthread", reinterpret_cast<void*>(&keep_the_wish));
    EXPECT_EQ(command(block), 0u);
    EXPECT_TRUE(std::equal(wanted_argument + 8, wanted_argument + 112, block.data() + 32));
    put_value(wanted_argument, 8, uint8_t{0});
    put_value(wanted_argument, 58, uint8_t{0});
    run(wanted_argument);
}

TEST_F(FaxThreadArgument, MayBeMissingOrWithoutALine) {
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        const std::string name = job == FAXSEND ? "[2] Thread_Send_Fax" : "[2] Thread_Receive_Fax";
        Replacements table(module);
        want_thread(table, job);
        run(nullptr);
        expect_nothing_but(name + " arg=NULL");
        put_value<const void*>(wanted_argument, 0, nullptr);
        run(wanted_argument);
        expect_nothing_but(name + " pLine=NULL");
        put_value<const void*>(wanted_argument, 0, line(0));
        run(wanted_argument);
        EXPECT_TRUE(holds(events(), "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)"));
        blocks_freed = 0;
    }
}
