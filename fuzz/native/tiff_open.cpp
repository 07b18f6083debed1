// libtiff's way to the files in memory: the linker gives the board these instead of libtiff's own openers.
#include <tiffio.h>
#include <windows.h>

static tmsize_t read_file(thandle_t file, void* data, tmsize_t bytes) {
    DWORD done = 0;
    return ReadFile(file, data, static_cast<DWORD>(bytes), &done, nullptr) != 0 ? static_cast<tmsize_t>(done) : -1;
}

static tmsize_t write_file(thandle_t file, void* data, tmsize_t bytes) {
    DWORD done = 0;
    return WriteFile(file, data, static_cast<DWORD>(bytes), &done, nullptr) != 0 ? static_cast<tmsize_t>(done) : -1;
}

static toff_t seek_file(thandle_t file, toff_t offset, int origin) {
    LARGE_INTEGER position{};
    const LARGE_INTEGER distance{static_cast<int64_t>(offset)};
    if (SetFilePointerEx(file, distance, &position, static_cast<DWORD>(origin)) == 0) return static_cast<toff_t>(-1);
    return static_cast<toff_t>(position.QuadPart);
}

static int close_file(thandle_t file) {
    return CloseHandle(file) != 0 ? 0 : -1;
}

static toff_t size_of_file(thandle_t file) {
    const toff_t position = seek_file(file, 0, FILE_CURRENT);
    const toff_t size = seek_file(file, 0, 2);
    seek_file(file, position, 0);
    return size;
}

extern "C" TIFF* __wrap_TIFFOpen(const char* path, const char* mode) {
    const bool reads = mode[0] == 'r';
    const HANDLE file = CreateFileA(path, reads ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    reads ? OPEN_EXISTING : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return nullptr;
    TIFF* const tiff =
        TIFFClientOpen(path, mode, file, read_file, write_file, seek_file, close_file, size_of_file, nullptr, nullptr);
    if (tiff == nullptr) CloseHandle(file);
    return tiff;
}
