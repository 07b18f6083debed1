// Reading, checking and comparing fax TIFF files, by libtiff.
#include "fax_file.h"

#include <windows.h>

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <memory>

#include "owned.h"
#include "text.h"

namespace {

constexpr uint32_t FAX_WIDTHS[] = {1728, 2048, 2432};  // A4, B4 and A3 at 204 pixels per inch
constexpr uint32_t MOST_ROWS = 65535;
constexpr uint32_t MOST_PAGES = 9999;
constexpr size_t STAMP_DIGITS = 10;

// Rows that the board's header line takes at the top of a page, by resolution. It replaces the page's own rows.
struct HeaderRows {
    uint32_t dpi_from;  // of this many lines per inch and more
    uint32_t rows;
};
constexpr HeaderRows HEADER_ROWS[] = {{300, 64}, {150, 32}, {0, 16}};

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using OwnedTiff = std::unique_ptr<TIFF, TiffCloser>;

// libtiff tells its complaints through a handler of the process; files are read on one thread at a time.
std::string gComplaint;

void keep_complaint(const char*, const char* pattern, va_list arguments) {
    char text[512];
    vsnprintf(text, sizeof(text), pattern, arguments);
    if (gComplaint.empty()) gComplaint = text;
}

OwnedTiff open_tiff(const std::string& path) {
    TIFFSetErrorHandler(keep_complaint);
    TIFFSetWarningHandler(nullptr);
    gComplaint.clear();
    return OwnedTiff(TIFFOpenW(wide(path).c_str(), "rm"));
}

Failure no_fax(const std::string& path, const std::string& why) {
    return {EXIT_FILE, "APIERR_FILEFORMAT", path + ": " + why,
            "use a black-and-white fax TIFF of 1728, 2048 or 2432 pixels a row"};
}

template <typename Value>
Value field(TIFF* tiff, uint32_t tag, Value otherwise) {
    Value value = otherwise;
    TIFFGetFieldDefaulted(tiff, tag, &value);
    return value;
}

uint32_t dpi_of(TIFF* tiff) {
    float dpi = 0;
    if (!TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &dpi) || dpi <= 0) return 0;
    const bool centimetres = field<uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) == RESUNIT_CENTIMETER;
    return static_cast<uint32_t>(centimetres ? dpi * 2.54f : dpi);
}

// What keeps the current directory from being a fax page, or an empty text.
std::string page_fault(TIFF* tiff) {
    if (field<uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1) != 1 ||
        field<uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1) != 1 || TIFFIsTiled(tiff)) {
        return "is not black and white";
    }
    const auto width = field<uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0);
    if (std::find(std::begin(FAX_WIDTHS), std::end(FAX_WIDTHS), width) == std::end(FAX_WIDTHS)) {
        return format("is %u pixels wide", width);
    }
    const auto rows = field<uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0);
    if (rows == 0 || rows > MOST_ROWS) return format("has %u rows", rows);
    if (TIFFScanlineSize(tiff) != static_cast<tmsize_t>(width / 8)) return "has rows of another length than its width";
    return "";
}

std::string read_page(TIFF* tiff, FaxPage& page) {
    const std::string fault = page_fault(tiff);
    if (!fault.empty()) return fault;
    page.width = field<uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0);
    page.rows = field<uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0);
    page.dpi_down = dpi_of(tiff);
    const size_t row_size = page.width / 8;
    page.pixels.resize(row_size * page.rows);
    for (uint32_t row = 0; row < page.rows; ++row) {
        if (TIFFReadScanline(tiff, page.pixels.data() + row * row_size, row, 0) != 1) {
            return format("is damaged from row %u on (%s)", row + 1, gComplaint.c_str());
        }
    }
    if (field<uint16_t>(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE) == PHOTOMETRIC_MINISBLACK) {
        for (uint8_t& byte : page.pixels) byte = static_cast<uint8_t>(~byte);
    }
    return "";
}

uint32_t header_rows(uint32_t dpi_down) {
    for (const HeaderRows& row : HEADER_ROWS) {
        if (dpi_down >= row.dpi_from) return row.rows;
    }
    return 0;
}

