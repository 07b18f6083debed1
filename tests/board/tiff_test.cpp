// The TIFF primitives, and received pages as their readers find them.
#include <cstring>
#include <map>

#include "pages.h"
#include "support.h"

namespace {

// ---- shorthands ---------------------------------------------------------------------------------------------------

int write_image(DornTiff* tiff, const void* data, uint32_t bytes) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.imageData = data;
    record.cbImage = bytes;
    return DornTiffWriteImage(&record);
}

int write_entry(DornTiff* tiff, const DornTiffEntry* entry) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.entry = entry;
    return DornTiffWriteIFD(&record);
}

int write_entry(DornTiff* tiff, uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
    const DornTiffEntry entry{tag, type, count, value};
    return write_entry(tiff, &entry);
}

DornTiffRecord write_resolution(DornTiff* tiff, uint32_t selector) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.dwResolution = selector;
    DornTiffWriteRes(&record);
    return record;
}

using Entries = std::vector<DornTiffEntry>;

int collect(DornTiff*, const DornTiffEntry* entry, uint64_t entries) {
    reinterpret_cast<Entries*>(entries)->push_back(*entry);
    return 0;
}

int read_directories(DornTiff* tiff, DornTiffTagFunc callback, uint64_t value) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.tagCallback = callback;
    record.qwCallerValue = value;
    return DornTiffReadIFD(&record);
}

int read_directories(const std::string& path, Entries* entries = nullptr) {
    Entries ignored;
    DornTiff* const tiff = open_tiff(path, "r");
    const int count =
        read_directories(tiff, collect, reinterpret_cast<uint64_t>(entries == nullptr ? &ignored : entries));
    close_tiff(tiff);
    return count;
}

uint32_t append_text(DornTiff* tiff, const char* text) {
    _mdll_fseek(tiff->stream, 0, SEEK_END);
    if (_mdll_ftell(tiff->stream) % 2 != 0) _mdll_fwrite("", 1, 1, tiff->stream);
    const long offset = _mdll_ftell(tiff->stream);
    EXPECT_EQ(_mdll_fwrite(text, 1, strlen(text) + 1, tiff->stream), strlen(text) + 1);
    return static_cast<uint32_t>(offset);
}

// A one-page placeholder, built in the order of the provider: image, resolution, then entry by entry, not sorted.
void build_placeholder(DornTiff* tiff, const char* software) {
    const uint8_t image[4] = {};
    EXPECT_EQ(write_image(tiff, image, sizeof image), 0);
    EXPECT_EQ(write_image(tiff, nullptr, 0), 0);
    const DornTiffRecord resolution = write_resolution(tiff, 0);
    EXPECT_EQ(resolution.status, uint32_t{KX_STATUS_OK});
    const DornTiffEntry entries[] = {{254, 4, 1, 2},
                                     {256, 4, 1, 1728},
                                     {257, 4, 1, 4},
                                     {258, 3, 1, 1},
                                     {259, 3, 1, 4},
                                     {262, 3, 1, 0},
                                     {266, 3, 1, 2},
                                     {273, 4, 1, 0},
                                     {277, 3, 1, 1},
                                     {278, 4, 1, 4},
                                     {279, 4, 1, 0},
                                     {282, 5, 1, resolution.dwXResolutionOffset},
                                     {283, 5, 1, resolution.dwYResolutionOffset},
                                     {293, 4, 1, 0},
                                     {296, 3, 1, 2},
                                     {297, 3, 2, 0},
                                     {326, 3, 1, 0},
                                     {327, 3, 1, 0}};
    for (const DornTiffEntry& entry : entries) EXPECT_EQ(write_entry(tiff, &entry), 0);
    EXPECT_EQ(write_entry(tiff, 305, 2, 11, append_text(tiff, software)), 0);
    EXPECT_EQ(write_entry(tiff, 337, 2, 1, 0), 0);
    EXPECT_EQ(write_entry(tiff, nullptr), 0);
}

std::string read_software(const std::string& path, tdir_t page) {
    TIFF* const tiff = TIFFOpen(path.c_str(), "r");
    const char* text = "";
    TIFFSetDirectory(tiff, page);
    TIFFGetField(tiff, TIFFTAG_SOFTWARE, &text);
    const std::string software = text;
    TIFFClose(tiff);
    return software;
}

