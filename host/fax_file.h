// Fax TIFF files as the host sees them: is it one, what is on its pages, what result is stamped into it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "failure.h"

struct FaxPage {
    uint32_t width = 0;  // pixels
    uint32_t rows = 0;
    uint32_t dpi_down = 0;        // as the file states it, lines per inch; 0 = not stated
    std::vector<uint8_t> pixels;  // rows of (width + 7) / 8 bytes, first pixel in bit 7, black = 1
};

// Reads every page. A failure says what is wrong with which page: APIERR_FILEIO for a file that cannot be read,
// APIERR_FILEFORMAT for one that is no fax (1 bit per pixel, 1728, 2048 or 2432 pixels wide) or damaged.
Failure fax_file_read(const std::string& path, std::vector<FaxPage>& pages);

struct PageComparison {
    uint32_t page = 0;  // 1 the first
    bool identical = false;
    std::string difference;  // where it first differs
};

// Compares page by page and pixel by pixel, as many pages as the longer document has. With `header_line` the rows that
// the board's header line replaces are left aside.
std::vector<PageComparison> fax_pages_compare(const std::vector<FaxPage>& sent, const std::vector<FaxPage>& received,
                                              bool header_line);

// The ten digits that the provider stamps into the first page's Software tag, if there are any.
std::optional<std::string> fax_file_stamp(const std::string& path);

// The FS_* code that the digits stand for.
uint32_t stamp_code(const std::string& digits);

// Fails unless a file of this name can be written; leaves an existing file as it is.
Failure check_writable(const std::string& path);

// Fails unless files can be created in the folder.
Failure check_writable_folder(const std::string& folder);

// The full path of a file name given by the user.
std::string full_path(const std::string& path);
