// The placeholder: a received file without a page becomes a file of one page that is marked as aborted.
#include <utility>

#include "placeholder_fixture.h"

using namespace harness;

namespace {

class Placeholder : public PlaceholderFixture {
  protected:
    // At every write a note of the driver's page bookkeeping: of the line, and of the file.
    static void note_bookkeeping_at_every_write() {
        auto note_it = [](const DornTiffRecord* record) {
            const DornLine* board_line = driver.line_of(4);
            note(text("%u %u rows %u, %u %u", board_line->wPageNumber, board_line->wPageCount, board_line->wRowCount,
                      record->hTiff->dwPageCounter, record->hTiff->dwPageCursor));
        };
        for (auto* write : {&driver.on.DornTiffWriteImage, &driver.on.DornTiffWriteRes, &driver.on.DornTiffWriteIFD})
            *write = [usual = *write, note_it](DornTiffRecord* record) { return note_it(record), usual(record); };
    }
};

// A field of the finished page, numbers shown as such.
std::string shown(const TiffField& field) {
    std::string value;
    if (field.type == 2) value = text_of({field}, field.tag);
    if (field.type == 3 || field.type == 4)
        for (size_t at = 0; at < field.bytes.size(); at += field.type == 3 ? 2 : 4)
            value += text(at ? " %u" : "%u",
                          field.type == 3 ? value_at<uint16_t>(field.bytes, at) : value_at<uint32_t>(field.bytes, at));
    return text("%u:%u[%u] ", field.tag, field.type, field.count) + value;
}

}  // namespace

TEST_F(Placeholder, IsWrittenStepByStep) {
    fail_before_the_first_page("TO: ME");
    expect_rebuilding(steps(), 0);
}

TEST_F(Placeholder, IsAFileOfOnePage) {
    fail_before_the_first_page("TO: ME");
    std::vector<TiffDirectory> pages = read_tiff(file());
    ASSERT_EQ(pages.size(), 1u);
    Lines fields;
    for (const TiffField& field : pages[0]) fields.push_back(shown(field));
    EXPECT_EQ(fields,
              (Lines{"254:4[1] 2", "256:4[1] 1728",  "257:4[1] 4", "258:3[1] 1",   "259:3[1] 4",           "262:3[1] 0",
                     "266:3[1] 2", "273:4[1] 8",     "277:3[1] 1", "278:4[1] 4",   "279:4[1] 4",           "282:5[1] ",
                     "283:5[1] ",  "293:4[1] 0",     "296:3[1] 2", "297:3[2] 0 0", "305:2[11] 0538968064", "326:3[1] 0",
                     "327:3[1] 0", "337:2[7] TO: ME"}));
}

TEST_F(Placeholder, IsMarkedAsAbortedWhateverTheResult) {
    for (uint32_t status : {2u, 4u, 6u, 7u}) {
        fail_before_the_first_page("", status);
        EXPECT_EQ(stamps_of(file()), Lines{"0538968064"}) << status;
    }
}

TEST_F(Placeholder, IsNotMadeAfterAGoodJob) {
    fail_before_the_first_page("", KX_STATUS_OK);
    EXPECT_TRUE(reads(driver_calls(), {"DornTiffClose(TIFF1)"}));
}

TEST_F(Placeholder, IsNotMadeOfAFileWithAPage) {
    driver.on.DornTiffReadIFD = [](DornTiffRecord*) { return 1; };
    fail_before_the_first_page("");
    EXPECT_TRUE(reads(driver_calls(), {"DornTiffClose(TIFF1)", "DornTiffOpen(\"" + file() + "\", \"r+\")",
                                       "DornTiffReadIFD(<*>)", "DornTiffClose(TIFF2)"}));
}

TEST_F(Placeholder, IsNotMadeWhenTheDirectoryIsReadWithAnError) {
    driver.on.DornTiffReadIFD = [](DornTiffRecord*) { return -1; };
    fail_before_the_first_page("");
    EXPECT_TRUE(reads(driver_calls(), {"DornTiffClose(TIFF1)", "DornTiffOpen(\"" + file() + "\", \"r+\")",
                                       "DornTiffReadIFD(<*>)", "DornTiffClose(TIFF2)"}));
}

TEST_F(Placeholder, IsTheLinesOpenFileOnlyForItsOwnTime) {
    fail_before_the_first_page("");
    EXPECT_EQ(close_file(), 1u);
}

TEST_F(Placeholder, HasAnEmptyRoutingTextInTheEntry) {
    fail_before_the_first_page("");
    EXPECT_TRUE(holds(driver_calls(), "DornTiffWriteIFD(TIFF3, 337:2[1] 0x0)"));
    EXPECT_EQ(count(driver_calls(), "_mdll_fwrite(<*>"), 1u);
}

TEST_F(Placeholder, HasAShortRoutingTextInTheEntry) {
    fail_before_the_first_page("R");
    EXPECT_TRUE(holds(driver_calls(), "DornTiffWriteIFD(TIFF3, 337:2[2] 0x52)"));
    EXPECT_EQ(count(driver_calls(), "_mdll_fwrite(<*>"), 1u);
}

TEST_F(Placeholder, HasARoutingTextOfThreeCharactersInTheEntry) {
    fail_before_the_first_page("RTX");
    EXPECT_TRUE(holds(driver_calls(), "DornTiffWriteIFD(TIFF3, 337:2[4] 0x585452)"));
    EXPECT_EQ(count(driver_calls(), "_mdll_fwrite(<*>"), 1u);
}

