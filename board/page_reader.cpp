#include "page_reader.h"

#include <cmath>

#include "tiff_library.h"

namespace softboard {

bool read_received_page(const std::string& path, int number, ReceivedPage& page) {
    const TiffHandle tiff = open_with_tiff_library(path, "r");
    if (tiff == nullptr || !TIFFSetDirectory(tiff.get(), static_cast<tdir_t>(number))) return false;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &page.width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &page.rows);
    float dpi_down = 0;
    TIFFGetField(tiff.get(), TIFFTAG_YRESOLUTION, &dpi_down);
    page.dpi_down = static_cast<uint32_t>(std::lround(dpi_down));
    const tmsize_t size = TIFFRawStripSize(tiff.get(), 0);
    // What the file says is no measure for memory until it is known to have as much.
    if (size <= 0 || static_cast<toff_t>(size) > TIFFGetSizeProc(tiff.get())(TIFFClientdata(tiff.get()))) return false;
    page.image.resize(static_cast<size_t>(size));
    return TIFFReadRawStrip(tiff.get(), 0, page.image.data(), size) == size;
}

}  // namespace softboard
