// The TIFF handles that DornTiffOpen has given out and DornTiffClose has not taken back.
#pragma once

#include <calddlld.h>

#include <memory>

#include "tiff_file.h"

namespace softboard {

// Null when the handle is not open. The file stays open while the result is held.
std::shared_ptr<TiffFile> find_tiff(const DornTiff* handle);

}  // namespace softboard
