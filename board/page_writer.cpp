#include "page_writer.h"

#include <algorithm>
#include <cstring>

#include "failure.h"

namespace softboard {

constexpr uint32_t MOST_EXTRA_TAGS = 64;
constexpr uint32_t MOST_EXTRA_BYTES = 65536;
constexpr uint16_t CLEAN_FAX_DATA = 0;
constexpr uint16_t REGENERATED_FAX_DATA = 1;  // bad lines have been replaced by the line above

bool write_resolution(TiffFile& file, uint32_t dpi_down, uint32_t& x_offset, uint32_t& y_offset) {
    const uint32_t across[] = {DPI_ACROSS, 1};
    const uint32_t down[] = {dpi_down, 1};
    return write_tiff_value(file, across, sizeof across, x_offset) &&
           write_tiff_value(file, down, sizeof down, y_offset);
}

static void add_fax_entries(TiffFile& file, const ReceivedPage& page, uint16_t number, uint32_t x_offset,
                            uint32_t y_offset) {
    const uint16_t bad_rows = static_cast<uint16_t>(std::min<uint32_t>(page.bad_rows, UINT16_MAX));
    const DornTiffEntry entries[] = {
        {254, TIFF_LONG, 1, 2},                // NewSubfileType: one page of several
        {256, TIFF_LONG, 1, page.width},       // ImageWidth
        {257, TIFF_LONG, 1, page.rows},        // ImageLength
        {258, TIFF_SHORT, 1, 1},               // BitsPerSample
        {259, TIFF_SHORT, 1, 4},               // Compression: T.6
        {262, TIFF_SHORT, 1, 0},               // PhotometricInterpretation: white is zero
        {266, TIFF_SHORT, 1, 2},               // FillOrder: least significant bit first
        {TAG_STRIP_OFFSETS, TIFF_LONG, 1, 0},  // the image just written
        {277, TIFF_SHORT, 1, 1},               // SamplesPerPixel
        {278, TIFF_LONG, 1, page.rows},        // RowsPerStrip
        {TAG_STRIP_BYTE_COUNTS, TIFF_LONG, 1, 0},
        {282, TIFF_RATIONAL, 1, x_offset},  // XResolution
        {283, TIFF_RATIONAL, 1, y_offset},  // YResolution
        {293, TIFF_LONG, 1, 0},             // T6Options
        {296, TIFF_SHORT, 1, 2},            // ResolutionUnit: inch
        {297, TIFF_SHORT, 2, number},       // PageNumber, of a total not known yet
        {326, TIFF_SHORT, 1, bad_rows},     // BadFaxLines
        {327, TIFF_SHORT, 1, bad_rows == 0 ? CLEAN_FAX_DATA : REGENERATED_FAX_DATA},
    };
    for (const DornTiffEntry& entry : entries) add_tiff_entry(file, entry);
}

static bool add_extra_entry(TiffFile& file, const DornExtraTag& tag) {
    const uint64_t bytes = uint64_t{tiff_type_size(tag.type)} * tag.count;
    if (bytes == 0 || bytes > MOST_EXTRA_BYTES || tag.value == nullptr) {
        fail(APIERR_BADPARAMETER, "extra tag " + std::to_string(tag.tag) + " has no value");
    }
    DornTiffEntry entry{tag.tag, tag.type, tag.count, 0};
    if (bytes <= sizeof entry.value) {
        memcpy(&entry.value, tag.value, bytes);
    } else {
        uint32_t offset = 0;
        if (!write_tiff_value(file, tag.value, static_cast<uint32_t>(bytes), offset)) return false;
        entry.value = offset;
    }
    add_tiff_entry(file, entry);
    return true;
}

bool write_page(TiffFile& file, const ReceivedPage& page, uint16_t number, const DornExtraTag* extra,
                uint32_t extra_count) {
    if (extra_count > MOST_EXTRA_TAGS || (extra_count != 0 && extra == nullptr)) {
        fail(APIERR_BADPARAMETER, "the list of extra tags is not one");
    }
    uint32_t x_offset = 0;
    uint32_t y_offset = 0;
    if (!write_tiff_image(file, page.image.data(), static_cast<uint32_t>(page.image.size()))) return false;
    end_tiff_image(file);
    if (!write_resolution(file, page.dpi_down, x_offset, y_offset)) return false;
    add_fax_entries(file, page, number, x_offset, y_offset);
    for (uint32_t i = 0; i < extra_count; ++i) {
        if (!add_extra_entry(file, extra[i])) return false;
    }
    return end_tiff_directory(file);
}

}  // namespace softboard
