#include "pages.h"

#include <algorithm>

static void set_black(std::vector<uint8_t>& row, uint32_t x) {
    row[x / 8] |= static_cast<uint8_t>(0x80 >> x % 8);
}

static uint32_t next(uint32_t& seed) {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 16;
}

Page text_page(uint32_t seed, uint32_t rows, uint32_t width, float dpi_down) {
    constexpr uint32_t LINE = 40;
    constexpr uint32_t INK = 24;
    constexpr uint32_t MARGIN = 150;
    Page page{width, dpi_down, {}};
    for (uint32_t y = 0; y < rows; ++y) {
        std::vector<uint8_t> row(width / 8);
        uint32_t strokes = seed + y / LINE * 977 + y % LINE / 3;
        const bool inked = y > MARGIN && y + MARGIN < rows && y % LINE < INK;
        for (uint32_t x = MARGIN; inked && x + MARGIN < width; x += 9 + next(strokes) % 14) {
            for (uint32_t i = 0; i < 4; ++i) set_black(row, x + i);
        }
        page.rows.push_back(row);
    }
    return page;
}

Page halftone_page(uint32_t rows) {
    constexpr uint8_t BAYER[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
    Page page;
    for (uint32_t y = 0; y < rows; ++y) {
        std::vector<uint8_t> row(page.width / 8);
        for (uint32_t x = 0; x < page.width; ++x) {
            if (BAYER[y % 4][x % 4] < x * 16 / page.width) set_black(row, x);
        }
        page.rows.push_back(row);
    }
    return page;
}

void write_file(const std::string& path, const std::vector<Page>& pages, const FileForm& form) {
    TIFF* const tiff = TIFFOpen(path.c_str(), form.mode);
    const double inches = form.unit == RESUNIT_CENTIMETER ? 1 / 2.54 : 1;
    for (const Page& page : pages) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(page.rows.size()));
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, form.compression);
        TIFFSetField(tiff, TIFFTAG_FILLORDER, form.fill_order);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, form.photometric);
        TIFFSetField(tiff, TIFFTAG_XRESOLUTION, form.dpi_across * inches);
        TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(page.dpi_down) * inches);
        TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, form.unit);
        for (uint32_t y = 0; y < page.rows.size(); ++y) {
            std::vector<uint8_t> row = page.rows[y];
            if (form.photometric == PHOTOMETRIC_MINISBLACK) {
                std::transform(row.begin(), row.end(), row.begin(), [](uint8_t b) { return ~b; });
            }
            TIFFWriteScanline(tiff, row.data(), y, 0);
        }
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
}

std::vector<Page> read_file(const std::string& path) {
    std::vector<Page> pages;
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    TIFF* const tiff = TIFFOpen(path.c_str(), "r");
    if (tiff == nullptr) return pages;
    do {
        Page page;
        uint32_t rows = 0;
        TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &page.width);
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &rows);
        TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &page.dpi_down);
        for (uint32_t y = 0; y < rows; ++y) {
            std::vector<uint8_t> row(static_cast<size_t>(TIFFScanlineSize(tiff)));
            TIFFReadScanline(tiff, row.data(), y, 0);
            page.rows.push_back(row);
        }
        pages.push_back(page);
    } while (TIFFReadDirectory(tiff) == 1);
    TIFFClose(tiff);
    return pages;
}

bool same_image(const Page& a, const Page& b, size_t first_row) {
    return a.width == b.width && a.dpi_down == b.dpi_down && a.rows.size() == b.rows.size() &&
           std::equal(a.rows.begin() + static_cast<long>(std::min(first_row, a.rows.size())), a.rows.end(),
                      b.rows.begin() + static_cast<long>(std::min(first_row, b.rows.size())));
}
