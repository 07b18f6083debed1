// Fax pages that tests send, and their files, made and read with libtiff.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

struct Page {
    uint32_t width = 1728;
    float dpi_down = 196;
    std::vector<std::vector<uint8_t>> rows;  // bit 7 the leftmost pixel, black = 1
};

// A page that looks like text: lines of words, the same for the same seed.
Page text_page(uint32_t seed, uint32_t rows = 1100, uint32_t width = 1728, float dpi_down = 196);
// A page of grey by dithering, which compresses badly.
Page halftone_page(uint32_t rows = 1100);

struct FileForm {
    uint16_t compression = COMPRESSION_CCITTFAX4;
    uint16_t fill_order = FILLORDER_MSB2LSB;
    uint16_t photometric = PHOTOMETRIC_MINISWHITE;
    const char* mode = "w";
    uint16_t unit = RESUNIT_INCH;
    double dpi_across = 204;
};
void write_file(const std::string& path, const std::vector<Page>& pages, const FileForm& form = {});

// Empty when the file is no TIFF.
std::vector<Page> read_file(const std::string& path);

// The rows from first_row on are the same pixels.
bool same_image(const Page& a, const Page& b, size_t first_row = 0);
