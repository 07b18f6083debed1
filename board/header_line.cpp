#include "header_line.h"

#include <cstdio>

#include "header_font.h"
#include "page.h"

namespace softboard {

constexpr uint32_t GLYPH_BYTES = 2;  // a glyph's 8 pixels are drawn two wide each
constexpr uint32_t MARGIN_BYTES = 4;

static uint32_t rows_per_font_row(uint32_t dpi_down) {
    return dpi_down >= DPI_SUPERFINE ? 4 : dpi_down >= DPI_FINE ? 2 : 1;
}

uint32_t header_rows(uint32_t dpi_down) {
    return HEADER_ROWS_STANDARD * rows_per_font_row(dpi_down);
}

struct HeaderField {
    char letter;
    WORD SYSTEMTIME::*member;
};

constexpr HeaderField HEADER_FIELDS[] = {
    {'m', &SYSTEMTIME::wMonth}, {'d', &SYSTEMTIME::wDay},    {'y', &SYSTEMTIME::wYear},
    {'H', &SYSTEMTIME::wHour},  {'M', &SYSTEMTIME::wMinute}, {'S', &SYSTEMTIME::wSecond},
};

static std::string expand_field(char letter, const SYSTEMTIME& time, uint32_t page) {
    if (letter == '%') return "%";
    if (letter == 'P') return std::to_string(page);
    for (const HeaderField& field : HEADER_FIELDS) {
        if (field.letter != letter) continue;
        char digits[8];
        snprintf(digits, sizeof digits, "%02u", time.*field.member % 100u);
        return digits;
    }
    return {'%', letter};
}

std::string expand_header(const std::string& text, const SYSTEMTIME& time, uint32_t page) {
    std::string expanded;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 1 < text.size()) {
            expanded += expand_field(text[++i], time, page);
        } else {
            expanded += text[i];
        }
    }
    return expanded;
}

static uint16_t widened(uint8_t pixels) {
    uint16_t wide = 0;
    for (int bit = 0; bit < 8; ++bit) {
        if ((pixels >> bit & 1) != 0) wide = static_cast<uint16_t>(wide | 3u << (2 * bit));
    }
    return wide;
}

std::vector<uint8_t> header_row(const std::string& text, uint32_t row, uint32_t dpi_down, uint32_t width) {
    std::vector<uint8_t> pixels((width + 7) / 8);
    const uint32_t font_row = row / rows_per_font_row(dpi_down);
    if (font_row == 0 || font_row > GLYPH_ROWS) return pixels;  // white above and below
    size_t at = MARGIN_BYTES;
    for (const char c : text) {
        if (at + GLYPH_BYTES > width / 8) break;
        const char glyph = c >= FIRST_GLYPH && c <= LAST_GLYPH ? c : '?';
        const uint16_t wide = widened(HEADER_FONT[glyph - FIRST_GLYPH].rows[font_row - 1]);
        pixels[at++] = static_cast<uint8_t>(wide >> 8);
        pixels[at++] = static_cast<uint8_t>(wide);
    }
    return pixels;
}

}  // namespace softboard
