// TIFF 6.0 files, as the DornTiff functions and the reception write and read them.
// A file stays open for as long as somebody works on it, also when its handle is closed meanwhile. All functions are
// safe from several threads; none holds a lock while it calls back.
#pragma once

#include <calddlld.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "file_stream.h"
#include "sync.h"

namespace softboard {

constexpr uint16_t TIFF_SHORT = 3;
constexpr uint16_t TIFF_LONG = 4;
constexpr uint16_t TIFF_RATIONAL = 5;
constexpr uint16_t TIFF_ASCII = 2;

constexpr uint16_t TAG_STRIP_OFFSETS = 273;
constexpr uint16_t TAG_STRIP_BYTE_COUNTS = 279;

struct TiffFile {
    DornTiff head{};  // what the handle points to
    const std::string path;
    const std::unique_ptr<FileStream> stream;
    Mutex lock;
    std::vector<DornTiffEntry> entries;  // of the directory that is being written
    uint32_t image_offset = 0;           // of the image written last
    uint32_t image_bytes = 0;
    bool image_open = false;  // more data may follow
    uint32_t last_link = 0;   // where the next directory's offset belongs; 0 = not known yet

    TiffFile(std::string opened_path, std::unique_ptr<FileStream> opened)
        : path(std::move(opened_path)), stream(std::move(opened)) {
        head.stream = stream.get();
    }
};

// Mode as of fopen; null when the file cannot be opened. The page counter is set from what the file holds.
std::shared_ptr<TiffFile> open_tiff(const std::string& path, const std::string& mode);

// Writing fails where a file would become larger than TIFF's offsets of 32 bits reach.

// Appends to the image of the page being written; the first data after an image's end begin a new one.
bool write_tiff_image(TiffFile& file, const void* data, uint32_t bytes);
void end_tiff_image(TiffFile& file);

// Appends a value at an even offset.
bool write_tiff_value(TiffFile& file, const void* data, uint32_t bytes, uint32_t& offset);

// Collects an entry of the directory being written.
void add_tiff_entry(TiffFile& file, const DornTiffEntry& entry);
// Writes the directory, sorted by tag and with strip offset and byte count filled in where they are 0, and links it
// behind the file's last one. The file is then complete up to here for every reader.
bool end_tiff_directory(TiffFile& file);

using TiffEntries = std::vector<DornTiffEntry>;
// Calls the visitor for each directory in file order until it returns false. A directory that is not wholly in the
// file, empty, or met before ends the walk, and so does one that makes them larger than the file together. Returns how
// many directories were visited. Entries of a big-endian file come with tag, type, count and value in this machine's
// order.
int walk_tiff_directories(TiffFile& file, const std::function<bool(const TiffEntries&)>& visitor);

// Bytes of one value of a TIFF 6.0 field type; 0 = unknown type.
uint32_t tiff_type_size(uint16_t type);

}  // namespace softboard
