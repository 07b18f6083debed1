// Fax pages and TIFF files made to order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fax_file.h"

// A page of stripes and dots that differ with `seed`, so that no two pages are alike.
FaxPage drawn_page(unsigned seed, uint32_t rows = 200, uint32_t width = 1728, uint32_t dpi_down = 196);

std::vector<FaxPage> drawn_pages(size_t count);

// How the file is to be written; by default as a fax service would.
struct TiffForm {
    uint16_t compression = 4;  // CCITT T.6
    bool black_is_zero = false;
    uint16_t bits = 1;
    std::string software;  // empty = no tag
};

// Writes the pages by libtiff; a failure ends the test.
void write_fax(const std::string& path, const std::vector<FaxPage>& pages, const TiffForm& form = {});

// Cuts the file to this many bytes.
void truncate_file(const std::string& path, uint64_t size);
uint64_t file_size(const std::string& path);
