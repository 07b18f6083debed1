// A TIFF file made ready for the line: checked to be a fax, header line drawn, in a form that the fax engine takes.
#pragma once

#include <cstdint>
#include <string>

#include "temp_file.h"

namespace softboard {

struct Document {
    TempFile file;
    uint32_t pages = 0;
};

// The pages of the file from first_page (counted from 0) on; the header template may be empty. Reads every page, so a
// file that is damaged anywhere is refused before a call is spent on it. Throws Failure (APIERR_FILEIO,
// APIERR_FILEFORMAT).
Document prepare_document(const std::string& path, uint32_t first_page, const std::string& header);

}  // namespace softboard
