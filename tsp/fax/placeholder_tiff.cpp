// A file that holds no readable page becomes a valid one-page fax (TIFF 6.0, T.6) marked as aborted, so that the fax
// service has something to show.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "diag/diag.h"
#include "fax/qorv_fax.h"

namespace {

constexpr char NAME[] = "RebuildPlaceholderTiff";
constexpr uint16_t PLACEHOLDER_ROWS = 4;
constexpr uint32_t STANDARD_RESOLUTION = 0;         // 204 by 98 dpi
constexpr char ABORTED[STAMP_SIZE] = "0538968064";  // FS_USER_ABORT, whatever the job's real result
constexpr int REOPEN_FAILED = -1;

struct Entry {
    DornTiffEntry directory;
    const char* text;  // value of an ASCII entry
};

enum : uint16_t { TIFFTAG_XRESOLUTION = 282, TIFFTAG_YRESOLUTION = 283 };

constexpr Entry PAGE_ENTRIES[] = {
    {{254, TIFF_LONG, 1, 2}, nullptr},                 // NewSubfileType: one page of a multi-page document
    {{256, TIFF_LONG, 1, 1728}, nullptr},              // ImageWidth
    {{257, TIFF_LONG, 1, PLACEHOLDER_ROWS}, nullptr},  // ImageLength
    {{258, TIFF_SHORT, 1, 1}, nullptr},                // BitsPerSample
    {{259, TIFF_SHORT, 1, 4}, nullptr},                // Compression: CCITT T.6
    {{262, TIFF_SHORT, 1, 0}, nullptr},                // PhotometricInterpretation: white is zero
    {{266, TIFF_SHORT, 1, 2}, nullptr},                // FillOrder
    {{273, TIFF_LONG, 1, 0}, nullptr},                 // StripOffsets: filled by the driver
    {{277, TIFF_SHORT, 1, 1}, nullptr},                // SamplesPerPixel
    {{278, TIFF_LONG, 1, PLACEHOLDER_ROWS}, nullptr},  // RowsPerStrip
    {{279, TIFF_LONG, 1, 0}, nullptr},                 // StripByteCounts: filled by the driver
    {{TIFFTAG_XRESOLUTION, TIFF_RATIONAL, 1, 0}, nullptr},
    {{TIFFTAG_YRESOLUTION, TIFF_RATIONAL, 1, 0}, nullptr},
    {{293, TIFF_LONG, 1, 0}, nullptr},   // T6Options
    {{296, TIFF_SHORT, 1, 2}, nullptr},  // ResolutionUnit: inch
    {{297, TIFF_SHORT, 2, 0}, nullptr},  // PageNumber
    {{326, TIFF_SHORT, 1, 0}, nullptr},  // BadFaxLines
    {{327, TIFF_SHORT, 1, 0}, nullptr},  // CleanFaxData
    {{TIFFTAG_SOFTWARE, TIFF_ASCII, STAMP_SIZE, 0}, ABORTED},
};

// If the stream's position is odd, writes one zero byte. The position, or 0 if the write fails.
uint32_t PadToEven(void* stream) {
    constexpr char name[] = "PadToEven";
    TRACE(TRACE_FUNCTION_ENTER, name);
    auto position = static_cast<uint32_t>(_mdll_ftell(stream));
    if (position % 2 != 0) {
        const char zero = '\0';
        position = _mdll_fwrite(&zero, 1, 1, stream) == 1 ? position + 1 : 0;
    }
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, position);
    return position;
}

bool reopen_empty(LineRec* pLine) {
    close_tiff(pLine->hTiff);
    pLine->hTiff = nullptr;
    pLine->hTiff = open_tiff(pLine->szTiffFile, "w+");
    return pLine->hTiff != nullptr;
}

// The driver counts pages in its line and in its file; both start afresh.
void reset_page_bookkeeping(LineRec* pLine) {
    pLine->hChannel->wPageNumber = 0;
    pLine->hChannel->wPageCount = 0;
    pLine->hTiff->dwPageCounter = 0;
    pLine->hTiff->dwPageCursor = 0;
}

int write_image(LineRec* pLine) {
    static constexpr char image[4] = {};
    DornTiffRecord data{};
    data.hTiff = pLine->hTiff;
    data.imageData = image;
    data.cbImage = sizeof image;
    if (const int error = DornTiffWriteImage(&data)) return error;
    DornTiffRecord end{};
    end.hTiff = pLine->hTiff;
    if (const int error = DornTiffWriteImage(&end)) return error;
    pLine->hChannel->wRowCount = PLACEHOLDER_ROWS;
    return 0;
}

enum class Written { Good, Failed };

// Puts the text of an ASCII entry into its value field or, when it is longer, at an even offset behind the file's end.
Written place_text(DornTiff* tiff, Entry& entry) {
    const auto size = static_cast<uint32_t>(strlen(entry.text) + 1);
    if (size <= sizeof entry.directory.value) {
        memcpy(&entry.directory.value, entry.text, size);
        return Written::Good;
    }
    _mdll_fseek(tiff->stream, 0, SEEK_END);
    entry.directory.value = PadToEven(tiff->stream);
    if (entry.directory.value == 0) return Written::Failed;
    return _mdll_fwrite(entry.text, 1, size, tiff->stream) == size ? Written::Good : Written::Failed;
}

int write_directory_entry(DornTiff* tiff, const DornTiffEntry* entry) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    record.entry = entry;
    return DornTiffWriteIFD(&record);
}

int write_page(LineRec* pLine, const Entry& target_printer) {
    if (const int error = write_image(pLine)) return error;

    DornTiffRecord resolution{};
    resolution.hTiff = pLine->hTiff;
    resolution.dwResolution = STANDARD_RESOLUTION;
    const int resolution_result = DornTiffWriteRes(&resolution);
    if (resolution.status != KX_STATUS_OK) return resolution_result;
    pLine->hTiff->dwPageCounter += 1;

    Entry entries[std::size(PAGE_ENTRIES) + 1];
    *std::copy(std::begin(PAGE_ENTRIES), std::end(PAGE_ENTRIES), entries) = target_printer;
    for (Entry& entry : entries) {
        if (entry.directory.tag == TIFFTAG_XRESOLUTION) entry.directory.value = resolution.dwXResolutionOffset;
        if (entry.directory.tag == TIFFTAG_YRESOLUTION) entry.directory.value = resolution.dwYResolutionOffset;
        if (entry.text && place_text(pLine->hTiff, entry) == Written::Failed) return 0;
        if (const int error = write_directory_entry(pLine->hTiff, &entry.directory)) return error;
    }
    return write_directory_entry(pLine->hTiff, nullptr);
}

int rebuild(LineRec* pLine) {
    const auto routing_size = static_cast<uint32_t>(strlen(pLine->szRoutingInfo) + 1);
    const Entry target_printer = {{TIFFTAG_TARGETPRINTER, TIFF_ASCII, routing_size, 0}, pLine->szRoutingInfo};
    if (!reopen_empty(pLine)) return REOPEN_FAILED;
    reset_page_bookkeeping(pLine);
    return write_page(pLine, target_printer);
}

}  // namespace

int RebuildPlaceholderTiff(LineRec* pLine) {
    TRACE_ENTER(pLine, NAME);
    const int result = rebuild(pLine);
    TRACE_LINE(TRACE_FUNCTION_EXIT, pLine, "%s(%d)", NAME, result);
    return result;
}
