// The placeholder when one of its steps fails: what is left undone, and that the file is closed.
#include <memory>
#include <utility>

#include "placeholder_fixture.h"

using namespace harness;

namespace {

class PlaceholderFailure : public PlaceholderFixture {
  protected:
    // The close of the file, up to this call and then the driver's close of the placeholder.
    void expect_end_after(const std::string& last_call) {
        fail_before_the_first_page("TO: ME");
        Lines calls = lines(driver_calls().without({"_mdll_ftell(<*>"}));
        ASSERT_GE(calls.size(), 2u);
        EXPECT_TRUE(matches(last_call, calls[calls.size() - 2])) << calls[calls.size() - 2];
        EXPECT_EQ(calls.back(), "DornTiffClose(TIFF3)");
        EXPECT_EQ(close_file(), 1u);
    }

    // The call of this number, from 1, of the driver's writer fails.
    static void let_an_entry_fail(int number) {
        driver.on.DornTiffWriteIFD = [number, seen = std::make_shared<int>(0)](DornTiffRecord* record) {
            return ++*seen == number ? 5 : ScriptedDriver::usual().DornTiffWriteIFD(record);
        };
    }
    static void let_a_write_fail(int number) {
        driver.on._mdll_fwrite = [number, seen = std::make_shared<int>(0)](const void* data, size_t size, size_t count,
                                                                           void* stream) {
            return ++*seen == number ? count - 1 : ScriptedDriver::usual()._mdll_fwrite(data, size, count, stream);
        };
    }
};

}  // namespace

TEST_F(PlaceholderFailure, AtTheReopeningLeavesNoFileOpen) {
    driver.on.DornTiffOpen = [](DornTiffRecord* record) -> DornTiff* {
        bool again = std::string(record->szMode) == "w+" && count(driver_calls(), "DornTiffReadIFD(<*>") > 0;
        return again ? nullptr : ScriptedDriver::usual().DornTiffOpen(record);
    };
    fail_before_the_first_page("TO: ME");
    EXPECT_TRUE(reads(driver_calls(), {"DornTiffClose(TIFF1)", "DornTiffOpen(\"" + file() + "\", \"r+\")",
                                       "DornTiffReadIFD(TIFF2, 0x20000400)", "DornTiffClose(TIFF2)",
                                       "DornTiffOpen(\"" + file() + "\", \"w+\")"}));
    EXPECT_EQ(close_file(), 1u);
}

TEST_F(PlaceholderFailure, OfTheImageEndsIt) {
    driver.on.DornTiffWriteImage = [](DornTiffRecord* record) { return record->imageData ? 1 : 0; };
    fail_before_the_first_page("TO: ME");
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffWriteRes(<*>"));
    EXPECT_TRUE(holds_no(driver_calls(), "DornTiffWriteIFD(<*>"));
    EXPECT_TRUE(holds(driver_calls(), "DornTiffClose(TIFF3)"));
}

TEST_F(PlaceholderFailure, OfTheImagesEndEndsIt) {
    driver.on.DornTiffWriteImage = [](DornTiffRecord* record) { return record->imageData ? 0 : -1; };
    driver.line_of(4)->wRowCount = 23;
    expect_end_after("DornTiffWriteImage(TIFF3, end)");
    EXPECT_EQ(driver.line_of(4)->wRowCount, 23);
}

TEST_F(PlaceholderFailure, InTheStatusOfTheResolutionEndsIt) {
    driver.on.DornTiffWriteRes = [](DornTiffRecord* record) { return put_value(record, 0, KX_STATUS_ERROR), 0; };
    expect_end_after("DornTiffWriteRes(TIFF3, 0)");
}

TEST_F(PlaceholderFailure, OfAnyEntryEndsIt) {
    const std::pair<int, const char*> kEntries[] = {
        {1, "254:4[1] 0x2"}, {12, "282:5[1] 0xC"}, {18, "327:3[1] 0x0"}, {19, "305:2[11] 0x1C"}, {20, "337:2[7] 0x28"}};
    for (const auto& [number, entry] : kEntries) {
        let_an_entry_fail(number);
        fail_before_the_first_page("TO: ME");
        Lines written = lines(driver_calls().only({"DornTiffWriteIFD(<*>"}));
        EXPECT_EQ(written.size(), static_cast<size_t>(number));
        EXPECT_TRUE(matches(std::string("DornTiffWriteIFD(<*>, ") + entry + ")", written.back())) << written.back();
    }
}

TEST_F(PlaceholderFailure, OfTheDirectorysEndIsLeftAsItIs) {
    let_an_entry_fail(21);
    expect_end_after("DornTiffWriteIFD(TIFF3, end)");
}

TEST_F(PlaceholderFailure, OfAShortWriteOfATextEndsIt) {
    let_a_write_fail(1);
    expect_end_after("_mdll_fwrite(STREAM3, \"0538968064\\x00\")");
}

TEST_F(PlaceholderFailure, OfThePaddingByteEndsIt) {
    let_a_write_fail(2);
    expect_end_after("_mdll_fwrite(STREAM3, \"\\x00\")");
}

TEST_F(PlaceholderFailure, OfTheSecondTextEndsIt) {
    let_a_write_fail(3);
    expect_end_after("_mdll_fwrite(STREAM3, \"TO: ME\\x00\")");
}
