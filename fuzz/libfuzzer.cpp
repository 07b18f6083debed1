// libFuzzer's way to the target that this is compiled for.
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::FUZZ_TARGET(data, size);
    fuzz::must(memory_files() == 0, "no file is left behind");
    return 0;
}
