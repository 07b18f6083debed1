// Channel reset and the call configuration that it loads, and what the registry says about a line's rings.
#pragma once

#include <windows.h>

#include <cstdint>

#include "provider.h"

// Resets the line's channel with the call configuration named in the registry; blocks until the driver is done. Needs
// hChannel and eLineState only and takes no lock; callers hold the line lock where they need it. 0 = reset, -1 = not.
int32_t LumLineResetReg(LineRec* pLine);

// Reads a string value of an open key into a buffer of 130 characters. 0 = read, 1 = not (the buffer is then empty).
constexpr DWORD VALUE_SIZE = 260;
int32_t get_value_sz(HKEY key, const wchar_t* name, wchar_t (&value)[VALUE_SIZE / sizeof(wchar_t)]);

// One reset thread of start-up: the argument, which the thread frees, and its body.
struct ResetThreadArgs {
    DornLine* hChannel;
    uint32_t dwLineIndex;
};
static_assert(sizeof(ResetThreadArgs) == 16, "argument of a reset thread");
void __cdecl ResetChannelThread(void* args);

// How many rings the fax service wants on the line with this permanent ID. 0 = found; 1 = not, *pRings is 1 then.
int32_t findNringsFromLineID(uint32_t dwLineId, uint32_t* pRings);
