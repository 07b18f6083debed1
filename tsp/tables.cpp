// The provider-wide state and its tables. The driver and TAPI are not held to the tables' size, so every access by
// index or unit goes through here.
#include "provider.h"

ProviderGlobals globals;

int32_t line_channel(uint32_t index) {
    return index < MAX_LINES ? globals.gLineChannel[index] : -1;
}

void set_line_channel(uint32_t index, int32_t channel) {
    if (index < MAX_LINES) globals.gLineChannel[index] = channel;
}

uint32_t line_max_rate(uint32_t index) {
    return index < MAX_LINES ? globals.gLineMaxRate[index] : 0;
}

void set_line_max_rate(uint32_t index, uint32_t rate) {
    if (index < MAX_LINES) globals.gLineMaxRate[index] = rate;
}

LineRec* line_by_unit(uint32_t unit) {
    return unit < MAX_LINES ? globals.gpLineByUnit[unit] : nullptr;
}

void set_line_by_unit(uint32_t unit, LineRec* pLine) {
    if (unit < MAX_LINES) globals.gpLineByUnit[unit] = pLine;
}

FaxStatusBlock* shared_record(const LineRec* pLine) {
    const uint32_t unit = DornLineUnitGet(pLine->hChannel);
    return globals.gpSharedMemory && unit < MAX_LINES ? globals.gpSharedMemory + unit : nullptr;
}
