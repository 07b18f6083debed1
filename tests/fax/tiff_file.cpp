#include "tiff_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "command_block.h"

namespace {

constexpr size_t kEntrySize = 12;

size_t size_of_type(uint16_t type) {
    const size_t sizes[] = {0, 1, 1, 2, 4, 8};
    return type < std::size(sizes) ? sizes[type] : 0;
}

template <class Value>
void append(std::vector<uint8_t>& bytes, const Value& value) {
    bytes.resize(bytes.size() + sizeof(value));
    put_value(bytes.data(), bytes.size() - sizeof(value), value);
}

uint32_t end_of(const std::vector<uint8_t>& bytes) {
    return static_cast<uint32_t>(bytes.size());
}

// Appends the values that do not fit into the directory, then the directory, and links it where it is asked for.
uint32_t append_directory(std::vector<uint8_t>& file, const TiffDirectory& fields, uint32_t link) {
    std::vector<uint32_t> values;
    for (const TiffField& field : fields) {
        uint32_t value = 0;
        std::memcpy(&value, field.bytes.data(), std::min<size_t>(field.bytes.size(), 4));
        if (field.bytes.size() > 4) value = end_of(file);
        values.push_back(value);
        if (field.bytes.size() > 4) file.insert(file.end(), field.bytes.begin(), field.bytes.end());
        if (file.size() % 2) file.push_back(0);
    }
    put_value(file.data(), link, end_of(file));
    append(file, static_cast<uint16_t>(fields.size()));
    for (size_t i = 0; i < fields.size(); ++i) {
        append(file, fields[i].tag);
        append(file, fields[i].type);
        append(file, fields[i].count);
        append(file, values[i]);
    }
    append(file, uint32_t{0});
    return end_of(file) - 4;
}

TiffField read_field(const std::vector<uint8_t>& file, size_t entry) {
    TiffField field = {
        value_at<uint16_t>(file, entry), value_at<uint16_t>(file, entry + 2), value_at<uint32_t>(file, entry + 4), {}};
    size_t size = field.count * size_of_type(field.type);
    field.offset = size > 4 ? value_at<uint32_t>(file, entry + 8) : static_cast<uint32_t>(entry + 8);
    if (field.offset + size <= file.size())
        field.bytes.assign(file.begin() + field.offset, file.begin() + static_cast<ptrdiff_t>(field.offset + size));
    return field;
}

}  // namespace

TiffField ascii_field(uint16_t tag, const std::string& text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    return {tag, 2, static_cast<uint32_t>(bytes.size()), bytes};
}

TiffDirectory stamped_page(const std::string& stamp) {
    return {{256, 4, 1, {0xC0, 0x06, 0, 0}}, ascii_field(270, "a description"), ascii_field(305, stamp)};
}

void write_tiff(const std::string& path, const std::vector<TiffDirectory>& directories) {
    std::vector<uint8_t> file = {'I', 'I', 42, 0, 0, 0, 0, 0};
    uint32_t link = 4;
    for (const TiffDirectory& directory : directories) link = append_directory(file, directory, link);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(file.data()), end_of(file));
}

std::vector<TiffDirectory> read_tiff(const std::string& path) {
    const std::vector<uint8_t> file = bytes_of_file(path);
    std::vector<TiffDirectory> directories;
    uint32_t place = file.size() < 8 ? 0 : value_at<uint32_t>(file, 4);
    while (place != 0) {
        EXPECT_LE(place + 2, file.size());
        size_t fields = value_at<uint16_t>(file, place), end = place + 2 + fields * kEntrySize;
        EXPECT_LE(end + 4, file.size());
        if (end + 4 > file.size()) break;
        directories.emplace_back();
        for (size_t entry = place + 2; entry < end; entry += kEntrySize)
            directories.back().push_back(read_field(file, entry));
        place = value_at<uint32_t>(file, end);
    }
    return directories;
}

std::string text_of(const TiffDirectory& directory, uint16_t tag) {
    for (const TiffField& field : directory)
        if (field.tag == tag) return std::string(field.bytes.begin(), field.bytes.end() - 1);
    return "none";
}

std::vector<std::string> stamps_of(const std::string& path) {
    std::vector<std::string> stamps;
    for (const TiffDirectory& directory : read_tiff(path)) stamps.push_back(text_of(directory, 305));
    return stamps;
}

std::vector<uint8_t> bytes_of_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
