// The provider's trace on the host's output. The trace goes through the log of the board's driver library, which writes
// the lines that it wants to the debugger; the host listens to the debugger output of its own process.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "owned.h"

// Shows the debugger output for as long as it lives. Which levels are wanted is the driver library's configuration;
// the software board is given a copy of its own (the file that QORV_SOFTBOARD names, else softboard.ini beside the
// provider) that asks for these levels and for no others, in a temporary file that goes with this owner.
struct TraceListener {
    TraceListener(const std::vector<uint32_t>& levels, const std::wstring& provider_path, bool json);
    ~TraceListener();
    TraceListener(const TraceListener&) = delete;
    TraceListener& operator=(const TraceListener&) = delete;

    void* handler = nullptr;
    std::wstring configuration;  // the temporary file; empty when it could not be written
    std::wstring previous;       // QORV_SOFTBOARD as it was
};
