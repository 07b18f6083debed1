// libtiff as the board uses it: handles that close themselves, and its complaints kept for error texts instead of
// written to a console that a service does not have.
#pragma once

#include <tiffio.h>

#include <memory>
#include <string>

namespace softboard {

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffHandle = std::unique_ptr<TIFF, CloseTiff>;

// From now on libtiff, which spandsp uses too, writes nothing to the console.
void quieten_tiff_library();

// Null when the file cannot be opened.
TiffHandle open_with_tiff_library(const std::string& path, const char* mode);

// What libtiff complained about last on this thread, since it was told to forget. Who asks, says so first: the clock's
// threads, which do not ask, are spared memory of their own for it.
void forget_tiff_library_complaint();
std::string tiff_library_complaint();

}  // namespace softboard
