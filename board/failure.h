// How a step of the board says that it failed: thrown where it happens, caught at the exported function, which puts the
// result into the caller's record and the text where DornErrorMessage finds it.
#pragma once

#include <calddlld.h>

#include <string>

namespace softboard {

struct Failure {
    KXResult result;
    std::string text;
};

[[noreturn]] inline void fail(uint32_t error, const std::string& text) {
    throw Failure{{KX_STATUS_ERROR, error}, text};
}

}  // namespace softboard
