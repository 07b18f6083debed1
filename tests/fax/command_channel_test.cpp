// TSPI_lineDevSpecific: every command of the fax service, and what it answers.
#include <algorithm>

#include "fax_fixture.h"

using namespace harness;

namespace {

// What one request traces around what its command does.
Lines told(const std::string& command, const Lines& done, const char* request, const char* number) {
    Lines all = {of_line(16, "TSPI_lineDevSpecific"), "[4] Dev Specific cmd " + command};
    all.insert(all.end(), done.begin(), done.end());
    std::string asynchronous = std::string("requestID= ") + request + ": result= 0x0";
    all.push_back("[4] TSPI_lineDevSpecific() Async completion " + asynchronous);
    all.push_back(std::string("completion(request=") + request + ", result=0x0)");
    all.push_back(of_line(17, std::string("TSPI_lineDevSpecific(") + number + ") Good"));
    return all;
}

using CommandChannel = OutgoingFaxFixture;

}  // namespace

TEST_F(CommandChannel, OpensTheJobsFile) {
    CommandBlock block = CommandBlock::open(file(), "w+");
    EXPECT_EQ(request(block), 0x12);
    EXPECT_EQ(block.result(), 0u);
    EXPECT_TRUE(
        reads(story(), told("1 (eTspCmd_TIFFOPEN)", {"DornTiffOpen(\"" + file() + "\", \"w+\")"}, "0x12", "18")));
}

TEST_F(CommandChannel, GivesTheDriverTheBlocksOwnPathAndMode) {
    CommandBlock block = CommandBlock::open(file(), "w+");
    request(block);
    std::vector<uint8_t> record = records_of("DornTiffOpen").at(0);
    ASSERT_EQ(record.size(), 100u);
    EXPECT_EQ(value_at<const uint8_t*>(record, 16), block.data() + 32);
    EXPECT_EQ(value_at<const uint8_t*>(record, 24), block.data() + 292);
}

TEST_F(CommandChannel, ReportsAFileThatCannotBeOpenedInTheBlockOnly) {
    EXPECT_EQ(command(CommandBlock::open(file() + "\\missing", "r+")), 1u);
    EXPECT_TRUE(reads(completions(), {"completion(request=0x12, result=0x0)"}));
}

