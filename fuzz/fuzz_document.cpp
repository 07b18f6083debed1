#include <iterator>

#include "document.h"
#include "failure.h"
#include "fuzz.h"
#include "page.h"
#include "page_reader.h"
#include "tiff_library.h"

namespace fuzz {

using softboard::Document;

// What the fax engine is given: as many pages as were counted, each of a width of fax, every row to be had.
static void check_document(const Document& document) {
    const softboard::TiffHandle tiff = softboard::open_with_tiff_library(document.file.path(), "r");
    must(tiff != nullptr, "a document that was accepted can be opened");
    uint32_t pages = 0;
    do {
        uint32_t width = 0;
        uint32_t rows = 0;
        TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &rows);
        must(width == 1728 || width == 2048 || width == 2432, "a page has a width of fax");
        must(rows != 0, "a page has rows");
        std::vector<uint8_t> row(width / 8);
        for (uint32_t y = 0; y < rows; ++y) {
            must(TIFFReadScanline(tiff.get(), row.data(), y, 0) == 1, "every row of a document can be read");
        }
        ++pages;
    } while (TIFFReadDirectory(tiff.get()) == 1);
    must(pages == document.pages, "a document has the pages that were counted");
}

static void send(const std::string& path, Input& input) {
    constexpr const char* HEADERS[] = {"", "Fax %P", "%m/%d/%y %H:%M:%S %%%", "\x01\x7F\xFF %z"};
    const char* const header = HEADERS[input.choose(std::size(HEADERS))];
    try {
        check_document(softboard::prepare_document(path, input.choose(4), header));
    } catch (const softboard::Failure& failure) {
        must(failure.result.status == KX_STATUS_ERROR, "a document that is refused is an error");
        must(failure.result.line_status == APIERR_FILEFORMAT || failure.result.line_status == APIERR_FILEIO,
             "it is refused for what it is");
    }
}

static void read_back(const std::string& path, Input& input) {
    softboard::ReceivedPage page;
    if (!softboard::read_received_page(path, static_cast<int>(input.choose(3)), page)) return;
    must(!page.image.empty(), "a page that was read has an image");
}

void document(const uint8_t* data, size_t size) {
    softboard::quieten_tiff_library();
    Input input(data, size);
    const softboard::TempFile file = file_of(input);
    send(file.path(), input);
    read_back(file.path(), input);
}

}  // namespace fuzz