int stamp(DornTiff* tiff, const DornTiffEntry* entry, uint64_t) {
    if (entry->tag != 305) return 0;
    const long position = _mdll_ftell(tiff->stream);
    EXPECT_EQ(_mdll_fseek(tiff->stream, static_cast<long>(entry->value), SEEK_SET), 0);
    EXPECT_EQ(_mdll_fwrite("9876543210", 11, 1, tiff->stream), 1u);
    EXPECT_EQ(_mdll_fseek(tiff->stream, position, SEEK_SET), 0);
    return 0;
}

std::string first_bytes(const std::string& path, size_t count) {
    std::string bytes(count, '?');
    FILE* const file = fopen(path.c_str(), "rb");
    bytes.resize(fread(&bytes[0], 1, count, file));
    fclose(file);
    return bytes;
}

void write_bytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* const file = fopen(path.c_str(), "wb");
    fwrite(bytes.data(), 1, bytes.size(), file);
    fclose(file);
}

}  // namespace

// ---- writing ------------------------------------------------------------------------------------------------------

TEST(Tiff, APlaceholderIsAPageToEveryReader) {
    Board board;
    DornTiff* const tiff = open_tiff(board.file("p.tif"), "w+");
    build_placeholder(tiff, "0538968064");
    EXPECT_EQ(close_tiff(tiff).status, uint32_t{KX_STATUS_OK});
    const std::vector<Page> pages = read_file(board.file("p.tif"));
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_EQ(pages[0].rows.size(), 4u);
    EXPECT_EQ(pages[0].dpi_down, 98.0f);
    EXPECT_EQ(read_software(board.file("p.tif"), 0), "0538968064");
    Entries entries;
    EXPECT_EQ(read_directories(board.file("p.tif"), &entries), 1);
    EXPECT_EQ(entries.size(), 20u);
    for (size_t i = 1; i < entries.size(); ++i) EXPECT_GT(entries[i].tag, entries[i - 1].tag);
}

TEST(Tiff, FurtherPagesAreLinkedBehindTheLastAlsoWhenTheFileIsOpenedAgain) {
    Board board;
    DornTiff* tiff = open_tiff(board.file("p.tif"), "w+");
    build_placeholder(tiff, "1111111111");
    build_placeholder(tiff, "2222222222");
    close_tiff(tiff);
    tiff = open_tiff(board.file("p.tif"), "r+");
    EXPECT_EQ(tiff->dwPageCounter, 2u);
    build_placeholder(tiff, "3333333333");
    close_tiff(tiff);
    EXPECT_EQ(read_directories(board.file("p.tif")), 3);
    EXPECT_EQ(read_software(board.file("p.tif"), 2), "3333333333");
}

TEST(Tiff, AnImageMayComeInPieces) {
    Board board;
    DornTiff* const tiff = open_tiff(board.file("p.tif"), "w+");
    write_image(tiff, "abc", 3);
    write_image(tiff, "defg", 4);
    write_image(tiff, nullptr, 0);
    write_entry(tiff, 273, 4, 1, 0);
    write_entry(tiff, 279, 4, 1, 0);
    write_entry(tiff, nullptr);
    close_tiff(tiff);
    Entries entries;
    ASSERT_EQ(read_directories(board.file("p.tif"), &entries), 1);
    EXPECT_EQ(entries[0].value, 8u);
    EXPECT_EQ(entries[1].value, 7u);
}

TEST(Tiff, AStampIsWrittenInPlaceWhileTheDirectoriesAreRead) {
    Board board;
    DornTiff* tiff = open_tiff(board.file("p.tif"), "w+");
    build_placeholder(tiff, "1111111111");
    build_placeholder(tiff, "2222222222");
    close_tiff(tiff);
    tiff = open_tiff(board.file("p.tif"), "r+");
    EXPECT_EQ(read_directories(tiff, stamp, 0), 2);
    close_tiff(tiff);
    EXPECT_EQ(read_software(board.file("p.tif"), 0), "9876543210");
    EXPECT_EQ(read_software(board.file("p.tif"), 1), "9876543210");
}

