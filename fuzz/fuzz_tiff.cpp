#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include "failure.h"
#include "fuzz.h"
#include "page.h"
#include "page_writer.h"
#include "tiff_handles.h"

namespace fuzz {

// ---- the DornTiff functions, with a record of their own -------------------------------------------------------------

static DornTiff* open(const std::string& path, const char* mode) {
    DornTiffRecord record{};
    record.szPath = path.c_str();
    record.szMode = mode;
    return DornTiffOpen(&record);
}

static int close(DornTiff* tiff) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    return DornTiffClose(&record);
}

static int write_image(DornTiff* tiff, const void* data, size_t bytes) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.imageData = data;
    record.cbImage = static_cast<uint32_t>(bytes);
    return DornTiffWriteImage(&record);
}

static int write_entry(DornTiff* tiff, const DornTiffEntry* entry) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.entry = entry;
    return DornTiffWriteIFD(&record);
}

// ---- reading ------------------------------------------------------------------------------------------------------

// What a reader does with the entries that it is shown.
struct Reader {
    Input& input;
    void* stream;
    size_t entries = 0;
};

static int read_entry(DornTiff* tiff, const DornTiffEntry* entry, uint64_t value) {
    constexpr size_t ENOUGH = 64;
    constexpr uint16_t SOFTWARE = 305;
    auto& reader = *reinterpret_cast<Reader*>(value);
    must(tiff->stream == reader.stream, "the file's head stays as it is");
    // The stamp that is written over the software's name, and the position restored.
    if (entry->tag == SOFTWARE) {
        const long position = _mdll_ftell(tiff->stream);
        if (_mdll_fseek(tiff->stream, static_cast<long>(entry->value), SEEK_SET) == 0) {
            _mdll_fwrite("0536870920", 11, 1, tiff->stream);
        }
        _mdll_fseek(tiff->stream, position, SEEK_SET);
    }
    if (++reader.entries < ENOUGH) return 0;
    constexpr int (*AFTERWARDS[])(DornTiff*) = {
        [](DornTiff*) { return 0; },
        [](DornTiff*) { return 1; },
        [](DornTiff* handle) { return close(handle); },  // reading goes on nevertheless
        [](DornTiff* handle) { return write_image(handle, "x", 1); },
    };
    return AFTERWARDS[reader.input.choose(std::size(AFTERWARDS))](tiff);
}

static int read_directories(DornTiff* tiff, Input& input) {
    Reader reader{input, tiff->stream};
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.tagCallback = read_entry;
    record.qwCallerValue = reinterpret_cast<uint64_t>(&reader);
    const int directories = DornTiffReadIFD(&record);
    must((directories != 0) == (record.status == KX_STATUS_OK), "reading fails when there is nothing to read");
    return directories;
}

static int count_directories(DornTiff* tiff) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.tagCallback = [](DornTiff*, const DornTiffEntry*, uint64_t) { return 0; };
    return DornTiffReadIFD(&record);
}

// ---- writing behind what is there ---------------------------------------------------------------------------------

// An entry as it may come, the file's own bytes.
static DornTiffEntry any_entry(Input& input) {
    DornTiffEntry entry{};
    const size_t at = input.choose(256);
    if (at + sizeof entry <= input.size()) memcpy(&entry, input.data() + at, sizeof entry);
    return entry;
}

static void write_resolution(DornTiff* tiff, Input& input) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.dwResolution = input.choose(3);
    DornTiffWriteRes(&record);
}

static void write_any_page(DornTiff* tiff, Input& input) {
    for (unsigned pieces = input.choose(3); pieces != 0; --pieces) {
        write_image(tiff, input.data(), std::min<size_t>(input.size(), input.choose(256)));
        if (input.choose(2) != 0) write_resolution(tiff, input);
    }
    if (input.choose(2) != 0) _mdll_fseek(tiff->stream, input.choose(256), static_cast<int>(input.choose(4)));
    write_image(tiff, nullptr, 0);
    for (unsigned entries = input.choose(4); entries != 0; --entries) {
        const DornTiffEntry entry = any_entry(input);
        write_entry(tiff, &entry);
    }
    write_entry(tiff, nullptr);
}

// As a reception writes it, with extra tags of any kind. They say how many bytes their values have, so these have them.
static void write_received_page(DornTiff* tiff, Input& input) {
    softboard::ReceivedPage page{1728, 1, softboard::DPI_FINE, input.choose(2), {1, 2, 3}};
    std::vector<DornExtraTag> tags;
    std::vector<std::vector<uint8_t>> values;
    for (unsigned count = input.choose(3); count != 0; --count) {
        const DornTiffEntry entry = any_entry(input);
        const uint64_t bytes = uint64_t{softboard::tiff_type_size(entry.type)} * entry.count;
        values.emplace_back(bytes <= 65536 ? bytes : 1);
        tags.push_back({entry.tag, entry.type, entry.count, values.back().empty() ? nullptr : values.back().data()});
    }
    const std::shared_ptr<softboard::TiffFile> file = softboard::find_tiff(tiff);
    try {
        softboard::write_page(*file, page, 0, tags.data(), static_cast<uint32_t>(tags.size()));
    } catch (const softboard::Failure&) {
        // An extra tag was malformed.
    }
}

// ---- the target ---------------------------------------------------------------------------------------------------

void tiff(const uint8_t* data, size_t size) {
    constexpr const char* MODES[] = {"r+", "r", "a+", "rb", "w+", "w", "a", "r+b", "q", ""};
    Input input(data, size);
    const softboard::TempFile file = file_of(input);
    DornTiff* const handle = open(file.path(), MODES[input.choose(std::size(MODES))]);
    if (handle == nullptr) return;
    const std::shared_ptr<softboard::TiffFile> held = softboard::find_tiff(handle);
    must(held != nullptr, "an open file is found");
    for (unsigned steps = input.choose(4); steps != 0 && softboard::find_tiff(handle) != nullptr; --steps) {
        constexpr void (*STEPS[])(DornTiff*, Input&) = {
            [](DornTiff* tiff, Input& choices) { read_directories(tiff, choices); },
            write_any_page,
            write_received_page,
        };
        STEPS[input.choose(std::size(STEPS))](handle, input);
    }
    if (softboard::find_tiff(handle) != nullptr) must(close(handle) == 0, "an open file can be closed");
    must(close(handle) != 0, "a file is closed once");

    // What the file has become, whatever it was.
    DornTiff* const again = open(file.path(), "r");
    must(again != nullptr, "a file that is there can be read");
    must(static_cast<int>(again->dwPageCounter) == count_directories(again),
         "the pages counted are those that are read");
    close(again);
}

}  // namespace fuzz
