// An open file with a position, directly on the system: the C runtime's streams are limited to some hundreds at a time,
// a board has thousands of channels. Unbuffered, so that what has been written is there for every reader.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace softboard {

class FileStream {
  public:
    // Mode as of fopen, always binary. Null when there is no such mode or the file cannot be opened.
    static std::unique_ptr<FileStream> open(const std::string& path, const std::string& mode);
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;
    ~FileStream() { CloseHandle(handle_); }

    // Origin SEEK_SET, SEEK_CUR or SEEK_END. False = there is no such position.
    bool seek(int64_t offset, int origin);
    int64_t tell() const;
    // How many bytes were read or written.
    size_t read(void* data, size_t bytes);
    size_t write(const void* data, size_t bytes);

  private:
    FileStream(HANDLE handle, bool appends) : handle_(handle), appends_(appends) {}

    const HANDLE handle_;
    const bool appends_;
};

}  // namespace softboard
