// The fuzz targets: each gives an input to one of the software board's parsers, in every way that the board does, and
// ends the program when what comes of it is not as it must be. Built for this machine they are run by libFuzzer
// (scripts/fuzz.sh), built for Windows they are given the inputs that are kept in corpus (tests/board/corpus_test.cpp).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "temp_file.h"

namespace fuzz {

// A TIFF file, DornTiff functions on it, and a page written behind what it holds.
void tiff(const uint8_t* data, size_t size);
// A TIFF file that is to be sent, and one that has been received.
void document(const uint8_t* data, size_t size);
// A softboard.ini.
void ini(const uint8_t* data, size_t size);
// A T.30 frame from the far end, and a report handler that does with its cursor what it likes.
void report(const uint8_t* data, size_t size);

// Ends the program unless the condition holds.
void must(bool condition, const char* what);

// An input's last bytes say what is done, those before them are what it is done with.
class Input {
  public:
    Input(const uint8_t* data, size_t size);
    // From 0 to below the count, which is 256 at most. When all choices have been made they come again.
    unsigned choose(unsigned count);
    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }

  private:
    static constexpr size_t CHOICES = 16;

    const uint8_t* const data_;
    const size_t size_;
    uint8_t choices_[CHOICES] = {};
    size_t next_ = 0;
};

// A file with these bytes.
softboard::TempFile file_of(const Input& input);

}  // namespace fuzz