TEST(Tiff, ResolutionsAreStandardAndFineAndNoOther) {
    Board board;
    DornTiff* const tiff = open_tiff(board.file("p.tif"), "w+");
    EXPECT_EQ(write_resolution(tiff, 1).status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(write_resolution(tiff, 2).line_status, uint32_t{APIERR_BADPARAMETER});
    close_tiff(tiff);
}

TEST(Tiff, WhatIsNotWrittenLeavesTheFileEmpty) {
    Board board;
    DornTiff* const tiff = open_tiff(board.file("p.tif"), "w+");
    EXPECT_NE(write_entry(tiff, nullptr), 0);
    close_tiff(tiff);
    EXPECT_EQ(read_directories(board.file("p.tif")), 0);
}

// A file of 4 GiB and more, most of which takes no room on the disk.
TEST(Tiff, NothingIsWrittenBeyondWhatAnOffsetReaches) {
    Board board;
    DornTiff* const tiff = open_tiff(board.file("p.tif"), "w+");
    write_image(tiff, "abc", 3);
    for (int i = 0; i < 2; ++i) _mdll_fseek(tiff->stream, INT32_MAX, SEEK_CUR);
    ASSERT_EQ(_mdll_fwrite("x", 1, 1, tiff->stream), 1u);
    EXPECT_EQ(write_image(tiff, nullptr, 0), 0);
    EXPECT_NE(write_image(tiff, "defg", 4), 0);
    EXPECT_NE(write_resolution(tiff, 0).status, uint32_t{KX_STATUS_OK});
    write_entry(tiff, 273, 4, 1, 0);
    EXPECT_NE(write_entry(tiff, nullptr), 0);
    close_tiff(tiff);
    EXPECT_EQ(first_bytes(board.file("p.tif"), 11), std::string("II*\0\0\0\0\0abc", 11));
}

// ---- reading what may be anything ---------------------------------------------------------------------------------

TEST(HostileTiff, WithoutAReadableDirectoryGivesNone) {
    Board board;
    const std::string path = board.file("h.tif");
    const std::vector<std::vector<uint8_t>> files = {
        {},
        {'I', 'I'},
        std::vector<uint8_t>(5000, 'x'),
        {'I', 'I', 42, 0, 0, 0, 0, 0},                                // no directory
        {'I', 'I', 42, 0, 8, 0, 0, 0},                                // behind the end
        {'I', 'I', 42, 0, 0xFF, 0xFF, 0xFF, 0xFF},                    // far behind the end
        {'I', 'I', 42, 0, 8, 0, 0, 0, 0xFF, 0xFF, 1, 2, 3, 4},        // more entries than bytes
        {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0},              // no entries
        {'I', 'I', 42, 0, 2, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 0, 0},  // inside the header
        {'I', 'M', 42, 0, 8, 0, 0, 0},
    };
    for (size_t i = 0; i < files.size(); ++i) {
        write_bytes(path, files[i]);
        EXPECT_EQ(read_directories(path), 0) << i;
    }
}

TEST(HostileTiff, ALoopOfDirectoriesEnds) {
    Board board;
    const std::string path = board.file("h.tif");
    write_bytes(path, {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0, 1, 4, 0, 1, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0});
    EXPECT_EQ(read_directories(path), 1);
    DornTiff* const tiff = open_tiff(path, "r+");
    EXPECT_EQ(write_entry(tiff, 256, 4, 1, 1728), 0);
    EXPECT_EQ(write_entry(tiff, nullptr), 0);
    close_tiff(tiff);
}

// Each directory begins within the one before it, and all of them have a hundred entries: they are the same entries.
TEST(HostileTiff, DirectoriesThatOverlapAreReadNoFurtherThanTheFileIsLong) {
    Board board;
    constexpr uint32_t FIRST = 8, STEP = 6, DIRECTORIES = 20, ENTRIES = 100;
    constexpr uint32_t LINK = sizeof(uint16_t) + ENTRIES * sizeof(DornTiffEntry);
    std::vector<uint8_t> bytes(FIRST + DIRECTORIES * STEP + LINK, 0);
    memcpy(bytes.data(), "II*\0\x8", 5);
    for (uint32_t i = 0; i < DIRECTORIES; ++i) {
        const uint32_t at = FIRST + i * STEP;
        const uint16_t entries = ENTRIES;
        const uint32_t next = at + STEP;
        memcpy(&bytes[at], &entries, sizeof entries);
        memcpy(&bytes[at + LINK], &next, sizeof next);
    }
    write_bytes(board.file("h.tif"), bytes);
    EXPECT_EQ(read_directories(board.file("h.tif")), 1);
}

TEST(HostileTiff, ABigEndianFileIsReadInThisMachinesOrder) {
    Board board;
    write_file(board.file("b.tif"), {text_page(1, 300)}, {COMPRESSION_CCITTFAX4, FILLORDER_MSB2LSB, 0, "wb"});
    Entries entries;
    EXPECT_EQ(read_directories(board.file("b.tif"), &entries), 1);
    std::map<uint16_t, uint32_t> values;
    for (const DornTiffEntry& entry : entries) values[entry.tag] = entry.value;
    EXPECT_EQ(values[256], 1728u);
    EXPECT_EQ(values[259], 4u);
}

TEST(Tiff, ACallbackEndsTheReadingByItsResult) {
    Board board;
    DornTiff* const tiff = open_tiff(board.file("p.tif"), "w+");
    build_placeholder(tiff, "1111111111");
    build_placeholder(tiff, "2222222222");
    const auto stop = [](DornTiff*, const DornTiffEntry*, uint64_t calls) {
        return static_cast<int>(++*reinterpret_cast<int*>(calls) == 3);
    };
    int calls = 0;
    EXPECT_EQ(read_directories(tiff, stop, reinterpret_cast<uint64_t>(&calls)), 1);
    EXPECT_EQ(calls, 3);
    close_tiff(tiff);
}

// ---- received pages -----------------------------------------------------------------------------------------------

TEST(ReceivedTiff, HasTheTagsOfAFaxAndTheExtraTagsOnTheFirstPageOnly) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1, 500), text_page(2, 600)});
    FaxOptions receiving;
    receiving.extra_tags = {{305, 2, 11, "0536870920"}, {337, 2, 4, "abc"}};
    transfer(ConnectedLines(0, 1, "101"), board.file("out.tif"), board.file("in.tif"), {}, receiving);

    Entries entries;
    ASSERT_EQ(read_directories(board.file("in.tif"), &entries), 2);
    const std::vector<uint16_t> plain = {254, 256, 257, 258, 259, 262, 266, 273, 277,
                                         278, 279, 282, 283, 293, 296, 297, 326, 327};
    std::vector<uint16_t> expected = plain;
    expected.insert(expected.begin() + 15, 305);
    expected.insert(expected.begin() + 18, 337);
    std::sort(expected.begin(), expected.end());
    expected.insert(expected.end(), plain.begin(), plain.end());
    std::vector<uint16_t> tags;
    for (const DornTiffEntry& entry : entries) tags.push_back(entry.tag);
    EXPECT_EQ(tags, expected);

    std::map<uint16_t, uint32_t> second;
    for (const DornTiffEntry& entry : entries) second[entry.tag] = entry.value;
    EXPECT_EQ(second[257], 600u);
    EXPECT_EQ(second[278], 600u);
    EXPECT_EQ(second[266], 2u);
    EXPECT_EQ(second[297], 1u);  // second page, of a number not known
    EXPECT_EQ(memcmp(&second[337], "abc", 4), 0);
    EXPECT_EQ(second[305] % 2, 0u);
    EXPECT_EQ(read_software(board.file("in.tif"), 0), "0536870920");
}

TEST(ReceivedTiff, IsCompleteForOtherReadersAfterEveryPage) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1, 500), text_page(2, 500), text_page(3, 500)});
    FaxOptions receiving;
    receiving.after_page = [&](uint32_t pages) {
        EXPECT_EQ(read_file(board.file("in.tif")).size(), pages);
        EXPECT_EQ(read_directories(board.file("in.tif")), static_cast<int>(pages));
    };
    transfer(ConnectedLines(0, 1, "101"), board.file("out.tif"), board.file("in.tif"), {}, receiving);
}

TEST(ReceivedTiff, TheLinesAndTheHandlesBookkeepingFollows) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1, 500), text_page(2, 600)});
    const ConnectedLines lines(0, 1, "101");
    transfer(lines, board.file("out.tif"), board.file("in.tif"));
    EXPECT_EQ(lines.called->wPageNumber, 2);
    EXPECT_EQ(lines.called->wPageCount, 2);
    EXPECT_EQ(lines.called->wRowCount, 600);
}