// Where two pages first differ from row `first` on, or an empty text.
std::string page_difference(const FaxPage& sent, const FaxPage& received, uint32_t first) {
    if (sent.width != received.width || sent.rows != received.rows) {
        return format("sent %u by %u pixels, received %u by %u", sent.width, sent.rows, received.width, received.rows);
    }
    const size_t row_size = sent.width / 8;
    for (size_t i = std::min(sent.pixels.size(), first * row_size); i < sent.pixels.size(); ++i) {
        const unsigned difference = sent.pixels[i] ^ received.pixels[i];
        if (difference == 0) continue;
        size_t pixel = (i % row_size) * 8;
        for (unsigned bit = 0x80; (difference & bit) == 0; bit >>= 1) ++pixel;
        return format("row %zu, pixel %zu", i / row_size + 1, pixel + 1);
    }
    return "";
}

}  // namespace

Failure fax_file_read(const std::string& path, std::vector<FaxPage>& pages) {
    pages.clear();
    const OwnedHandle file =
        owned_file(CreateFileW(wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return {EXIT_FILE, "APIERR_FILEIO", path + " cannot be read, " + windows_error(GetLastError()),
                "check the name and your rights"};
    }
    LARGE_INTEGER size = {};
    if (GetFileSizeEx(file.get(), &size) && size.QuadPart == 0) return no_fax(path, "is empty");
    const OwnedTiff tiff = open_tiff(path);
    if (!tiff) return no_fax(path, "is no TIFF file, or a damaged one (" + gComplaint + ")");
    do {
        if (pages.size() == MOST_PAGES) return no_fax(path, format("has more than %u pages", MOST_PAGES));
        pages.emplace_back();
        const std::string fault = read_page(tiff.get(), pages.back());
        if (!fault.empty()) return no_fax(path, format("page %zu ", pages.size()) + fault);
    } while (TIFFReadDirectory(tiff.get()) == 1);
    // The end of the file's list of pages is no complaint; a list that leads nowhere is one.
    if (!gComplaint.empty())
        return no_fax(path, "is damaged behind page " + format("%zu (", pages.size()) + gComplaint + ")");
    return {};
}

std::vector<PageComparison> fax_pages_compare(const std::vector<FaxPage>& sent, const std::vector<FaxPage>& received,
                                              bool header_line) {
    std::vector<PageComparison> comparisons;
    for (size_t i = 0; i < std::max(sent.size(), received.size()); ++i) {
        PageComparison comparison;
        comparison.page = static_cast<uint32_t>(i + 1);
        if (i >= received.size()) {
            comparison.difference = "not received";
        } else if (i >= sent.size()) {
            comparison.difference = "never sent";
        } else {
            comparison.difference =
                page_difference(sent[i], received[i], header_line ? header_rows(sent[i].dpi_down) : 0);
        }
        comparison.identical = comparison.difference.empty();
        comparisons.push_back(comparison);
    }
    return comparisons;
}

std::optional<std::string> fax_file_stamp(const std::string& path) {
    const OwnedTiff tiff = open_tiff(path);
    const char* text = nullptr;
    if (!tiff || !TIFFGetField(tiff.get(), TIFFTAG_SOFTWARE, &text) || !text) return std::nullopt;
    const std::string digits = text;
    const bool is_stamp = digits.size() == STAMP_DIGITS && digits.find_first_not_of("0123456789") == std::string::npos;
    return is_stamp ? std::optional(digits) : std::nullopt;
}

uint32_t stamp_code(const std::string& digits) {
    return static_cast<uint32_t>(std::stoull(digits));
}

Failure check_writable(const std::string& path) {
    const std::wstring name = wide(path);
    const bool was_there = GetFileAttributesW(name.c_str()) != INVALID_FILE_ATTRIBUTES;
    const OwnedHandle file =
        owned_file(CreateFileW(name.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                               was_there ? FILE_ATTRIBUTE_NORMAL : FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (file) return {};
    return {EXIT_FILE, "APIERR_FILEIO", path + " cannot be written, " + windows_error(GetLastError()),
            "check that its folder exists and that you may write there"};
}

Failure check_writable_folder(const std::string& folder) {
    return check_writable(folder + format("\\fax-%lu.tmp", GetCurrentProcessId()));
}

std::string full_path(const std::string& path) {
    const std::wstring name = wide(path);
    std::wstring result(GetFullPathNameW(name.c_str(), 0, nullptr, nullptr), L'\0');
    result.resize(GetFullPathNameW(name.c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr));
    return result.empty() ? path : utf8(result);
}
