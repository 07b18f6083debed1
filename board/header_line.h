// The header line that is drawn at the top of every page sent.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace softboard {

// Rows that the header line takes at 98 lines per inch; at 196 and 391 it takes two and four times as many. The line
// replaces the page's first rows: a page with a header is as long as without.
constexpr uint32_t HEADER_ROWS_STANDARD = 16;

uint32_t header_rows(uint32_t dpi_down);

// Replaces %m %d %y %H %M %S by month, day, year (two digits), hour, minute and second, %P by the page number and %% by
// "%". Anything else stays as it is.
std::string expand_header(const std::string& text, const SYSTEMTIME& time, uint32_t page);

// Row number `row` of the header line, counted from 0, as `width` pixels, the first in bit 7, black = 1. Text that does
// not fit is cut off.
std::vector<uint8_t> header_row(const std::string& text, uint32_t row, uint32_t dpi_down, uint32_t width);

}  // namespace softboard
