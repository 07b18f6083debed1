#include "fax_pages.h"

#include <gtest/gtest.h>
#include <tiffio.h>
#include <windows.h>

#include <memory>

#include "owned.h"
#include "text.h"

FaxPage drawn_page(unsigned seed, uint32_t rows, uint32_t width, uint32_t dpi_down) {
    FaxPage page;
    page.width = width;
    page.rows = rows;
    page.dpi_down = dpi_down;
    page.pixels.resize(rows * (width / 8));
    uint32_t noise = seed * 2654435761u + 1;
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint32_t byte = 0; byte < width / 8; ++byte) {
            noise = noise * 1664525u + 1013904223u;
            const bool stripe = (row / 8 + byte / 16 + seed) % 5 == 0;
            page.pixels[row * (width / 8) + byte] = stripe ? 0xFF : (noise >> 28) == 0 ? 0x18 : 0;
        }
    }
    return page;
}

std::vector<FaxPage> drawn_pages(size_t count) {
    std::vector<FaxPage> pages;
    for (size_t i = 0; i < count; ++i) pages.push_back(drawn_page(static_cast<unsigned>(i + 1)));
    return pages;
}

static void write_page(TIFF* tiff, const FaxPage& page, const TiffForm& form) {
    TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.rows);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, form.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, form.compression);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, form.black_is_zero ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, page.rows);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 204.0);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(page.dpi_down));
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (!form.software.empty()) TIFFSetField(tiff, TIFFTAG_SOFTWARE, form.software.c_str());
    const auto row_size = static_cast<size_t>(TIFFScanlineSize(tiff));
    for (uint32_t row = 0; row < page.rows; ++row) {
        std::vector<uint8_t> pixels(row_size);
        for (size_t i = 0; i < std::min<size_t>(row_size, page.width / 8); ++i) {
            const uint8_t byte = page.pixels[row * (page.width / 8) + i];
            pixels[i] = form.black_is_zero ? static_cast<uint8_t>(~byte) : byte;
        }
        ASSERT_EQ(1, TIFFWriteScanline(tiff, pixels.data(), row, 0));
    }
    ASSERT_EQ(1, TIFFWriteDirectory(tiff));
}

void write_fax(const std::string& path, const std::vector<FaxPage>& pages, const TiffForm& form) {
    const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpenW(wide(path).c_str(), "w"), TIFFClose);
    ASSERT_TRUE(tiff) << path;
    for (const FaxPage& page : pages) write_page(tiff.get(), page, form);
}

void truncate_file(const std::string& path, uint64_t size) {
    const OwnedHandle file = owned_file(
        CreateFileW(wide(path).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file) << path;
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(size);
    ASSERT_TRUE(SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(file.get()));
}

uint64_t file_size(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!GetFileAttributesExW(wide(path).c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}