TEST_F(CommandChannel, ForgetsTheEarlierFileWhenASecondOneCannotBeOpened) {
    open_file();
    EXPECT_EQ(command(CommandBlock::open(file() + "\\missing", "r+")), 1u);
    EXPECT_EQ(close_file(), 1u);
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffClose(<*>"));
}

TEST_F(CommandChannel, DropsTheEarlierFileUnclosedWhenASecondOneIsOpened) {
    open_file();
    open_file();
    EXPECT_EQ(close_file(), 0u);
    EXPECT_TRUE(reads(driver_calls().only({"DornTiffClose(<*>"}), {"DornTiffClose(TIFF2)"}));
}

TEST_F(CommandChannel, ClosesTheJobsFile) {
    open_file();
    new_chapter();
    EXPECT_EQ(close_file(), 0u);
    EXPECT_TRUE(reads(story(), told("2 (eTspCmd_TIFFCLOSE)", {"DornTiffClose(TIFF1)"}, "0x13", "19")));
    EXPECT_EQ(records_of("DornTiffClose").at(0).size(), 100u);
}

TEST_F(CommandChannel, AnswersACloseWithWhatTheDriverReturned) {
    open_file();
    driver.on.DornTiffClose = [](DornTiffRecord* record) { return ScriptedDriver::usual().DornTiffClose(record), -77; };
    EXPECT_EQ(close_file(), static_cast<uint32_t>(-77));
    EXPECT_EQ(close_file(), 1u);
}

TEST_F(CommandChannel, FailsToCloseAFileThatIsNotOpen) {
    EXPECT_EQ(close_file(), 1u);
    EXPECT_TRUE(reads(story(), told("2 (eTspCmd_TIFFCLOSE)", {}, "0x12", "18")));
}

TEST_F(CommandChannel, DoesNotStampAFileThatIsNotOpen) {
    shared_record(0).status = KX_STATUS_ERROR;
    EXPECT_EQ(close_file(FAXRECEIVE), 1u);
    EXPECT_TRUE(reads(driver_calls(), {}));
}

TEST_F(CommandChannel, StampsOnlyTheFileOfAReception) {
    shared_record(0).status = KX_STATUS_ERROR_HANGUP;
    for (uint32_t job : {0u, 3u, 5u, 0x10004u}) {
        open_file();
        EXPECT_EQ(close_file(job), 0u);
    }
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffReadIFD(<*>"));
    open_file();
    EXPECT_EQ(close_file(FAXRECEIVE), 0u);
    EXPECT_TRUE(holds(driver_calls(), "DornTiffReadIFD(<*>"));
}

TEST_F(CommandChannel, StampsAlsoWhenTheDriversCloseFailed) {
    shared_record(0).status = KX_STATUS_ERROR_HANGUP;
    open_file();
    driver.on.DornTiffClose = [](DornTiffRecord* record) { return ScriptedDriver::usual().DornTiffClose(record), 9; };
    EXPECT_EQ(close_file(FAXRECEIVE), 9u);
    EXPECT_TRUE(holds(driver_calls(), "DornTiffReadIFD(<*>"));
}

TEST_F(CommandChannel, StartsNothingWithoutAnOpenFile) {
    for (Command start : {FAXSEND, FAXRECEIVE}) EXPECT_EQ(command(CommandBlock::fax(start, {})), 1u);
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
    EXPECT_TRUE(reads(driver_calls(), {}));
    EXPECT_TRUE(reads(completions(), {"completion(request=0x12, result=0x0)", "completion(request=0x13, result=0x0)"}));
}

TEST_F(CommandChannel, StartsTheFaxThreadWithASmallStack) {
    open_file();
    send_fax();
    EXPECT_TRUE(reads(windows_calls().only({"_beginthread(<*>"}), {"_beginthread(stack=16384)"}));
}

TEST_F(CommandChannel, AlertsTheBoardOfAConnectedCallOnAbort) {
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_TRUE(reads(story(), told("5 (eTspCmd_ABORT)", {"DornLineAlert(unit=14)"}, "0x12", "18")));
    std::vector<uint8_t> record = records_of("DornLineAlert").at(0);
    ASSERT_EQ(record.size(), 221u);
    EXPECT_EQ(value_at<uint32_t>(record, 8), 14u);
}

TEST_F(CommandChannel, PublishesTheLinesStatus) {
    SharedRecord& record = shared_record(0);
    std::memset(&record, 0x5A, sizeof(record));
    EXPECT_EQ(command(CommandBlock(GETSTATUS)), 0u);
    EXPECT_TRUE(reads(story(), told("6 (eTspCmd_GETSTATUS)", {}, "0x12", "18")));
    auto* bytes = reinterpret_cast<uint8_t*>(&record);
    EXPECT_EQ(std::count(bytes, bytes + 12, 0x5A), 12);
    EXPECT_EQ(std::count(bytes + 12, bytes + 1064, 0), 1052);
    EXPECT_EQ(bytes[1064 + 0], 0);
}

TEST_F(CommandChannel, TellsItsDeviceIdBaseWithEveryCommand) {
    for (int32_t any : {-1, 0, 1, 2, 3, 4, 5, 6, 7}) {
        CommandBlock block(any);
        block.put_text(32, "").put_text(82, "").put_text(292, "r");
        request(block);
        EXPECT_EQ(block.device_id_base(), kDeviceIdBase) << any;
    }
}

TEST_F(CommandChannel, NamesEveryCommand) {
    for (int32_t any : {-2, -1, 0, 1, 2, 3, 4, 5, 6, 7}) {
        CommandBlock block(any);
        block.put_text(32, "").put_text(292, "r");
        request(block);
    }
    EXPECT_TRUE(reads(traces().only({"<*>Dev Specific cmd<*>"}), {
                                                                     "[4] Dev Specific cmd -2 (Unknown !)",
                                                                     "[4] Dev Specific cmd -1 (eTspCmd_NOTUSED)",
                                                                     "[4] Dev Specific cmd 0 (Unknown !)",
                                                                     "[4] Dev Specific cmd 1 (eTspCmd_TIFFOPEN)",
                                                                     "[4] Dev Specific cmd 2 (eTspCmd_TIFFCLOSE)",
                                                                     "[4] Dev Specific cmd 3 (eTspCmd_FAXSEND)",
                                                                     "[4] Dev Specific cmd 4 (eTspCmd_FAXRECEIVE)",
                                                                     "[4] Dev Specific cmd 5 (eTspCmd_ABORT)",
                                                                     "[4] Dev Specific cmd 6 (eTspCmd_GETSTATUS)",
                                                                     "[4] Dev Specific cmd 7 (Unknown !)",
                                                                 }));
}

TEST_F(CommandChannel, LooksAtTheLineAndTheBlockOnly) {
    CommandBlock block(GETSTATUS);
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x77, line(0), 99, nullptr, block.data(), 0), 0x77);
    EXPECT_TRUE(holds(completions(), "completion(request=0x77, result=0x0)"));
}

