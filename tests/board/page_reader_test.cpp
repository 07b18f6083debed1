// Pages that the fax engine has received, as the board takes them from the engine's file.
#include <gtest/gtest.h>

#include <cstring>

#include "file_stream.h"
#include "page_reader.h"
#include "pages.h"
#include "temp_file.h"
#include "tiff_file.h"
#include "tiff_library.h"

using softboard::ReceivedPage;

// Overwrites the value of the entry with this tag in the file's first directory.
static void set_value(const std::string& path, uint16_t tag, uint32_t value) {
    const auto file = softboard::FileStream::open(path, "r+");
    std::vector<uint8_t> bytes(1 << 16);
    bytes.resize(file->read(bytes.data(), bytes.size()));
    for (size_t at = 0; at + sizeof(DornTiffEntry) <= bytes.size(); at += 2) {
        DornTiffEntry entry;
        memcpy(&entry, bytes.data() + at, sizeof entry);
        if (entry.tag != tag || entry.type != softboard::TIFF_LONG || entry.count != 1) continue;
        file->seek(static_cast<int64_t>(at + offsetof(DornTiffEntry, value)), SEEK_SET);
        file->write(&value, sizeof value);
        return;
    }
    FAIL() << "there is no tag " << tag;
}

TEST(ReceivedPage, IsReadWithItsSizeAndItsImage) {
    const softboard::TempFile file;
    write_file(file.path(), {text_page(1, 300), text_page(2, 200)});
    ReceivedPage page;
    ASSERT_TRUE(softboard::read_received_page(file.path(), 1, page));
    EXPECT_EQ(page.width, 1728u);
    EXPECT_EQ(page.rows, 200u);
    EXPECT_EQ(page.dpi_down, softboard::DPI_FINE);
    EXPECT_FALSE(page.image.empty());
}

TEST(ReceivedPage, IsNotThereBehindTheLast) {
    const softboard::TempFile file;
    write_file(file.path(), {text_page(1, 300)});
    ReceivedPage page;
    EXPECT_FALSE(softboard::read_received_page(file.path(), 1, page));
}

TEST(ReceivedPage, ThatClaimsMoreThanTheFileHasTakesNoMemory) {
    const softboard::TempFile file;
    softboard::quieten_tiff_library();
    write_file(file.path(), {text_page(1, 300)});
    set_value(file.path(), softboard::TAG_STRIP_BYTE_COUNTS, 1u << 30);
    ReceivedPage page;
    EXPECT_FALSE(softboard::read_received_page(file.path(), 0, page));
    EXPECT_EQ(page.image.capacity(), 0u);
}
