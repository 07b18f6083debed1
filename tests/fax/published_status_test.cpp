// The line's record in the shared segment: where everything stands in it, and when it is written.
#include <algorithm>

#include "fax_fixture.h"

using namespace harness;

namespace {

constexpr uint8_t kMark = 0x5A;
constexpr size_t kRecordSize = 1064, kBody = 12;

class PublishedStatus : public FaxFixture {
  protected:
    uint8_t* record_of_unit(uint32_t number) const { return windows.mapping.view + number * kRecordSize; }
    uint8_t* record() const { return record_of_unit(14); }

    std::wstring wide_at(size_t offset) const {
        std::wstring text;
        while (auto unit = value_at<wchar_t>(record(), offset + 2 * text.size())) text += unit;
        return text;
    }

    // A note of the record at every notification of the fax service.
    void note_record() const {
        tapi.on_event = [this](const LineEvent& event) {
            std::string body(record() + kBody, record() + kBody + 6);
            if (event.message == LINE_CALLDEVSPECIFIC || event.message == LINE_CALLSTATE)
                note(text("result %u/%u, remote %s", value_at<uint32_t>(record(), 4), value_at<uint32_t>(record(), 8),
                          body.c_str()));
        };
    }

    void expect_result_after_the_notification(Command job) {
        put_value(record(), 4, uint64_t{0x5A0000005A});
        open_file();
        driver.on.DornFaxEndOfDocument = driver.on.DornFaxEndReception = fax_step(-1, KX_STATUS_ERROR, 1);
        note_record();
        command(CommandBlock::fax(job, {}));
        fax_thread_ends();
        EXPECT_TRUE(reads(all_of(NOTE),
                          {"result 90/90, remote REMOTE", "result 90/90, remote REMOTE", "result 2/1, remote REMOTE"}));
    }
};

}  // namespace

TEST_F(PublishedStatus, HasItsFieldsWhereReadersLookForThem) {
    driver.channel(4).remote_id = "REMOTE 0123456789ABC";
    take_call(0, {"5551234", "", "5550100", ""});
    open_file();
    driver.on.DornFaxEndReception = fax_step(0, KX_STATUS_ERROR_HANGUP, 0x01020304);
    receive_fax();
    EXPECT_EQ(value_at<uint32_t>(record(), 0), 0u);
    EXPECT_EQ(value_at<uint32_t>(record(), 4), 4u);
    EXPECT_EQ(value_at<uint32_t>(record(), 8), 0x01020304u);
    EXPECT_EQ(std::string(record() + 12, record() + 33), std::string("REMOTE 0123456789ABC") + '\0');
    EXPECT_EQ(wide_at(34), L"5551234");
    EXPECT_EQ(wide_at(546), L"5550100");
    EXPECT_EQ(value_at<uint32_t>(record(), 1060), 0u);
}

TEST_F(PublishedStatus, CountsPagesInItsLastField) {
    place_call(0);
    open_file();
    before(driver.on.DornFaxEndOfDocument, [] {
        driver.report(4, 9, 8, 5, {{14, {1}}, {15, {0xFF, 0xC8, 0x4E}}});
        driver.report(4, 9, 8, 6, {{20, {0}}});
    });
    send_fax();
    EXPECT_EQ(value_at<uint32_t>(record(), 1060), 1u);
}

TEST_F(PublishedStatus, LeavesTheRecordsOfOtherUnitsAndItsOwnFirstFieldAlone) {
    std::fill(record_of_unit(13), record_of_unit(16), kMark);
    take_call(0, {"5551234", "", "5550100", ""});
    open_file();
    receive_fax();
    command(CommandBlock(GETSTATUS));
    tsp.TSPI_lineCloseCall(call(0));
    EXPECT_EQ(std::count(record_of_unit(13), record_of_unit(14), kMark), 1064);
    EXPECT_EQ(std::count(record_of_unit(14), record_of_unit(14) + 4, kMark), 4);
    EXPECT_EQ(std::count(record_of_unit(15), record_of_unit(16), kMark), 1064);
}

TEST_F(PublishedStatus, IsWrittenOverTheWholeBody) {
    take_call(0);
    open_file();
    before(driver.on.DornFaxBeginReceive, [this] { std::fill(record() + kBody, record() + kRecordSize, kMark); });
    receive_fax();
    EXPECT_EQ(std::count(record() + kBody, record() + kRecordSize, kMark), 0);
}

TEST_F(PublishedStatus, GetsTheResultOfATransmissionAfterTheFaxServiceWasTold) {
    place_call(0);
    expect_result_after_the_notification(FAXSEND);
}

