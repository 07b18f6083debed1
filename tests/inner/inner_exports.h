// Functions inside the provider to which none of its exports leads: those without a caller yet, and refusals of a null
// line, whose callers have looked before. A provider of the same code exports them under these names.
#pragma once

#include <cstdint>

extern "C" {
int32_t inner_report_event_num2(uint16_t category, uint32_t event_id, uint32_t number1, uint32_t number2);
const wchar_t* inner_KX_STATUS_name(uint32_t status);
const wchar_t* inner_line_status_name(uint32_t status, uint32_t line_status);
uint32_t inner_fax_rate(uint32_t code);  // FaxRateTable[code]

// Takes the line's lock so many times, runs into a hardware fault and comes back through the fault guard.
void inner_fault_with_locks(const void* hdLine, int times);

// The answer of the function of that name to a null line, 0 when it answers nothing; a KXResult has its status in the
// low and its line_status in the high half.
int64_t inner_without_line(const char* function);
}