TEST_F(CommandChannel, DoesNotAskWhetherTheLineIsOpen) {
    std::vector<uint8_t> never_opened(8192);
    CommandBlock block(99);
    auto hdLine = reinterpret_cast<HDRVLINE>(never_opened.data());
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x77, hdLine, 0, nullptr, block.data(), CommandBlock::size()), 0x77);
    EXPECT_TRUE(holds(completions(), "completion(request=0x77, result=0x80000049)"));
}

TEST_F(CommandChannel, RefusesANullLine) {
    CommandBlock block(GETSTATUS);
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(0x77, nullptr, 0, nullptr, block.data(), 0), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(reads(story().without({"[16] TSPI_lineDevSpecific"}),
                      {"[2] TSPI_lineDevSpecific pLine=NULL", "[17] TSPI_lineDevSpecific(-2147483605) Failed"}));
    EXPECT_NE(block.result(), 0u);
}

TEST_F(CommandChannel, RefusesAnUnknownCommandAndTellsTheAdministrator) {
    CommandBlock block(99);
    EXPECT_EQ(request(block), 0x12);
    EXPECT_EQ(block.result(), 1u);
    EXPECT_TRUE(
        reads(story().without({"[4] <*>report_event<*>", "[4] intNum<*>", "[4] TempMsg<*>", "[4] StringArray<*>"}),
              {
                  of_line(16, "TSPI_lineDevSpecific"),
                  "[4] Dev Specific cmd 99 (Unknown !)",
                  "[2] Unknown DevSpecific command 99!",
                  "event log(category=5, 0x80000011, \"\", \"63\")",
                  "[4] TSPI_lineDevSpecific() Async completion requestID= 0x12: result= 0x80000049",
                  "completion(request=0x12, result=0x80000049)",
                  of_line(17, "TSPI_lineDevSpecific(18) Good"),
              }));
}

TEST_F(CommandChannel, CountsZeroSevenAndTheNameThatIsNotUsedAmongTheUnknown) {
    for (int32_t unknown : {-1, 0, 7}) EXPECT_EQ(command(CommandBlock(unknown)), 1u);
    EXPECT_TRUE(reads(event_log(), {
                                       "event log(category=5, 0x80000011, \"\", \"FFFFFFFF\")",
                                       "event log(category=5, 0x80000011, \"\", \"0\")",
                                       "event log(category=5, 0x80000011, \"\", \"7\")",
                                   }));
    EXPECT_TRUE(reads(completions(), {
                                         "completion(request=0x12, result=0x80000049)",
                                         "completion(request=0x13, result=0x80000049)",
                                         "completion(request=0x14, result=0x80000049)",
                                     }));
    EXPECT_TRUE(reads(traces().levels({2}), {
                                                "[2] Unknown DevSpecific command -1!",
                                                "[2] Unknown DevSpecific command 0!",
                                                "[2] Unknown DevSpecific command 7!",
                                            }));
}

TEST_F(CommandChannel, HoldsTheLineLockFromTheDriverCallToTheCompletion) {
    before(driver.on.DornTiffOpen, [this] { note_lock("opened"); });
    before(driver.on.DornLineAlert, [this] { note_lock("alerted"); });
    before(driver.on.DornTiffClose, [this] { note_lock("closed"); });
    tapi.on_completion = [this](DRV_REQUESTID, LONG) { note_lock("completed"); };
    open_file();
    command(CommandBlock(ABORT));
    close_file();
    EXPECT_TRUE(reads(all_of(NOTE), {"opened under the lock", "completed under the lock", "alerted under the lock",
                                     "completed under the lock", "closed under the lock", "completed under the lock"}));
    EXPECT_FALSE(line_is_locked());
}

