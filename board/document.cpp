#include "document.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <vector>

#include "failure.h"
#include "header_line.h"
#include "page.h"
#include "sync.h"
#include "tiff_library.h"

namespace softboard {

constexpr uint32_t WIDTHS[] = {1728, 2048, 2432};  // A4, B4, A3
constexpr uint32_t MOST_ROWS = 65535;
constexpr uint32_t MOST_PAGES = 9999;

struct PageForm {
    uint32_t width = 0;
    uint32_t rows = 0;
    uint32_t dpi_down = 0;
    bool black_is_zero = false;
};

[[noreturn]] static void refuse(uint32_t page, const std::string& why) {
    fail(APIERR_FILEFORMAT, "page " + std::to_string(page + 1) + " is not a fax page: " + why);
}

static uint16_t short_field(TIFF* tiff, uint32_t tag, uint16_t otherwise) {
    uint16_t value = otherwise;
    TIFFGetField(tiff, tag, &value);
    return value;
}

static uint32_t long_field(TIFF* tiff, uint32_t tag) {
    uint32_t value = 0;
    TIFFGetField(tiff, tag, &value);
    return value;
}

// Files state a page's resolution with some latitude (100 or 204 by 200 lines, centimetres); a page that states none is
// taken for standard resolution.
static uint32_t resolution_of(TIFF* tiff, uint32_t page) {
    float dpi = 0;
    if (TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &dpi) == 0 || dpi <= 0) return DPI_STANDARD;
    if (short_field(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) == RESUNIT_CENTIMETER) dpi *= 2.54f;
    for (const uint32_t known : {DPI_STANDARD, DPI_FINE, DPI_SUPERFINE}) {
        if (dpi > static_cast<float>(known) * 0.9f && dpi < static_cast<float>(known) * 1.1f) return known;
    }
    // As text it may be any number, or none; as an integer it may not.
    char lines[64];
    snprintf(lines, sizeof lines, "%.0f", std::trunc(dpi));
    refuse(page, std::string(lines) + " lines per inch are no resolution of fax");
}

static PageForm form_of(TIFF* tiff, uint32_t page) {
    PageForm form;
    if (short_field(tiff, TIFFTAG_BITSPERSAMPLE, 1) != 1 || short_field(tiff, TIFFTAG_SAMPLESPERPIXEL, 1) != 1) {
        refuse(page, "it is not black and white");
    }
    const uint16_t photometric = short_field(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    if (photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK) {
        refuse(page, "it is not black and white");
    }
    if (TIFFIsTiled(tiff) != 0) refuse(page, "it is made of tiles");
    form.width = long_field(tiff, TIFFTAG_IMAGEWIDTH);
    if (std::find(std::begin(WIDTHS), std::end(WIDTHS), form.width) == std::end(WIDTHS)) {
        refuse(page, "it is " + std::to_string(form.width) + " pixels wide, not 1728, 2048 or 2432");
    }
    form.rows = long_field(tiff, TIFFTAG_IMAGELENGTH);
    if (form.rows == 0 || form.rows > MOST_ROWS) refuse(page, "it has " + std::to_string(form.rows) + " rows");
    form.dpi_down = resolution_of(tiff, page);
    form.black_is_zero = photometric == PHOTOMETRIC_MINISBLACK;
    if (TIFFScanlineSize(tiff) != static_cast<tmsize_t>(form.width / 8)) {
        refuse(page, "its rows are not as they should be");
    }
    return form;
}

static void read_row(TIFF* tiff, uint32_t page, uint32_t y, std::vector<uint8_t>& row) {
    if (TIFFReadScanline(tiff, row.data(), y, 0) != 1) refuse(page, tiff_library_complaint());
}

// However many documents are begun with at once, they leave the clock of the calls its share of the processors. A place
// is held for a page at a time, so that a short document does not wait for a long one.
static Places& places_to_read() {
    static Places places(std::max(1U, processor_count() / 2));
    return places;
}

// ---- the file as it is --------------------------------------------------------------------------------------------

static bool is_stated(TIFF* tiff, uint32_t tag, uint32_t dpi) {
    const uint16_t unit = short_field(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (unit != RESUNIT_INCH && unit != RESUNIT_CENTIMETER) return false;
    float stated = 0;
    TIFFGetField(tiff, tag, &stated);
    if (unit == RESUNIT_CENTIMETER) stated *= 2.54f;
    return stated > static_cast<float>(dpi) * 0.96f && stated < static_cast<float>(dpi) * 1.04f;
}

// The fax engine is strict about resolutions where we are not.
static bool suits_engine(TIFF* tiff, const PageForm& form) {
    return is_stated(tiff, TIFFTAG_XRESOLUTION, DPI_ACROSS) && is_stated(tiff, TIFFTAG_YRESOLUTION, form.dpi_down);
}

static void check_page(TIFF* tiff, uint32_t page, const PageForm& form) {
    const std::lock_guard<Places> place(places_to_read());
    std::vector<uint8_t> row(form.width / 8);
    for (uint32_t y = 0; y < form.rows; ++y) read_row(tiff, page, y, row);
}

// A copy is all it takes when every page suits the engine. It is the copy that is sent, whatever the file's owner does
// with the file meanwhile.
static bool copy_file(const std::string& path, Document& document) {
    const std::string& copy = document.file.path();
    if (CopyFileA(path.c_str(), copy.c_str(), TRUE) == 0) return false;
    SetFileAttributesA(copy.c_str(), FILE_ATTRIBUTE_NORMAL);  // a read-only one could not be deleted
    const TiffHandle tiff = open_with_tiff_library(copy, "r");
    if (tiff == nullptr) return false;
    uint32_t pages = 0;
    do {
        const PageForm form = form_of(tiff.get(), pages);
        if (pages == MOST_PAGES || !suits_engine(tiff.get(), form)) return false;
        check_page(tiff.get(), pages, form);
        ++pages;
    } while (TIFFReadDirectory(tiff.get()) == 1);
    document.pages = pages;
    return true;
}

// ---- the file made anew -------------------------------------------------------------------------------------------

static void set_form(TIFF* tiff, const PageForm& form) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, form.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, form.rows);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, form.rows);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<double>(DPI_ACROSS));
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(form.dpi_down));
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
}

