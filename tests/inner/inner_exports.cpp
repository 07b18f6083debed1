#include "inner_exports.h"

#include <functional>
#include <map>
#include <string>

#include "diag/diag.h"
#include "fault_guard.h"
#include "fax/qorv_fax.h"
#include "provider.h"
#include "reset/LumLineResetReg.h"

#define INNER_EXPORT extern "C" __declspec(dllexport)

namespace {

int64_t nothing(void (*function)(LineRec*)) {
    function(nullptr);
    return 0;
}

int64_t both_halves(const KXResult& result) {
    return static_cast<int64_t>(result.line_status) << 32 | result.status;
}

const std::map<std::string, std::function<int64_t()>> FUNCTIONS = {
    {"lock_line", [] { return nothing(lock_line); }},
    {"unlock_line", [] { return nothing(unlock_line); }},
    {"SetCallState", [] { return nothing([](LineRec* line) { SetCallState(line, LINECALLSTATE_IDLE, 0); }); }},
    {"send_linedevstate", [] { return nothing([](LineRec* line) { send_linedevstate(line, 0, 0, 0); }); }},
    {"send_addrstate", [] { return nothing([](LineRec* line) { send_addrstate(line, 0, 0, 0); }); }},
    {"send_linecallinfo", [] { return nothing([](LineRec* line) { send_linecallinfo(line, 0); }); }},
    {"send_linenewcall", [] { return nothing(send_linenewcall); }},
    {"Send_CallDevSpecific", [] { return nothing([](LineRec* line) { Send_CallDevSpecific(line, 0, 0, 0); }); }},
    {"UpdateSharedMemory", [] { return nothing(UpdateSharedMemory); }},
    {"UpdateFaxStatus", [] { return nothing(UpdateFaxStatus); }},
    {"GetFaxExtendedStatusCode", [] { return int64_t{GetFaxExtendedStatusCode(nullptr)}; }},
    {"LumLineResetReg", [] { return int64_t{LumLineResetReg(nullptr)}; }},
    {"SendStraightTIFF", [] { return both_halves(SendStraightTIFF(nullptr)); }},
};

}  // namespace

INNER_EXPORT int32_t inner_report_event_num2(uint16_t category, uint32_t event_id, uint32_t number1, uint32_t number2) {
    return report_event_num2(category, event_id, number1, number2);
}

INNER_EXPORT const wchar_t* inner_KX_STATUS_name(uint32_t status) {
    return KX_STATUS_name(status);
}

INNER_EXPORT const wchar_t* inner_line_status_name(uint32_t status, uint32_t line_status) {
    return line_status_name(status, line_status);
}

INNER_EXPORT uint32_t inner_fax_rate(uint32_t code) {
    return FaxRateTable[code];
}

INNER_EXPORT void inner_fault_with_locks(const void* hdLine, int times) {
    LineRec* pLine = line_of(static_cast<HDRVLINE>(hdLine));
    completes([&] {
        // A fault runs no destructor, so nobody else gives these back.
        for (int i = 0; i < times; ++i) new LineLock(pLine);
        *static_cast<volatile int*>(nullptr) = 0;
    });
}

INNER_EXPORT int64_t inner_without_line(const char* function) {
    return FUNCTIONS.at(function)();
}
