// Fax files: what is taken for one, what is refused and by which words, and the comparison of pages.
#include "fax_file.h"

#include <gtest/gtest.h>

#include "fax_pages.h"
#include "temporary_folder.h"

class FaxFile : public testing::Test {
  protected:
    // The refusal of the file, which names what is wrong.
    std::string refusal(const std::string& path) {
        std::vector<FaxPage> pages;
        const Failure failure = fax_file_read(path, pages);
        EXPECT_EQ(EXIT_FILE, failure.exit_status);
        name = failure.name;
        return failure.text;
    }

    std::vector<FaxPage> read_back(const std::string& path) {
        std::vector<FaxPage> pages;
        const Failure failure = fax_file_read(path, pages);
        EXPECT_FALSE(failure) << failure_line(failure);
        return pages;
    }

    TemporaryFolder folder;
    std::string name;  // of the last refusal
};

TEST_F(FaxFile, IsReadAsItWasWritten) {
    const std::vector<FaxPage> pages = drawn_pages(3);
    write_fax(folder.file("a.tif"), pages);
    const std::vector<FaxPage> read = read_back(folder.file("a.tif"));
    ASSERT_EQ(3u, read.size());
    EXPECT_EQ(196u, read[0].dpi_down);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(pages[i].pixels, read[i].pixels);
}

TEST_F(FaxFile, IsReadAlikeWhateverStandsForBlackAndHoweverItIsCompressed) {
    const std::vector<FaxPage> pages = drawn_pages(1);
    for (const uint16_t compression : {1, 2, 3, 4}) {
        for (const bool black_is_zero : {false, true}) {
            TiffForm form;
            form.compression = compression;
            form.black_is_zero = black_is_zero;
            write_fax(folder.file("a.tif"), pages, form);
            EXPECT_EQ(pages[0].pixels, read_back(folder.file("a.tif"))[0].pixels) << compression << black_is_zero;
        }
    }
}

TEST_F(FaxFile, ThatIsMissingIsRefused) {
    EXPECT_NE(std::string::npos, refusal(folder.file("none.tif")).find("cannot be read, error 2"));
    EXPECT_EQ("APIERR_FILEIO", name);
}

TEST_F(FaxFile, ThatIsEmptyIsRefused) {
    write_text(folder.file("a.tif"), "");
    EXPECT_NE(std::string::npos, refusal(folder.file("a.tif")).find("is empty"));
    EXPECT_EQ("APIERR_FILEFORMAT", name);
}

TEST_F(FaxFile, ThatIsNoTiffIsRefused) {
    write_text(folder.file("a.tif"), "%PDF-1.4 and so on, which is no TIFF file at all");
    EXPECT_NE(std::string::npos, refusal(folder.file("a.tif")).find("is no TIFF file"));
    EXPECT_EQ("APIERR_FILEFORMAT", name);
}

// Wherever it is cut: in a directory, between two pages, in a page's rows.
TEST_F(FaxFile, ThatIsTruncatedIsRefused) {
    const std::string path = folder.file("a.tif");
    write_fax(path, drawn_pages(3));
    const uint64_t whole = file_size(path);
    for (const uint64_t part : {95, 70, 60, 40, 20, 5}) {
        write_fax(path, drawn_pages(3));
        truncate_file(path, whole * part / 100);
        refusal(path);
        EXPECT_EQ("APIERR_FILEFORMAT", name) << part << " %";
    }
}

TEST_F(FaxFile, ThatIsNoFaxIsRefused) {
    TiffForm grey;
    grey.bits = 8;
    grey.compression = 1;
    write_fax(folder.file("grey.tif"), drawn_pages(1), grey);
    EXPECT_NE(std::string::npos, refusal(folder.file("grey.tif")).find("page 1 is not black and white"));
    write_fax(folder.file("narrow.tif"), {drawn_page(1), drawn_page(2, 100, 640)});
    EXPECT_NE(std::string::npos, refusal(folder.file("narrow.tif")).find("page 2 is 640 pixels wide"));
}

TEST_F(FaxFile, TellsTheStampOfItsFirstPage) {
    TiffForm form;
    form.software = "0536871936";
    write_fax(folder.file("a.tif"), drawn_pages(2), form);
    EXPECT_EQ("0536871936", fax_file_stamp(folder.file("a.tif")));
    EXPECT_EQ(0x20000400u, stamp_code("0536871936"));
    for (const char* other : {"", "libtiff", "053687193", "05368719366", "053687193x"}) {
        form.software = other;
        write_fax(folder.file("b.tif"), drawn_pages(1), form);
        EXPECT_FALSE(fax_file_stamp(folder.file("b.tif"))) << other;
    }
}

TEST_F(FaxFile, CanBeWrittenOrNotIsSaidWithoutTouchingIt) {
    write_text(folder.file("a.tif"), "kept");
    EXPECT_FALSE(check_writable(folder.file("a.tif")));
    EXPECT_EQ("kept", read_text(folder.file("a.tif")));
    EXPECT_FALSE(check_writable(folder.file("new.tif")));
    EXPECT_FALSE(check_writable_folder(folder.path));
    EXPECT_EQ(1u, folder.files().size());
    EXPECT_TRUE(check_writable(folder.file("none\\a.tif")));
    EXPECT_TRUE(check_writable_folder(folder.file("none")));
}

TEST(FaxPages, AreIdenticalPixelByPixel) {
    const std::vector<PageComparison> same = fax_pages_compare(drawn_pages(2), drawn_pages(2), false);
    ASSERT_EQ(2u, same.size());
    EXPECT_TRUE(same[0].identical && same[1].identical);
}

TEST(FaxPages, AreToldApartByTheirFirstPixel) {
    std::vector<FaxPage> received = drawn_pages(1);
    received[0].pixels[7 * 216 + 3] ^= 0x10;
    const std::vector<PageComparison> comparison = fax_pages_compare(drawn_pages(1), received, false);
    EXPECT_FALSE(comparison[0].identical);
    EXPECT_EQ("row 8, pixel 28", comparison[0].difference);
}

struct HeaderLineOfResolution {
    uint32_t dpi_down;
    uint32_t rows;
};

TEST(FaxPages, AreComparedWithoutTheRowsOfTheHeaderLine) {
    for (const HeaderLineOfResolution line : {HeaderLineOfResolution{98, 16}, {196, 32}, {391, 64}}) {
        const std::vector<FaxPage> sent = {drawn_page(1, 200, 1728, line.dpi_down)};
        std::vector<FaxPage> received = sent;
        received[0].pixels[line.rows * 216 - 1] ^= 1;
        EXPECT_FALSE(fax_pages_compare(sent, received, false)[0].identical);
        EXPECT_TRUE(fax_pages_compare(sent, received, true)[0].identical);
        received[0].pixels[line.rows * 216] ^= 0x80;
        EXPECT_FALSE(fax_pages_compare(sent, received, true)[0].identical) << line.dpi_down;
    }
}

TEST(FaxPages, ThatAreMissingOrTooManyOrOfAnotherSizeDiffer) {
    EXPECT_EQ("not received", fax_pages_compare(drawn_pages(2), drawn_pages(1), false)[1].difference);
    EXPECT_EQ("never sent", fax_pages_compare(drawn_pages(1), drawn_pages(2), false)[1].difference);
    EXPECT_EQ("sent 1728 by 200 pixels, received 1728 by 199",
              fax_pages_compare({drawn_page(1)}, {drawn_page(1, 199)}, false)[0].difference);
}
