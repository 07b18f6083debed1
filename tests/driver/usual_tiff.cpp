// TIFF files as the board's library handles them unless a test says otherwise: real files, little-endian, one image
// and one directory at a time. Enough for what the provider does with them; no image data is looked at.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>

#include "default_behaviour.h"
#include "text.h"

namespace harness {

namespace {

struct ScriptedTiff {
    DornTiff head;
    FILE* file;
    uint32_t image_offset = 0, image_size = 0;
    std::vector<DornTiffEntry> entries = {};
};

std::mutex files_lock;
std::list<ScriptedTiff> open_files;
std::list<ScriptedTiff> closed_files;  // kept, so that no later file gets the address that a name belongs to
int opened = 0;

ScriptedTiff* tiff_of(const DornTiffRecord* record) {
    std::lock_guard<std::mutex> holding(files_lock);
    auto found = std::find_if(open_files.begin(), open_files.end(),
                              [record](const ScriptedTiff& tiff) { return &tiff.head == record->hTiff; });
    if (found != open_files.end()) return &*found;
    problem("a TIFF call on a file that is not open");
    return nullptr;
}

template <class Value>
bool read_at(FILE* file, uint32_t offset, Value& value) {
    return std::fseek(file, static_cast<long>(offset), SEEK_SET) == 0 &&
           std::fread(&value, sizeof(value), 1, file) == 1;
}

template <class Value>
void write_at(FILE* file, uint32_t offset, const Value& value) {
    std::fseek(file, static_cast<long>(offset), SEEK_SET);
    std::fwrite(&value, sizeof(value), 1, file);
}

uint32_t even_end(FILE* file) {
    std::fseek(file, 0, SEEK_END);
    if (std::ftell(file) % 2 == 1) std::fputc(0, file);
    return static_cast<uint32_t>(std::ftell(file));
}

DornTiff* tiff_open(DornTiffRecord* record) {
    FILE* file = std::fopen(record->szPath, (std::string(record->szMode) + "b").c_str());
    if (!file) return nullptr;
    if (record->szMode[0] == 'w') std::fwrite("II*\0\0\0\0\0", 8, 1, file);
    std::lock_guard<std::mutex> holding(files_lock);
    open_files.push_back({{file, 0, 0}, file});
    ScriptedTiff& tiff = open_files.back();
    name_pointer(&tiff.head, text("TIFF%d", ++opened));
    name_pointer(file, text("STREAM%d", opened));
    return &tiff.head;
}

int tiff_close(DornTiffRecord* record) {
    ScriptedTiff* tiff = tiff_of(record);
    if (!tiff) return -1;
    std::fclose(tiff->file);
    std::lock_guard<std::mutex> holding(files_lock);
    auto closed = std::find_if(open_files.begin(), open_files.end(),
                               [tiff](const ScriptedTiff& known) { return &known == tiff; });
    closed_files.splice(closed_files.end(), open_files, closed);
    return 0;
}

// Hands the entries of the directory to the callback; false when it wants no more.
bool read_directory(DornTiffRecord* record, FILE* file, uint32_t offset, uint16_t entry_count) {
    for (uint16_t i = 0; i < entry_count; ++i) {
        DornTiffEntry entry;
        if (!read_at(file, offset + 2 + 12u * i, entry)) return false;
        if (record->tagCallback(record->hTiff, &entry, record->qwCallerValue) != 0) return false;
    }
    return true;
}

int tiff_read_directories(DornTiffRecord* record) {
    ScriptedTiff* tiff = tiff_of(record);
    uint32_t offset = 0;
    int directories = 0;
    if (!tiff || !read_at(tiff->file, 4, offset)) return 0;
    while (offset != 0) {
        uint16_t entry_count = 0;
        if (!read_at(tiff->file, offset, entry_count)) break;
        ++directories;
        if (!read_directory(record, tiff->file, offset, entry_count)) break;
        if (!read_at(tiff->file, offset + 2 + 12u * entry_count, offset)) break;
    }
    return directories;
}

int tiff_write_image(DornTiffRecord* record) {
    ScriptedTiff* tiff = tiff_of(record);
    if (!tiff) return -1;
    if (!record->imageData) return 0;
    tiff->image_offset = even_end(tiff->file);
    tiff->image_size = record->cbImage;
    return std::fwrite(record->imageData, record->cbImage, 1, tiff->file) == 1 ? 0 : -1;
}

int tiff_write_resolution(DornTiffRecord* record) {
    ScriptedTiff* tiff = tiff_of(record);
    if (!tiff) return -1;
    const uint32_t resolutions[4] = {204, 1, record->dwResolution == 0 ? 98u : 196u, 1};
    record->dwXResolutionOffset = even_end(tiff->file);
    record->dwYResolutionOffset = record->dwXResolutionOffset + 8;
    write_at(tiff->file, record->dwXResolutionOffset, resolutions);
    return 0;
}

// The offset of the file's last link, which is 0 and waits for the next directory.
uint32_t last_link(FILE* file) {
    uint32_t link = 4, offset = 0;
    while (read_at(file, link, offset) && offset != 0) {
        uint16_t entry_count = 0;
        read_at(file, offset, entry_count);
        link = offset + 2 + 12u * entry_count;
    }
    return link;
}

int tiff_write_entry(DornTiffRecord* record) {
    ScriptedTiff* tiff = tiff_of(record);
    if (!tiff) return -1;
    if (record->entry) {
        tiff->entries.push_back(*record->entry);
        return 0;
    }
    for (DornTiffEntry& entry : tiff->entries) {
        if (entry.tag == 273 && entry.value == 0) entry.value = tiff->image_offset;
        if (entry.tag == 279 && entry.value == 0) entry.value = tiff->image_size;
    }
    std::stable_sort(tiff->entries.begin(), tiff->entries.end(),
                     [](const DornTiffEntry& one, const DornTiffEntry& other) { return one.tag < other.tag; });
    uint32_t link = last_link(tiff->file), directory = even_end(tiff->file);
    write_at(tiff->file, directory, static_cast<uint16_t>(tiff->entries.size()));
    for (const DornTiffEntry& entry : tiff->entries) std::fwrite(&entry, sizeof(entry), 1, tiff->file);
    const uint32_t no_more = 0;
    std::fwrite(&no_more, sizeof(no_more), 1, tiff->file);
    write_at(tiff->file, link, directory);
    tiff->entries.clear();
    return 0;
}

}  // namespace

void close_tiff_files() {
    for (ScriptedTiff& tiff : open_files) std::fclose(tiff.file);
    open_files.clear();
    closed_files.clear();
    opened = 0;
}

void add_usual_tiff(ScriptedDriver::Handlers& usual) {
    usual.DornTiffOpen = tiff_open;
    usual.DornTiffClose = tiff_close;
    usual.DornTiffReadIFD = tiff_read_directories;
    usual.DornTiffWriteImage = tiff_write_image;
    usual.DornTiffWriteRes = tiff_write_resolution;
    usual.DornTiffWriteIFD = tiff_write_entry;
    usual._mdll_fseek = [](void* stream, long offset, int origin) {
        return std::fseek(static_cast<FILE*>(stream), offset, origin);
    };
    usual._mdll_ftell = [](void* stream) { return std::ftell(static_cast<FILE*>(stream)); };
    usual._mdll_fwrite = [](const void* data, size_t size, size_t count, void* stream) {
        return std::fwrite(data, size, count, static_cast<FILE*>(stream));
    };
}

}  // namespace harness
