// A page as it goes over the line: its form, and for a received page its image.
#pragma once

#include <cstdint>
#include <vector>

namespace softboard {

// Vertical resolutions of T.4, lines per inch; across it is always 204.
constexpr uint32_t DPI_ACROSS = 204;
constexpr uint32_t DPI_STANDARD = 98;
constexpr uint32_t DPI_FINE = 196;
constexpr uint32_t DPI_SUPERFINE = 391;

struct ReceivedPage {
    uint32_t width = 0;
    uint32_t rows = 0;
    uint32_t dpi_down = 0;       // one of the above
    uint32_t bad_rows = 0;       // repeated from the row above
    std::vector<uint8_t> image;  // T.6, least significant bit first
};

}  // namespace softboard
