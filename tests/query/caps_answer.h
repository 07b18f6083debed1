// A record that the provider fills in place: rubbish in it and behind it, so that nothing is right by chance and every
// byte that is written shows.
#pragma once

#include <cstdint>
#include <cstring>

#include "harness.h"

template <class Record>
struct Answer {
    static constexpr uint8_t kRubbish = 0xCC;
    union {
        Record caps;
        uint8_t bytes[1024];
    };

    Answer() { std::memset(bytes, kRubbish, sizeof(bytes)); }

    bool untouched_from(size_t offset) const {
        for (size_t i = offset; i < sizeof(bytes); ++i)
            if (bytes[i] != kRubbish) return false;
        return true;
    }
};

// Where two answers differ, as 32-bit fields.
template <class Record>
harness::Lines differences(const Answer<Record>& expected, const Answer<Record>& seen) {
    harness::Lines result;
    for (size_t offset = 0; offset < sizeof(seen.bytes); offset += sizeof(uint32_t))
        if (std::memcmp(expected.bytes + offset, seen.bytes + offset, sizeof(uint32_t)) != 0)
            result.push_back(harness::text("at %zu", offset));
    return result;
}