static void copy_page(TIFF* from, TIFF* to, uint32_t page, const std::string& header) {
    const std::lock_guard<Places> place(places_to_read());
    const PageForm form = form_of(from, page);
    set_form(to, form);
    const uint32_t header_end = header.empty() ? 0 : header_rows(form.dpi_down);
    std::vector<uint8_t> row(form.width / 8);
    for (uint32_t y = 0; y < form.rows; ++y) {
        read_row(from, page, y, row);
        if (form.black_is_zero) std::transform(row.begin(), row.end(), row.begin(), [](uint8_t b) { return ~b; });
        if (y < header_end) row = header_row(header, y, form.dpi_down, form.width);
        if (TIFFWriteScanline(to, row.data(), y, 0) != 1) fail(APIERR_FILEIO, tiff_library_complaint());
    }
    if (TIFFWriteDirectory(to) != 1) fail(APIERR_FILEIO, tiff_library_complaint());
}

static void copy_pages(TIFF* from, uint32_t first_page, const std::string& header, Document& document) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    const TiffHandle to = open_with_tiff_library(document.file.path(), "w");
    if (to == nullptr) fail(APIERR_FILEIO, tiff_library_complaint());
    do {
        if (document.pages == MOST_PAGES) refuse(first_page + document.pages, "the document is too long");
        copy_page(from, to.get(), first_page + document.pages, expand_header(header, now, document.pages + 1));
        ++document.pages;
    } while (TIFFReadDirectory(from) == 1);
}

Document prepare_document(const std::string& path, uint32_t first_page, const std::string& header) {
    forget_tiff_library_complaint();
    const TiffHandle from = open_with_tiff_library(path, "r");
    if (from == nullptr) fail(APIERR_FILEFORMAT, path + " is no TIFF file: " + tiff_library_complaint());
    if (first_page != 0 && TIFFSetDirectory(from.get(), static_cast<tdir_t>(first_page)) != 1) {
        fail(APIERR_FILEFORMAT, path + " has no page " + std::to_string(first_page + 1));
    }
    Document document;
    if (header.empty() && first_page == 0 && copy_file(path, document)) return document;
    copy_pages(from.get(), first_page, header, document);
    return document;
}

}  // namespace softboard