TEST_F(Placeholder, HasARoutingTextOfFourCharactersBehindAPaddingByte) {
    fail_before_the_first_page("RTXT");
    EXPECT_TRUE(
        reads_in_order(driver_calls(), {"_mdll_fwrite(STREAM3, \"\\x00\")", "_mdll_fwrite(STREAM3, \"RTXT\\x00\")",
                                        "DornTiffWriteIFD(TIFF3, 337:2[5] 0x28)"}));
    EXPECT_EQ(text_of(read_tiff(file()).at(0), 337), "RTXT");
}

TEST_F(Placeholder, HasAPaddingByteOnlyAtAnOddPosition) {
    // So many bytes behind the resolutions, which end at 28, and where the two texts then lie.
    const std::pair<int, Lines> kMoved[] = {
        {1,
         {"_mdll_fwrite(STREAM3, \"\\x00\")", "_mdll_fwrite(STREAM3, \"0538968064\\x00\")",
          "DornTiffWriteIFD(TIFF3, 305:2[11] 0x1E)", "_mdll_fwrite(STREAM3, \"\\x00\")",
          "_mdll_fwrite(STREAM3, \"TO: ME\\x00\")", "DornTiffWriteIFD(TIFF3, 337:2[7] 0x2A)"}},
        {2,
         {"_mdll_fwrite(STREAM6, \"0538968064\\x00\")", "DornTiffWriteIFD(TIFF6, 305:2[11] 0x1E)",
          "_mdll_fwrite(STREAM6, \"\\x00\")", "_mdll_fwrite(STREAM6, \"TO: ME\\x00\")",
          "DornTiffWriteIFD(TIFF6, 337:2[7] 0x2A)"}},
    };
    for (const auto& [bytes, written] : kMoved) {
        driver.on.DornTiffWriteRes = [bytes = bytes](DornTiffRecord* record) {
            int result = ScriptedDriver::usual().DornTiffWriteRes(record);
            auto* stream = static_cast<FILE*>(record->hTiff->stream);
            std::fseek(stream, 0, SEEK_END);
            for (int i = 0; i < bytes; ++i) std::fputc(0x77, stream);
            return result;
        };
        fail_before_the_first_page("TO: ME");
        EXPECT_TRUE(reads(driver_calls().only({"_mdll_fwrite(<*>", "DornTiffWriteIFD(<*>, 3<*>:2[<*>"}), written));
    }
}

TEST_F(Placeholder, HasTheLongestRoutingText) {
    fail_before_the_first_page(std::string(1383, 'r'));
    EXPECT_EQ(text_of(read_tiff(file()).at(0), 337), std::string(1383, 'r'));
}

TEST_F(Placeholder, TakesTheResolutionsOffsetsFromTheDriver) {
    driver.on.DornTiffWriteRes = [](DornTiffRecord* record) {
        put_value(record, 64, uint32_t{0x11223344});
        put_value(record, 68, uint32_t{0x55667788});
        return -1;
    };
    fail_before_the_first_page("");
    EXPECT_TRUE(reads_in_order(driver_calls(), {"DornTiffWriteIFD(TIFF3, 282:5[1] 0x11223344)",
                                                "DornTiffWriteIFD(TIFF3, 283:5[1] 0x55667788)"}));
}

TEST_F(Placeholder, KeepsTheDriversPageBookkeeping) {
    note_bookkeeping_at_every_write();
    DornLine* board_line = driver.line_of(4);
    board_line->wPageNumber = 21;
    board_line->wPageCount = 22;
    board_line->wRowCount = 23;
    driver.on.DornTiffOpen = [](DornTiffRecord* record) {
        DornTiff* tiff = ScriptedDriver::usual().DornTiffOpen(record);
        tiff->dwPageCounter = 31;
        tiff->dwPageCursor = 32;
        return tiff;
    };
    fail_before_the_first_page("");
    Lines notes = lines(all_of(NOTE));
    ASSERT_EQ(notes.size(), 24u);
    EXPECT_EQ(Lines(notes.begin(), notes.begin() + 3),
              (Lines{"0 0 rows 23, 0 0", "0 0 rows 23, 0 0", "0 0 rows 4, 0 0"}));
    for (size_t entry = 3; entry < notes.size(); ++entry) EXPECT_EQ(notes[entry], "0 0 rows 4, 1 0");
}

TEST_F(Placeholder, GivesTheDriverTheImageByItsOffsets) {
    fail_before_the_first_page("");
    std::vector<std::vector<uint8_t>> images = records_of("DornTiffWriteImage");
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(value_at<uint32_t>(images[0], 56), 4u);
    EXPECT_EQ(value_at<const void*>(images[1], 48), nullptr);
    std::vector<std::vector<uint8_t>> entries_written = records_of("DornTiffWriteIFD");
    ASSERT_EQ(entries_written.size(), 21u);
    EXPECT_NE(value_at<const void*>(entries_written[19], 72), nullptr);
    EXPECT_EQ(value_at<const void*>(entries_written[20], 72), nullptr);
    EXPECT_EQ(value_at<uint32_t>(records_of("DornTiffWriteRes").at(0), 60), 0u);
}
