// The DornTiff functions. They need no DornInitialize and take no lock of the board's.
#include "tiff_handles.h"

#include <map>

#include "entry.h"
#include "page_writer.h"

namespace softboard {

static Mutex handles_lock;

static std::map<const DornTiff*, std::shared_ptr<TiffFile>>& handles() {
    static auto* const open = new std::map<const DornTiff*, std::shared_ptr<TiffFile>>;
    return *open;
}

std::shared_ptr<TiffFile> find_tiff(const DornTiff* handle) {
    const Guard guard(handles_lock);
    const auto found = handles().find(handle);
    return found == handles().end() ? nullptr : found->second;
}

static std::shared_ptr<TiffFile> find_stream(const void* stream) {
    const Guard guard(handles_lock);
    for (const auto& [handle, file] : handles()) {
        if (file->stream.get() == stream) return file;
    }
    return nullptr;
}

static void take_back(const DornTiff* handle) {
    const Guard guard(handles_lock);
    handles().erase(handle);
}

static DornTiff* open(const DornTiffRecord& record) {
    if (record.szPath == nullptr || record.szMode == nullptr) fail(APIERR_BADPARAMETER, "no path or no mode");
    const std::shared_ptr<TiffFile> file = open_tiff(record.szPath, record.szMode);
    if (file == nullptr) fail(APIERR_FILEIO, std::string(record.szPath) + " cannot be opened");
    const Guard guard(handles_lock);
    handles()[&file->head] = file;
    return &file->head;
}

// A function on an open file; its result is 0, or -1 with the failure in the record.
template <class Body>
static int tiff_call(const char* function, DornTiffRecord* record, Body body) noexcept {
    if (record == nullptr) return -1;
    const KXResult result = run(function, nullptr, [&] {
        const std::shared_ptr<TiffFile> file = find_tiff(record->hTiff);
        if (file == nullptr) fail(APIERR_BADPARAMETER, "the TIFF handle is not open");
        body(*file);
    });
    set_result(*record, result);
    return result.status == KX_STATUS_OK ? 0 : -1;
}

static void check_written(const TiffFile& file, bool written) {
    if (!written) fail(APIERR_FILEIO, file.path + " cannot be written");
}

}  // namespace softboard

using namespace softboard;

DornTiff* DornTiffOpen(DornTiffRecord* record) {
    if (record == nullptr) return nullptr;
    DornTiff* handle = nullptr;
    set_result(*record, run(__func__, nullptr, [&] { handle = open(*record); }));
    return handle;
}

int DornTiffClose(DornTiffRecord* record) {
    return tiff_call(__func__, record, [&](TiffFile&) { take_back(record->hTiff); });
}

int DornTiffReadIFD(DornTiffRecord* record) {
    int directories = 0;
    tiff_call(__func__, record, [&](TiffFile& file) {
        if (record->tagCallback == nullptr) fail(APIERR_BADPARAMETER, "no callback");
        directories = walk_tiff_directories(file, [&](const TiffEntries& entries) {
            for (const DornTiffEntry& entry : entries) {
                if (record->tagCallback(&file.head, &entry, record->qwCallerValue) != 0) return false;
            }
            return true;
        });
        if (directories == 0) fail(APIERR_FILEFORMAT, file.path + " has no readable directory");
    });
    return directories;
}

int DornTiffWriteImage(DornTiffRecord* record) {
    return tiff_call(__func__, record, [&](TiffFile& file) {
        if (record->imageData == nullptr) {
            end_tiff_image(file);
        } else {
            check_written(file, write_tiff_image(file, record->imageData, record->cbImage));
        }
    });
}

int DornTiffWriteRes(DornTiffRecord* record) {
    return tiff_call(__func__, record, [&](TiffFile& file) {
        constexpr uint32_t DPI_DOWN[] = {DPI_STANDARD, DPI_FINE};
        if (record->dwResolution >= std::size(DPI_DOWN)) fail(APIERR_BADPARAMETER, "there is no such resolution");
        uint32_t x_offset = 0;
        uint32_t y_offset = 0;
        check_written(file, write_resolution(file, DPI_DOWN[record->dwResolution], x_offset, y_offset));
        record->dwXResolutionOffset = x_offset;
        record->dwYResolutionOffset = y_offset;
    });
}

int DornTiffWriteIFD(DornTiffRecord* record) {
    return tiff_call(__func__, record, [&](TiffFile& file) {
        if (record->entry != nullptr) {
            add_tiff_entry(file, *record->entry);
        } else {
            check_written(file, end_tiff_directory(file));
        }
    });
}

int _mdll_fseek(void* stream, long offset, int origin) {
    const std::shared_ptr<TiffFile> file = find_stream(stream);
    return file != nullptr && file->stream->seek(offset, origin) ? 0 : -1;
}

long _mdll_ftell(void* stream) {
    const std::shared_ptr<TiffFile> file = find_stream(stream);
    return file == nullptr ? -1 : static_cast<long>(file->stream->tell());
}

size_t _mdll_fwrite(const void* data, size_t size, size_t count, void* stream) {
    const std::shared_ptr<TiffFile> file = find_stream(stream);
    if (file == nullptr || data == nullptr || size == 0 || count > SIZE_MAX / size) return 0;
    return file->stream->write(data, size * count) / size;
}
