// Threads: there are none to be had.
#pragma once

#include <cstdint>

inline uintptr_t _beginthreadex(void*, unsigned, unsigned (*)(void*), void*, unsigned, unsigned*) {
    return 0;
}
