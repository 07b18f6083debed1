// The stamp of a received file: the job's result, written over the Software tag when the file is closed.
#include "fax_fixture.h"
#include "fax_story.h"
#include "tiff_file.h"

using namespace harness;

namespace {

class TiffStamp : public IncomingFaxFixture {
  protected:
    // A reception into a file with these pages ends with this result, and the file is closed.
    void receive_and_close(const std::vector<TiffDirectory>& pages, uint32_t status, uint32_t line_status = 0) {
        write_tiff(file(), pages);
        receive_and_close(status, line_status);
    }
    void receive_and_close(uint32_t status, uint32_t line_status = 0) {
        open_file("r+");
        driver.on.DornFaxRcvPageTiff = fax_step(-1, status, line_status);
        receive_fax();
        new_chapter();
        EXPECT_EQ(close_file(FAXRECEIVE), 0u);
    }

    // The whole of that close, with what is done behind the look at the job's result.
    static Lines whole_close(const std::vector<Lines>& done) {
        return accepted_request(
            0x14, "2 (eTspCmd_TIFFCLOSE)",
            joined({{"DornTiffClose(TIFF1)"}, inside("UpdateFaxStatus", {{"DornLineUnitGet(CHAN4)"}, joined(done)})}));
    }
    static Lines code_is_looked_up() { return inside("GetFaxExtendedStatusCode", {{"DornLineUnitGet(CHAN4)"}}); }
};

struct Row {
    uint32_t status, line_status;
    const char* stamp;
};

const char *const kFatalError = "0536872960", *const kNotFaxCall = "0536875008", *const kDisconnected = "0536871936",
                  *const kUserAbort = "0538968064", *const kCompleted = "0536870920";

constexpr Row kResults[] = {
    {2, 1, kFatalError},     {2, 2, kFatalError},  {2, 0, kNotFaxCall},          {2, 3, kNotFaxCall},
    {2, 17, kNotFaxCall},    {2, 99, kNotFaxCall}, {4, 0, kDisconnected},        {4, 2, kDisconnected},
    {4, 311, kDisconnected}, {7, 0, kUserAbort},   {7, 1, kUserAbort},           {1, 1, kNotFaxCall},
    {3, 2, kNotFaxCall},     {5, 0, kNotFaxCall},  {6, 0, kNotFaxCall},          {6, 1, kNotFaxCall},
    {8, 2, kNotFaxCall},     {9, 0, kNotFaxCall},  {0x80000007, 0, kNotFaxCall},
};

}  // namespace

TEST_F(TiffStamp, IsTheExtendedStatusCodeOfTheJobsResult) {
    for (const Row& row : kResults) {
        receive_and_close({stamped_page()}, row.status, row.line_status);
        EXPECT_EQ(stamps_of(file()), Lines{row.stamp}) << row.status << "/" << row.line_status;
    }
}

TEST_F(TiffStamp, StaysAsReceivedAfterAGoodJob) {
    write_tiff(file(), {stamped_page()});
    open_file("r+");
    receive_fax();
    new_chapter();
    EXPECT_EQ(close_file(FAXRECEIVE), 0u);
    EXPECT_TRUE(reads(whole_request(), whole_close({})));
    EXPECT_EQ(stamps_of(file()), Lines{kCompleted});
}

TEST_F(TiffStamp, StaysAsReceivedWhenAFailedStepEndedWithAGoodStatus) {
    receive_and_close({stamped_page()}, KX_STATUS_OK, APIERR_FILEIO);
    EXPECT_TRUE(reads(driver_calls(), {"DornTiffClose(TIFF1)"}));
}

TEST_F(TiffStamp, IsWrittenThroughTheDriversOwnStreamFunctions) {
    receive_and_close({stamped_page()}, KX_STATUS_ERROR_HANGUP);
    uint32_t offset = read_tiff(file()).at(0).at(2).offset;
    EXPECT_TRUE(reads(whole_request(),
                      whole_close({code_is_looked_up(),
                                   {"DornTiffOpen(\"" + file() + "\", \"r+\")", "DornTiffReadIFD(TIFF2, 0x20000400)",
                                    "_mdll_ftell(STREAM2)", text("_mdll_fseek(STREAM2, %u, 0)", offset),
                                    "_mdll_fwrite(STREAM2, \"0536871936\\x00\")", "_mdll_fseek(STREAM2, <*>, 0)",
                                    "DornTiffClose(TIFF2)"}})));
}

TEST_F(TiffStamp, LeavesTheStreamWhereItWas) {
    long before_entry = 0, after_entry = 0;
    driver.on.DornTiffReadIFD = [&](DornTiffRecord* record) {
        auto* stream = static_cast<FILE*>(record->hTiff->stream);
        DornTiffEntry entry = {305, 2, 11, 4};
        std::fseek(stream, 33, SEEK_SET);
        before_entry = std::ftell(stream);
        EXPECT_EQ(record->tagCallback(record->hTiff, &entry, record->qwCallerValue), 0);
        after_entry = std::ftell(stream);
        return 1;
    };
    receive_and_close({stamped_page()}, KX_STATUS_ERROR);
    EXPECT_EQ(before_entry, 33);
    EXPECT_EQ(after_entry, 33);
}

