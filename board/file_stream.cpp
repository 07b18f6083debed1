#include "file_stream.h"

#include <cstdio>

namespace softboard {

struct OpenMode {
    char letter;
    DWORD access;
    DWORD creation;
};

constexpr OpenMode OPEN_MODES[] = {
    {'r', GENERIC_READ, OPEN_EXISTING},
    {'w', GENERIC_WRITE, CREATE_ALWAYS},
    {'a', GENERIC_WRITE, OPEN_ALWAYS},
};

std::unique_ptr<FileStream> FileStream::open(const std::string& path, const std::string& mode) {
    if (path.empty() || mode.find_first_not_of("+bt", 1) != std::string::npos) return nullptr;
    for (const OpenMode& known : OPEN_MODES) {
        if (mode.empty() || mode[0] != known.letter) continue;
        const bool update = mode.find('+') != std::string::npos;
        const DWORD access = update ? GENERIC_READ | GENERIC_WRITE : known.access;
        const HANDLE handle = CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          known.creation, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (handle == INVALID_HANDLE_VALUE) return nullptr;
        return std::unique_ptr<FileStream>(new FileStream(handle, known.letter == 'a'));
    }
    return nullptr;
}

bool FileStream::seek(int64_t offset, int origin) {
    if (origin != SEEK_SET && origin != SEEK_CUR && origin != SEEK_END) return false;
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    return SetFilePointerEx(handle_, distance, nullptr, static_cast<DWORD>(origin)) != 0;
}

int64_t FileStream::tell() const {
    LARGE_INTEGER position;
    return SetFilePointerEx(handle_, LARGE_INTEGER(), &position, FILE_CURRENT) != 0 ? position.QuadPart : -1;
}

size_t FileStream::read(void* data, size_t bytes) {
    DWORD done = 0;
    return ReadFile(handle_, data, static_cast<DWORD>(bytes), &done, nullptr) != 0 ? done : 0;
}

size_t FileStream::write(const void* data, size_t bytes) {
    DWORD done = 0;
    if (appends_ && !seek(0, SEEK_END)) return 0;
    return WriteFile(handle_, data, static_cast<DWORD>(bytes), &done, nullptr) != 0 ? done : 0;
}

}  // namespace softboard
