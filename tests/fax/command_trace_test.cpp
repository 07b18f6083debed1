// The whole of a request: everything that TSPI_lineDevSpecific does on TAPI's thread, in order, command by command.
#include "fax_story.h"

using namespace harness;

namespace {

class CommandTrace : public OutgoingFaxFixture {
  protected:
    static void note_argument_blocks() {
        windows.memory.fails = [](const Allocation& one) {
            if (std::string(one.function) == "GlobalAlloc")
                note(text("GlobalAlloc(%llu)", static_cast<unsigned long long>(one.size)));
            return false;
        };
    }
    static void let_argument_blocks_fail() {
        windows.memory.fails = [](const Allocation& one) { return std::string(one.function) == "GlobalAlloc"; };
    }

    // An argument block that cannot be had, and an administrator who cannot be told.
    void expect_no_memory(Command job, const std::string& command_text, const std::string& complaint) {
        open_file();
        let_argument_blocks_fail();
        windows.event_log.takes_entries = false;
        new_chapter();
        EXPECT_EQ(command(CommandBlock::fax(job, {})), 1u);
        EXPECT_TRUE(reads(
            whole_request(),
            accepted_request(0x13, command_text, {"[2] Mem allocation error", kEntryRefused, "[4] " + complaint})));
    }
};

}  // namespace

TEST_F(CommandTrace, OfAnOpen) {
    EXPECT_EQ(command(CommandBlock::open(file(), "w+")), 0u);
    EXPECT_TRUE(reads(whole_request(),
                      accepted_request(0x12, "1 (eTspCmd_TIFFOPEN)", {"DornTiffOpen(\"" + file() + "\", \"w+\")"})));
}

TEST_F(CommandTrace, OfAnOpenThatFails) {
    driver.on.DornTiffOpen = [](DornTiffRecord*) -> DornTiff* { return nullptr; };
    EXPECT_EQ(command(CommandBlock::open(file(), "w+")), 1u);
    EXPECT_TRUE(reads(whole_request(),
                      accepted_request(0x12, "1 (eTspCmd_TIFFOPEN)", {"DornTiffOpen(\"" + file() + "\", \"w+\")"})));
}

TEST_F(CommandTrace, OfAClose) {
    open_file();
    new_chapter();
    EXPECT_EQ(close_file(), 0u);
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x13, "2 (eTspCmd_TIFFCLOSE)", {"DornTiffClose(TIFF1)"})));
}

TEST_F(CommandTrace, OfACloseOfNoFile) {
    EXPECT_EQ(close_file(FAXRECEIVE), 1u);
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x12, "2 (eTspCmd_TIFFCLOSE)", {})));
}

TEST_F(CommandTrace, OfAStartedTransmission) {
    open_file();
    note_argument_blocks();
    new_chapter();
    send_fax();
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x13, "3 (eTspCmd_FAXSEND)",
                                                        {"GlobalAlloc(112)", "_beginthread(stack=16384)"})));
}

TEST_F(CommandTrace, OfAStartedReception) {
    open_file();
    note_argument_blocks();
    new_chapter();
    receive_fax();
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x13, "4 (eTspCmd_FAXRECEIVE)",
                                                        {"GlobalAlloc(112)", "_beginthread(stack=16384)"})));
}

TEST_F(CommandTrace, OfAStartWithoutAFile) {
    note_argument_blocks();
    EXPECT_EQ(command(CommandBlock::fax(FAXSEND, {})), 1u);
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x12, "3 (eTspCmd_FAXSEND)", {})));
}

TEST_F(CommandTrace, OfATransmissionThatGetsNoMemory) {
    expect_no_memory(FAXSEND, "3 (eTspCmd_FAXSEND)", "TSPI_lineDevSpecific called report_event with error #2");
}

TEST_F(CommandTrace, OfAReceptionThatGetsNoMemory) {
    expect_no_memory(FAXRECEIVE, "4 (eTspCmd_FAXRECEIVE)", "TSPI_lineDevSpecific called report_event with error");
}

TEST_F(CommandTrace, OfAnAbort) {
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x12, "5 (eTspCmd_ABORT)",
                                                        {"DornLineUnitGet(CHAN4)", "DornLineAlert(unit=14)"})));
}

TEST_F(CommandTrace, OfAStatusRequest) {
    EXPECT_EQ(command(CommandBlock(GETSTATUS)), 0u);
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x12, "6 (eTspCmd_GETSTATUS)", published())));
}

TEST_F(CommandTrace, OfAnUnknownCommand) {
    EXPECT_EQ(command(CommandBlock(99)), 1u);
    EXPECT_TRUE(reads(whole_request(), accepted_request(0x12, "99 (Unknown !)",
                                                        {"[2] Unknown DevSpecific command 99!",
                                                         "event log(category=5, 0x80000011, \"\", \"63\")"},
                                                        LINEERR_OPERATIONUNAVAIL)));
}

TEST_F(CommandTrace, OfANullLine) {
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x77, nullptr, 0, nullptr, CommandBlock(GETSTATUS).data(), 0),
              failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(reads(whole_request(), {"[16] TSPI_lineDevSpecific", "[2] TSPI_lineDevSpecific pLine=NULL",
                                        "[17] TSPI_lineDevSpecific(-2147483605) Failed"}));
}

TEST_F(CommandTrace, OfAnException) {
    open_file();
    driver.on.DornTiffClose = [](DornTiffRecord*) -> int { throw 1; };
    new_chapter();
    CommandBlock block = CommandBlock::close(FAXRECEIVE);
    EXPECT_EQ(request(block), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(reads(whole_request(),
                      joined({{of_line(16, "TSPI_lineDevSpecific"), "[4] Dev Specific cmd 2 (eTspCmd_TIFFCLOSE)"},
                              lock_is_taken(),
                              {"DornTiffClose(TIFF1)", "[1] TSPI_lineDevSpecific: Exception"}})));
    ReleaseMutex(line_mutex());
}
