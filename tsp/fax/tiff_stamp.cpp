// The fax result in a received file: the ten digits of the extended status code in the Software tag, overwritten in
// place when the job has failed.
#include <cstdio>
#include <cstring>

#include "diag/diag.h"
#include "fax/qorv_fax.h"

namespace {

constexpr char NAME[] = "UpdateFaxStatus";

// Bytes of a value by TIFF 6.0 field type; type 0 counts as 0.
constexpr uint32_t TYPE_SIZES[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4};

bool is_stamp(const DornTiffEntry& entry) {
    return entry.tag == TIFFTAG_SOFTWARE && entry.type == TIFF_ASCII && entry.count == STAMP_SIZE;
}

int seek_failed(const char* format, uint32_t offset) {
    const auto error = static_cast<int>(GetLastError());
    TRACE(TRACE_ERROR, format, offset);
    return error;
}

// Writes the stamp where the entry's value lies and leaves the stream where it was: the driver reads on from there.
int overwrite_stamp(void* stream, const DornTiffEntry& entry, uint32_t code) {
    const long position = _mdll_ftell(stream);
    if (_mdll_fseek(stream, static_cast<long>(entry.value), SEEK_SET) != 0)
        return seek_failed("Error seeking to offset %X", entry.value);
    char stamp[STAMP_SIZE];
    format_stamp(stamp, code);
    const uint32_t size = entry.count * TYPE_SIZES[entry.type];
    if (_mdll_fwrite(stamp, 1, size, stream) < size) {
        const auto error = static_cast<int>(GetLastError());
        TRACE(TRACE_ERROR, "Error writing %d bytes on offset %X", size, entry.value);
        return error;
    }
    if (_mdll_fseek(stream, position, SEEK_SET) != 0)
        return seek_failed("Error seeking to offset %X on end", static_cast<uint32_t>(position));
    return 0;
}

// Called by the driver for every directory entry. 0, or the system's last error.
int stamp_entry(DornTiff* tiff, const DornTiffEntry* entry, uint64_t code) {
    return is_stamp(*entry) ? overwrite_stamp(tiff->stream, *entry, static_cast<uint32_t>(code)) : 0;
}

void stamp_file(LineRec* pLine, uint32_t code) {
    pLine->hTiff = open_tiff(pLine->szTiffFile, "r+");
    if (!pLine->hTiff) return;
    DornTiffRecord read{};
    read.hTiff = pLine->hTiff;
    read.tagCallback = stamp_entry;
    read.qwCallerValue = code;
    if (DornTiffReadIFD(&read) == 0) RebuildPlaceholderTiff(pLine);
    if (pLine->hTiff) {
        close_tiff(pLine->hTiff);
        pLine->hTiff = nullptr;
    }
}

}  // namespace

void format_stamp(char (&stamp)[STAMP_SIZE], uint32_t code) {
    memset(stamp, 0, sizeof stamp);
    _snprintf(stamp, STAMP_SIZE - 1, "%010d", static_cast<int>(code));
}

void UpdateFaxStatus(LineRec* pLine) {
    if (!pLine) {
        TRACE(TRACE_FUNCTION_ENTER, NAME);
        TRACE(TRACE_ERROR, "GetFaxExtendedStatusCode pLine=NULL");
        TRACE(TRACE_FUNCTION_EXIT, NAME);
        return;
    }
    TRACE_ENTER(pLine, NAME);
    const FaxStatusBlock* record = shared_record(pLine);
    if (record && record->status != KX_STATUS_OK) stamp_file(pLine, GetFaxExtendedStatusCode(pLine));
    TRACE_EXIT(pLine, NAME);
}

DornTiff* open_tiff(const char* path, const char* mode) {
    DornTiffRecord open{};
    open.szPath = path;
    open.szMode = mode;
    return DornTiffOpen(&open);
}

int close_tiff(DornTiff* hTiff) {
    DornTiffRecord close{};
    close.hTiff = hTiff;
    return DornTiffClose(&close);
}
