// The provider over the benchmarks' board, with TAPI's part played by the benchmark. One a process; it ends with it.
#pragma once

#include <string>

#include "bench_board.h"
#include "provider.h"

// One of the board's functions, for a benchmark that calls the board itself.
template <class Function>
Function find_function(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// Loads the driver library of a folder below the programs', and after it a provider, which so uses that one.
HMODULE load_board(const std::wstring& folder);
HMODULE load_beside_board(const std::wstring& provider_path);

struct ProviderUnderTest {
    HMODULE board_module;
    BenchBoard* board;
    const TspiFunctions* tspi;
};

// Loads both, with so many channels on the board.
ProviderUnderTest load_provider(uint32_t channels);

// Enumerates the lines and initialises; every channel is reset.
void start_provider(const ProviderUnderTest& provider);
void shut_provider_down(const ProviderUnderTest& provider);

// TAPI's handle of a line, and of the call on it, is its index plus one.
inline uint32_t index_of(HTAPILINE htLine) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(htLine)) - 1;
}
HDRVLINE open_line(const ProviderUnderTest& provider, uint32_t index, LINEEVENT events);
inline HDRVCALL call_on(HDRVLINE hdLine) {
    return reinterpret_cast<HDRVCALL>(const_cast<HDRVLINE__*>(hdLine));
}
// What an event procedure does first: gives a new call its handle.
void take_new_call(HTAPILINE htLine, DWORD dwMsg, DWORD_PTR dwParam2);
