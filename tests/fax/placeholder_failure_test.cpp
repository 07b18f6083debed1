// The placeholder when one of its steps fails: what is left undone, and that the file is closed.
#include <memory>

#include "placeholder_fixture.h"

using namespace harness;

namespace {

class PlaceholderFailure : public PlaceholderFixture {
  protected:
    // The rebuilding ends with this call, and with this result; the file is closed.
    void expect_end_after(const std::string& last_call, int result) { expect_end(steps_up_to(last_call), result); }
    void expect_end(const Lines& steps, int result) {
        fail_before_the_first_page("TO: ME");
        expect_rebuilding(steps, result);
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
    expect_rebuilding(steps_up_to("DornTiffOpen(\"" + file() + "\", \"w+\")"), -1, {});
    EXPECT_EQ(close_file(), 1u);
}

TEST_F(PlaceholderFailure, OfTheImageEndsIt) {
    driver.on.DornTiffWriteImage = [](DornTiffRecord* record) { return record->imageData ? 1 : 0; };
    expect_end_after("DornTiffWriteImage(TIFF3, \"\\x00\\x00\\x00\\x00\")", 1);
}

TEST_F(PlaceholderFailure, OfTheImagesEndEndsIt) {
    driver.on.DornTiffWriteImage = [](DornTiffRecord* record) { return record->imageData ? 0 : -1; };
    driver.line_of(4)->wRowCount = 23;
    expect_end_after("DornTiffWriteImage(TIFF3, end)", -1);
    EXPECT_EQ(driver.line_of(4)->wRowCount, 23);
}

TEST_F(PlaceholderFailure, InTheStatusOfTheResolutionEndsIt) {
    driver.on.DornTiffWriteRes = [](DornTiffRecord* record) { return put_value(record, 0, KX_STATUS_ERROR), 6; };
    expect_end_after("DornTiffWriteRes(TIFF3, 0)", 6);
}

TEST_F(PlaceholderFailure, OfTheFirstEntryEndsIt) {
    let_an_entry_fail(1);
    expect_end_after("DornTiffWriteIFD(TIFF3, 254:4[1] 0x2)", 5);
}

TEST_F(PlaceholderFailure, OfAnEntryInTheMiddleEndsIt) {
    let_an_entry_fail(12);
    expect_end_after("DornTiffWriteIFD(TIFF3, 282:5[1] 0xC)", 5);
}

TEST_F(PlaceholderFailure, OfTheStampsEntryEndsIt) {
    let_an_entry_fail(19);
    expect_end_after("DornTiffWriteIFD(TIFF3, 305:2[11] 0x1C)", 5);
}

TEST_F(PlaceholderFailure, OfTheRoutingTextsEntryEndsIt) {
    let_an_entry_fail(20);
    expect_end_after("DornTiffWriteIFD(TIFF3, 337:2[7] 0x28)", 5);
}

TEST_F(PlaceholderFailure, OfTheDirectorysEndIsLeftAsItIs) {
    let_an_entry_fail(21);
    expect_end_after("DornTiffWriteIFD(TIFF3, end)", 5);
}

TEST_F(PlaceholderFailure, OfAShortWriteOfATextEndsIt) {
    let_a_write_fail(1);
    expect_end_after("_mdll_fwrite(STREAM3, \"0538968064\\x00\")", 0);
}

TEST_F(PlaceholderFailure, OfThePaddingByteEndsIt) {
    let_a_write_fail(2);
    expect_end(joined({steps_up_to("_mdll_fwrite(STREAM3, \"\\x00\")"), {"[9] PadToEven(0)"}}), 0);
}

TEST_F(PlaceholderFailure, OfTheSecondTextEndsIt) {
    let_a_write_fail(3);
    expect_end_after("_mdll_fwrite(STREAM3, \"TO: ME\\x00\")", 0);
}
