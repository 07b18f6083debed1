#include "tiff_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

namespace softboard {

constexpr uint32_t HEADER_BYTES = 8;
constexpr uint64_t MOST_BYTES = UINT32_MAX;  // of a file: offsets have 32 bits
constexpr uint32_t FIRST_LINK = 4;           // where the header keeps the first directory's offset
constexpr uint8_t LITTLE_ENDIAN_HEADER[HEADER_BYTES] = {'I', 'I', 42, 0, 0, 0, 0, 0};

constexpr uint8_t TYPE_SIZES[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};

uint32_t tiff_type_size(uint16_t type) {
    return type < sizeof TYPE_SIZES ? TYPE_SIZES[type] : 0;
}

// ---- bytes --------------------------------------------------------------------------------------------------------

// All of these are called with the file's lock held, and seek before they touch the stream: its position belongs to
// whoever used the handle last.

static uint64_t file_size(TiffFile& file) {
    const int64_t size = file.stream->seek(0, SEEK_END) ? file.stream->tell() : 0;
    return static_cast<uint64_t>(std::max<int64_t>(size, 0));
}

static bool read_at(TiffFile& file, uint32_t offset, void* data, size_t bytes) {
    return file.stream->seek(offset, SEEK_SET) && file.stream->read(data, bytes) == bytes;
}

static bool write_at(TiffFile& file, uint64_t offset, const void* data, size_t bytes) {
    return offset + bytes <= MOST_BYTES && file.stream->seek(static_cast<int64_t>(offset), SEEK_SET) &&
           file.stream->write(data, bytes) == bytes;
}

static bool append(TiffFile& file, const void* data, size_t bytes, uint32_t& offset) {
    uint64_t end = file_size(file);
    if (end == 0) {
        if (!write_at(file, 0, LITTLE_ENDIAN_HEADER, HEADER_BYTES)) return false;
        end = HEADER_BYTES;
    }
    if (end % 2 != 0) {
        if (!write_at(file, end, "", 1)) return false;
        ++end;
    }
    offset = static_cast<uint32_t>(end);
    return write_at(file, end, data, bytes);
}

// ---- directories as they lie in the file --------------------------------------------------------------------------

struct ByteOrder {
    bool swapped = false;
    uint16_t u16(uint16_t value) const { return swapped ? __builtin_bswap16(value) : value; }
    uint32_t u32(uint32_t value) const { return swapped ? __builtin_bswap32(value) : value; }
};

static bool read_header(TiffFile& file, ByteOrder& order, uint32_t& first) {
    uint8_t header[HEADER_BYTES];
    if (!read_at(file, 0, header, sizeof header)) return false;
    order.swapped = header[0] == 'M';
    if ((header[0] != 'I' && header[0] != 'M') || header[1] != header[0]) return false;
    uint16_t version;
    memcpy(&version, header + 2, sizeof version);
    memcpy(&first, header + FIRST_LINK, sizeof first);
    first = order.u32(first);
    return order.u16(version) == 42;
}

static void to_machine_order(const ByteOrder& order, DornTiffEntry& entry) {
    entry.tag = order.u16(entry.tag);
    entry.type = order.u16(entry.type);
    entry.count = order.u32(entry.count);
    const uint32_t size = tiff_type_size(entry.type);
    if (size == 1 && entry.count <= 4) return;
    if (size == 2 && entry.count <= 2) {
        const uint16_t first = order.u16(static_cast<uint16_t>(entry.value));
        const uint16_t second = order.u16(static_cast<uint16_t>(entry.value >> 16));
        entry.value = first | static_cast<uint32_t>(second) << 16;
        return;
    }
    entry.value = order.u32(entry.value);
}

struct Directory {
    TiffEntries entries;
    uint32_t link = 0;  // where it keeps the next one's offset
    uint32_t next = 0;
};

static bool read_directory(TiffFile& file, const ByteOrder& order, uint32_t offset, Directory& directory) {
    uint16_t count = 0;
    if (offset < HEADER_BYTES || !read_at(file, offset, &count, sizeof count)) return false;
    count = order.u16(count);
    directory.link = offset + sizeof count + count * sizeof(DornTiffEntry);
    // The end first: a count that the file has no entries for is not worth the memory.
    if (count == 0 || !read_at(file, directory.link, &directory.next, sizeof directory.next)) return false;
    directory.entries.resize(count);
    if (!read_at(file, offset + sizeof count, directory.entries.data(), count * sizeof(DornTiffEntry))) return false;
    directory.next = order.u32(directory.next);
    for (DornTiffEntry& entry : directory.entries) to_machine_order(order, entry);
    return true;
}

// The way from directory to directory.
struct Walk {
    ByteOrder order;
    uint32_t next = 0;       // where the next directory is; 0 = there is none
    std::set<uint32_t> met;  // where directories have been
    uint64_t taken = 0;      // bytes of these
};

static bool begin_walk(TiffFile& file, Walk& walk) {
    return read_header(file, walk.order, walk.next);
}

// False when there is no further directory, or none that can be read.
static bool read_next(TiffFile& file, Walk& walk, Directory& directory) {
    if (walk.next == 0 || !walk.met.insert(walk.next).second) return false;
    if (!read_directory(file, walk.order, walk.next, directory)) return false;
    // Directories that overlap can be as many as the file has bytes, and all of them long.
    walk.taken += directory.link + sizeof directory.next - walk.next;
    if (walk.taken > file_size(file)) return false;
    walk.next = directory.next;
    return true;
}

// Where the offset of a further directory belongs. 0 = the file is no TIFF of ours.
static uint32_t find_last_link(TiffFile& file) {
    Walk walk;
    if (!begin_walk(file, walk) || walk.order.swapped) return 0;
    uint32_t link = FIRST_LINK;
    for (Directory directory; read_next(file, walk, directory);) link = directory.link;
    return link;
}

int walk_tiff_directories(TiffFile& file, const std::function<bool(const TiffEntries&)>& visitor) {
    int visited = 0;
    Walk walk;
    {
        const Guard guard(file.lock);
        if (!begin_walk(file, walk)) return 0;
    }
    while (true) {
        Directory directory;
        {
            const Guard guard(file.lock);
            if (!read_next(file, walk, directory)) break;
        }
        ++visited;
        if (!visitor(directory.entries)) break;
    }
    return visited;
}

// ---- opening and writing ------------------------------------------------------------------------------------------

std::shared_ptr<TiffFile> open_tiff(const std::string& path, const std::string& mode) {
    std::unique_ptr<FileStream> stream = FileStream::open(path, mode);
    if (stream == nullptr) return nullptr;
    const auto file = std::make_shared<TiffFile>(path, std::move(stream));
    file->head.dwPageCounter =
        static_cast<uint32_t>(walk_tiff_directories(*file, [](const TiffEntries&) { return true; }));
    return file;
}

bool write_tiff_image(TiffFile& file, const void* data, uint32_t bytes) {
    const Guard guard(file.lock);
    if (file.image_open) {
        if (!write_at(file, uint64_t{file.image_offset} + file.image_bytes, data, bytes)) return false;
        file.image_bytes += bytes;
        return true;
    }
    if (!append(file, data, bytes, file.image_offset)) return false;
    file.image_bytes = bytes;
    file.image_open = true;
    return true;
}

void end_tiff_image(TiffFile& file) {
    const Guard guard(file.lock);
    file.image_open = false;
}

bool write_tiff_value(TiffFile& file, const void* data, uint32_t bytes, uint32_t& offset) {
    const Guard guard(file.lock);
    file.image_open = false;
    return append(file, data, bytes, offset);
}

void add_tiff_entry(TiffFile& file, const DornTiffEntry& entry) {
    const Guard guard(file.lock);
    file.entries.push_back(entry);
}

bool end_tiff_directory(TiffFile& file) {
    const Guard guard(file.lock);
    TiffEntries entries;
    entries.swap(file.entries);
    if (entries.empty() || entries.size() > UINT16_MAX) return false;
    for (DornTiffEntry& entry : entries) {
        if (entry.tag == TAG_STRIP_OFFSETS && entry.value == 0) entry.value = file.image_offset;
        if (entry.tag == TAG_STRIP_BYTE_COUNTS && entry.value == 0) entry.value = file.image_bytes;
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const DornTiffEntry& a, const DornTiffEntry& b) { return a.tag < b.tag; });

    const uint16_t count = static_cast<uint16_t>(entries.size());
    const uint32_t none = 0;
    std::vector<uint8_t> directory(sizeof count + count * sizeof(DornTiffEntry) + sizeof none);
    memcpy(directory.data(), &count, sizeof count);
    memcpy(directory.data() + sizeof count, entries.data(), count * sizeof(DornTiffEntry));

    // The directory is in the file before anything points to it.
    uint32_t offset = 0;
    file.image_open = false;
    if (!append(file, directory.data(), directory.size(), offset)) return false;
    if (file.last_link == 0) file.last_link = find_last_link(file);
    if (file.last_link == 0 || !write_at(file, file.last_link, &offset, sizeof offset)) return false;
    file.last_link = offset + static_cast<uint32_t>(directory.size() - sizeof none);
    return true;
}

}  // namespace softboard
