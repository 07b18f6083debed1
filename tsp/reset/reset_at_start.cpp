// The resets of start-up: one thread a channel, so that a machine full of boards starts in the time of one reset.
#include <memory>
#include <new>

#include "diag/diag.h"
#include "fault_guard.h"
#include "reset/LumLineResetReg.h"

namespace {

constexpr char NAME[] = "ResetChannelThread";

void mark_channel_bad(uint32_t index) {
    set_line_channel(index, ~line_channel(index));
}

void reset_and_rate(DornLine* channel, uint32_t index) {
    // Stays allocated: one record a reset thread, as the provider has always done.
    LineRec* pLine = new (std::nothrow) LineRec{};
    if (!pLine) {
        TRACE(TRACE_ERROR, "Couldn't allocate memory for pLine.");
        return;
    }
    pLine->hChannel = channel;
    if (LumLineResetReg(pLine) < 0) {
        TRACE(TRACE_PANIC, "Reset failure or no fw on chan %d!", DornLineUnitGet(channel));
        mark_channel_bad(index);
        return;
    }
    set_line_max_rate(index, fax_rate_of_capabilities(channel));
    if (DornLineCapCheck(channel, CAPABILITY_FAX) == 0)
        TRACE(TRACE_INFO, "(Channel %d) doesn't support fax!", DornLineUnitGet(channel));
}

// The last reset to finish wakes TSPI_providerInit.
void report_reset_done() {
    EnterCriticalSection(&globals.gResetLock);
    const bool last = --globals.gdwResetsPending == 0;
    LeaveCriticalSection(&globals.gResetLock);
    if (last) SetEvent(globals.ghResetDoneEvent);
}

}  // namespace

void __cdecl ResetChannelThread(void* args) {
    const ResetThreadArgs reset = *std::unique_ptr<ResetThreadArgs>(static_cast<ResetThreadArgs*>(args));
    TRACE(TRACE_FUNCTION_ENTER, NAME);
    const bool done = completes_or_traces(NAME, [&] { reset_and_rate(reset.hChannel, reset.dwLineIndex); });
    if (!done && line_channel(reset.dwLineIndex) >= 0) mark_channel_bad(reset.dwLineIndex);
    completes_or_traces(NAME, [&] { detach_channel(reset.hChannel); });
    TRACE(TRACE_FUNCTION_EXIT, NAME);
    report_reset_done();
}
