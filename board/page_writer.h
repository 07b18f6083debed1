// Writes received pages the way the fax service reads them.
#pragma once

#include <calddlld.h>

#include "page.h"
#include "tiff_file.h"

namespace softboard {

// Appends the page with a directory of its own: T.6, the tags of a fax page, and the extra tags, whose ASCII values of
// up to four bytes lie in the entry itself. The number counts from 0. False when the file cannot be written; throws
// Failure when an extra tag is malformed.
bool write_page(TiffFile& file, const ReceivedPage& page, uint16_t number, const DornExtraTag* extra,
                uint32_t extra_count);

// The two resolutions of a page as RATIONAL values in the file.
bool write_resolution(TiffFile& file, uint32_t dpi_down, uint32_t& x_offset, uint32_t& y_offset);

}  // namespace softboard
