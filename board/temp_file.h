// A file of the board's own in the folder for temporary files, deleted when its owner goes.
#pragma once

#include <string>
#include <utility>

namespace softboard {

class TempFile {
  public:
    // Only the name, which no other TempFile has ever had; whoever writes to it makes the file. Throws Failure when
    // there is no folder for temporary files.
    TempFile();
    TempFile(TempFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    TempFile& operator=(TempFile&& other) noexcept {
        std::swap(path_, other.path_);
        return *this;
    }
    ~TempFile();
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace softboard