TEST_F(PublishedStatus, GetsTheResultOfAReceptionAfterTheFaxServiceWasTold) {
    take_call(0);
    expect_result_after_the_notification(FAXRECEIVE);
}

TEST_F(PublishedStatus, GetsTheResultWithoutTheLineLock) {
    place_call(0);
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        open_file();
        driver.on.DornFaxBeginSendTiff = driver.on.DornFaxBeginReceive = fax_step(-1, KX_STATUS_ERROR, job);
        Gate told;
        told.close();
        tapi.on_event = [&](const LineEvent& event) {
            if (event.message == LINE_CALLDEVSPECIFIC) told.pass();
        };
        command(CommandBlock::fax(job, {}));
        EXPECT_TRUE(told.holds_somebody());
        new_chapter();
        ASSERT_EQ(WaitForSingleObject(line_mutex(), 0), WAIT_OBJECT_0);
        told.open();
        EXPECT_TRUE(comes("[8] <*>: SetCallState"));
        EXPECT_EQ(value_at<uint32_t>(record(), 8), static_cast<uint32_t>(job));
        ReleaseMutex(line_mutex());
        fax_thread_ends();
    }
}

TEST_F(PublishedStatus, StartsEmptyAndKeepsTheLastResultUntilTheNextOne) {
    place_call(0);
    for (Command job : {FAXSEND, FAXRECEIVE}) {
        open_file();
        driver.on = ScriptedDriver::usual();
        driver.on.DornFaxEndOfDocument = driver.on.DornFaxEndReception = fax_step(0, KX_STATUS_ERROR_HANGUP, 5);
        send_fax();
        EXPECT_STREQ(shared_record(0).szRemoteId, "REMOTE STATION");
        before(driver.on.DornFaxSetLocalId, [this] {
            EXPECT_EQ(std::count(record() + kBody, record() + kRecordSize, 0), 1052);
            EXPECT_EQ(value_at<uint32_t>(record(), 4), 4u);
            EXPECT_EQ(value_at<uint32_t>(record(), 8), 5u);
        });
        new_chapter();
        command(CommandBlock::fax(job, {}));
        fax_thread_ends();
        EXPECT_TRUE(holds(driver_calls(), "DornFaxSetLocalId(<*>"));
    }
}

TEST_F(PublishedStatus, IsEmptiedWithTheCallButForTheResult) {
    take_call(0, {"5551234", "", "5550100", ""});
    open_file();
    driver.on.DornFaxEndReception = fax_step(0, KX_STATUS_ERROR_HANGUP, 5);
    receive_fax();
    EXPECT_EQ(tsp.TSPI_lineCloseCall(call(0)), 0);
    EXPECT_EQ(std::count(record() + kBody, record() + kRecordSize, 0), 1052);
    EXPECT_EQ(value_at<uint32_t>(record(), 4), 4u);
    EXPECT_EQ(value_at<uint32_t>(record(), 8), 5u);
}

TEST_F(PublishedStatus, OfAUnitBehindTheSegmentIsWrittenNowhere) {
    open_waiting_line(1);
    const CommandBlock commands[] = {CommandBlock::open(file(), "w+"), CommandBlock(GETSTATUS),
                                     CommandBlock::fax(FAXSEND, {}), CommandBlock::close(FAXRECEIVE)};
    for (uint32_t outside : {4048u, 0xFFFFFFFFu}) {
        driver.channel(5).unit = outside;
        std::fill(record_of_unit(4048), record_of_unit(4049), kMark);
        for (CommandBlock block : commands) {
            EXPECT_EQ(tsp.TSPI_lineDevSpecific(1, line(1), 0, nullptr, block.data(), 0), 1);
            EXPECT_EQ(block.result(), 0u);
            fax_thread_ends();
        }
        EXPECT_EQ(std::count(record_of_unit(4048), record_of_unit(4049), kMark), 1064);
    }
    EXPECT_TRUE(reads(traces().levels({1}), {}));
    driver.channel(5).unit = 15;
}

TEST_F(PublishedStatus, BelongsToTheUnitAndNotToTheChannel) {
    driver.channel(5).unit = 4047;
    open_waiting_line(1);
    std::fill(record_of_unit(4047), record_of_unit(4048), kMark);
    EXPECT_EQ(tsp.TSPI_lineDevSpecific(1, line(1), 0, call(1), CommandBlock(GETSTATUS).data(), 0), 1);
    EXPECT_EQ(std::count(record_of_unit(4047) + kBody, record_of_unit(4048), 0), 1052);
    EXPECT_EQ(std::count(record_of_unit(4047), record_of_unit(4047) + kBody, kMark), 12);
}