TEST_F(CommandChannel, WaitsForTheLineLockBeforeItTouchesTheBlock) {
    ASSERT_EQ(WaitForSingleObject(line_mutex(), 0), WAIT_OBJECT_0);
    CommandBlock block(GETSTATUS);
    const CommandBlock untouched = block;
    Call waiting([&] { return request(block); });
    EXPECT_TRUE(comes("[4] Dev Specific cmd 6 (eTspCmd_GETSTATUS)"));
    EXPECT_TRUE(comes("[8] <*>: lock_line"));
    EXPECT_EQ(std::memcmp(block.data(), untouched.data(), CommandBlock::size()), 0);
    ReleaseMutex(line_mutex());
    EXPECT_GT(waiting.result(), 0);
    EXPECT_EQ(block.result(), 0u);
}

TEST_F(CommandChannel, KeepsAPathOf259BytesWhole) {
    const std::string longest = file() + std::string(259 - file().size(), 'x');
    auto as_usual = [this](DornTiffRecord* record) {
        put_value(record, 16, file().c_str());
        return ScriptedDriver::usual().DornTiffOpen(record);
    };
    driver.on.DornTiffOpen = as_usual;
    command(CommandBlock::open(longest, "w+"));
    shared_record(0).status = KX_STATUS_ERROR;
    close_file(FAXRECEIVE);
    EXPECT_TRUE(holds(driver_calls(), "DornTiffOpen(\"" + longest + "\", \"r+\")"));
}

TEST_F(CommandChannel, KeepsThePathAsItIsBeforeTheDriverSeesIt) {
    CommandBlock block = CommandBlock::open(file(), "w+");
    driver.on.DornTiffOpen = [&block](DornTiffRecord* record) {
        DornTiff* tiff = ScriptedDriver::usual().DornTiffOpen(record);
        block.put_text(32, "changed");
        return tiff;
    };
    request(block);
    driver.on.DornTiffOpen = ScriptedDriver::usual().DornTiffOpen;
    shared_record(0).status = KX_STATUS_ERROR;
    close_file(FAXRECEIVE);
    EXPECT_TRUE(holds(driver_calls(), "DornTiffOpen(\"" + file() + "\", \"r+\")"));
}

namespace {

using CommandChannelOfAnIdleLine = FaxFixture;
using CommandChannelOfAnAnsweredCall = IncomingFaxFixture;

}  // namespace

TEST_F(CommandChannelOfAnIdleLine, AbortsNothingAndSucceeds) {
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_TRUE(reads(driver_calls(), {}));
    EXPECT_TRUE(reads(completions(), {"completion(request=0x11, result=0x0)"}));
}

TEST_F(CommandChannelOfAnIdleLine, AbortsNothingWhileACallIsOfferedOrAccepted) {
    offer_call(0);
    new_chapter();
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_GT(tsp.TSPI_lineAccept(next_request(), call(0), nullptr, 0), 0);
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_TRUE(reads(driver_calls(), {}));
}

TEST_F(CommandChannelOfAnIdleLine, AbortsNothingWhileAnOutgoingCallIsBeingPlaced) {
    driver.gate("DornCallSetup").close();
    HDRVCALL placed = nullptr;
    tsp.TSPI_lineMakeCall(next_request(), line(0), tapi.new_call_handle(), &placed, L"1", 0, nullptr);
    EXPECT_TRUE(driver.gate("DornCallSetup").holds_somebody());
    new_chapter();
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_TRUE(reads(driver_calls(), {}));
    driver.gate("DornCallSetup").open();
    fax_thread_ends();
}

TEST_F(CommandChannelOfAnAnsweredCall, AlertsTheBoardOnAbort) {
    EXPECT_EQ(command(CommandBlock(ABORT)), 0u);
    EXPECT_TRUE(reads(driver_calls(), {"DornLineAlert(unit=14)"}));
}
