// TIFF files of the tests: written to be stamped, and read back. Little-endian, values of more than four bytes outside
// the directory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct TiffField {
    uint16_t tag, type;
    uint32_t count;
    std::vector<uint8_t> bytes;  // the value
    uint32_t offset = 0;         // where it lies in the file, when read
};

using TiffDirectory = std::vector<TiffField>;

// An ASCII value with its NUL; more NULs may be in the text.
TiffField ascii_field(uint16_t tag, const std::string& text);
// A received page with this stamp in its Software tag.
TiffDirectory stamped_page(const std::string& stamp = "0536870920");

void write_tiff(const std::string& path, const std::vector<TiffDirectory>& directories);
// The directories in the file, whose links are followed to their end.
std::vector<TiffDirectory> read_tiff(const std::string& path);

// The text of a directory's field, "none" without it.
std::string text_of(const TiffDirectory& directory, uint16_t tag);
// The Software texts of all directories.
std::vector<std::string> stamps_of(const std::string& path);

std::vector<uint8_t> bytes_of_file(const std::string& path);
