#include "fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "file_stream.h"
#include "log.h"

namespace fuzz {

void must(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "it does not hold that %s\n", what);
    abort();
}

Input::Input(const uint8_t* data, size_t size) : data_(data), size_(size - std::min(size, CHOICES)) {
    if (size != size_) memcpy(choices_, data + size_, size - size_);
}

unsigned Input::choose(unsigned count) {
    return choices_[next_++ % CHOICES] % count;
}

softboard::TempFile file_of(const Input& input) {
    softboard::TempFile file;
    const auto stream = softboard::FileStream::open(file.path(), "w");
    must(stream != nullptr && stream->write(input.data(), input.size()) == input.size(), "a file can be written");
    return file;
}

}  // namespace fuzz

// The board's log: every line is made, and none is kept.
bool softboard::log_wants(int) {
    return true;
}

void softboard::log_line(int, const char*, unsigned, const std::string&) noexcept {}
