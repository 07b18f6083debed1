#include "tiff_library.h"

#include <cstdarg>
#include <cstdio>

namespace softboard {

static thread_local char complaint[200];

static void keep_complaint(const char*, const char* format, va_list arguments) {
    vsnprintf(complaint, sizeof complaint, format, arguments);
}

void quieten_tiff_library() {
    TIFFSetErrorHandler(keep_complaint);
    TIFFSetWarningHandler(nullptr);
}

TiffHandle open_with_tiff_library(const std::string& path, const char* mode) {
    // A file that is read once costs more to map than to read.
    return TiffHandle(TIFFOpen(path.c_str(), (std::string(mode) + "m").c_str()));
}

void forget_tiff_library_complaint() {
    complaint[0] = '\0';
}

std::string tiff_library_complaint() {
    return complaint;
}

}  // namespace softboard