TEST_F(TiffStamp, ChangesNothingElseInTheFile) {
    write_tiff(file(), {stamped_page(kUserAbort)});
    const std::vector<uint8_t> expected = bytes_of_file(file());
    receive_and_close({stamped_page()}, KX_STATUS_ALERT);
    EXPECT_EQ(bytes_of_file(file()), expected);
}

TEST_F(TiffStamp, IsWrittenIntoEveryPageThatHasOne) {
    receive_and_close({stamped_page(), {{256, 4, 1, {1, 0, 0, 0}}}, stamped_page()}, KX_STATUS_ALERT);
    EXPECT_EQ(stamps_of(file()), (Lines{kUserAbort, "none", kUserAbort}));
}

TEST_F(TiffStamp, LeavesASoftwareTagOfAnotherLengthAlone) {
    for (const char* other : {"Some scanner", "123456789", "01234567890", ""}) {
        receive_and_close({stamped_page(other)}, KX_STATUS_ALERT);
        EXPECT_EQ(stamps_of(file()), Lines{other});
        EXPECT_TRUE(holds_no(driver_calls(), "_mdll_<*>"));
    }
}

TEST_F(TiffStamp, LeavesASoftwareTagOfAnotherTypeAlone) {
    TiffField software = ascii_field(305, kCompleted);
    software.type = 1;
    receive_and_close({{software}}, KX_STATUS_ALERT);
    EXPECT_TRUE(holds_no(driver_calls(), "_mdll_<*>"));
}

TEST_F(TiffStamp, LeavesOtherTagsOfElevenCharactersAlone) {
    receive_and_close({{ascii_field(304, kCompleted), ascii_field(306, kCompleted)}}, KX_STATUS_ALERT);
    EXPECT_TRUE(holds_no(driver_calls(), "_mdll_<*>"));
}

TEST_F(TiffStamp, FindsTheFileByTheNameItWasOpenedBy) {
    write_tiff(file(), {stamped_page()});
    CommandBlock block = CommandBlock::open(file(), "r+");
    request(block);
    block.put_text(32, "something else");
    driver.on.DornFaxRcvPageTiff = fax_step(-1, KX_STATUS_ALERT, 0);
    receive_fax();
    close_file(FAXRECEIVE);
    EXPECT_TRUE(holds(driver_calls(), "DornTiffOpen(\"" + file() + "\", \"r+\")"));
    EXPECT_EQ(stamps_of(file()), Lines{kUserAbort});
}

TEST_F(TiffStamp, GoesIntoTheRecordsOfTheDriverByTheirOffsets) {
    receive_and_close({stamped_page()}, KX_STATUS_ERROR, APIERR_FILEIO);
    std::vector<uint8_t> record = records_of("DornTiffReadIFD").at(0);
    ASSERT_EQ(record.size(), 100u);
    EXPECT_EQ(name_of(value_at<const void*>(record, 8)), "TIFF2");
    EXPECT_NE(value_at<const void*>(record, 32), nullptr);
    EXPECT_EQ(value_at<uint64_t>(record, 40), 0x20000800u);
}

TEST_F(TiffStamp, IsWrittenUnderTheLineLockAndAnswersWithTheFirstClose) {
    before(driver.on.DornTiffReadIFD, [this] { note_lock("read"); });
    before(driver.on._mdll_fwrite, [this] { note_lock("written"); });
    receive_and_close({stamped_page()}, KX_STATUS_ALERT);
    EXPECT_TRUE(reads(all_of(NOTE), {"read under the lock", "written under the lock"}));
}

TEST_F(TiffStamp, IsGivenUpWhenTheFileCannotBeReopened) {
    write_tiff(file(), {stamped_page()});
    open_file("r+");
    driver.on.DornFaxRcvPageTiff = fax_step(-1, KX_STATUS_ALERT, 0);
    receive_fax();
    driver.on.DornTiffOpen = [](DornTiffRecord*) -> DornTiff* { return nullptr; };
    new_chapter();
    EXPECT_EQ(close_file(FAXRECEIVE), 0u);
    EXPECT_TRUE(
        reads(whole_request(), whole_close({code_is_looked_up(), {"DornTiffOpen(\"" + file() + "\", \"r+\")"}})));
    EXPECT_EQ(close_file(), 1u);
}

TEST_F(TiffStamp, ReadsTheResultOfTheLinesOwnUnit) {
    shared_record(1).status = KX_STATUS_ERROR;
    receive_and_close({stamped_page()}, KX_STATUS_ALERT);
    EXPECT_EQ(stamps_of(file()), Lines{kUserAbort});
    shared_record(0).status = KX_STATUS_OK;
    open_file("r+");
    new_chapter();
    close_file(FAXRECEIVE);
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffReadIFD(<*>"));
}
