// The channel reset: before a channel can take or place calls, and whenever a call ends.
#include "reset/LumLineResetReg.h"

#include <atomic>
#include <cstdlib>

#include "diag/diag.h"
#include "fault_guard.h"
#include "reset/registry_key.h"

namespace {

constexpr wchar_t CONFIGURATION_KEY[] = L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters";
constexpr wchar_t CONFIGURATION_VALUE[] = L"kxcall";

// Handlers saved while their channels are being reset, by unit; channels beyond are reset without the swap.
constexpr uint32_t MAX_SAVED_HANDLERS = 1024;
std::atomic<DornIncomingCmdFunc> saved_handlers[MAX_SAVED_HANDLERS];

// The report that a reset causes and that no handler may see.
bool is_reset_report(const DornReport& report) {
    return report.dwClass == 11 && report.dwType == 8 && report.dwSubCode == 2;
}

// The channel's report handler during a reset: passes everything on but the reset's own report.
void reset_filter(DornLine* boardLine, DornReport* report, uint32_t unit) {
    if (is_reset_report(*report)) {
        report->dwClass = 0;
        return;
    }
    const DornIncomingCmdFunc saved = unit < MAX_SAVED_HANDLERS ? saved_handlers[unit].load() : nullptr;
    if (saved) saved(boardLine, report, unit);
}

// Puts the reset filter in the place of the channel's handler for as long as it lives.
class HandlerSwap {
  public:
    explicit HandlerSwap(DornLine* channel) : channel(channel), unit(DornLineUnitGet(channel)) {
        if (unit >= MAX_SAVED_HANDLERS) return;
        DornIncomingCmdFunc* slot = DornLineIncomingCmdFuncAccess(channel);
        saved_handlers[unit] = *slot;
        *slot = reset_filter;
    }
    ~HandlerSwap() {
        if (unit >= MAX_SAVED_HANDLERS) return;
        *DornLineIncomingCmdFuncAccess(channel) = saved_handlers[unit];
        saved_handlers[unit] = nullptr;
    }
    HandlerSwap(const HandlerSwap&) = delete;
    HandlerSwap& operator=(const HandlerSwap&) = delete;

  private:
    DornLine* channel;
    uint32_t unit;
};

// The driver says with this pair that the release is still under way.
bool release_pending(uint32_t status, uint32_t detail) {
    return status == KX_STATUS_ALERT && detail == 1;
}

int32_t reset_channel(LineRec* pLine, const wchar_t* configuration) {
    char path[VALUE_SIZE + 1] = {};
    wcstombs(path, configuration, VALUE_SIZE);
    TRACE(TRACE_INFO, "mmbyte using kxcall<%s>", path);

    DornResetRecord reset{};
    reset.szConfiguration = path;
    if (DornLineReset(pLine->hChannel, &reset) >= 0) return 0;
    const char* error = DornErrorMessage(pLine->hChannel);
    TRACE(TRACE_ERROR, "LumLineReset: %s: status %lX.", error, static_cast<unsigned long>(reset.status));
    return -1;
}

int32_t reset_with_configuration(LineRec* pLine) {
    const RegistryKey key = open_key(HKEY_LOCAL_MACHINE, CONFIGURATION_KEY, KEY_READ);
    if (!key) {
        TRACE(TRACE_ERROR, "Exiting:LumLineResetReg unable to locate kxcall.cfg(-1)");
        return -1;
    }
    wchar_t configuration[VALUE_SIZE / sizeof(wchar_t)];
    get_value_sz(key.get(), CONFIGURATION_VALUE, configuration);
    return reset_channel(pLine, configuration);
}

int32_t reset_line(LineRec* pLine) {
    const HandlerSwap swap(pLine->hChannel);
    int32_t result = -1;
    with_faults_as_exceptions([&] {
        if (pLine->eLineState != LINE_IDLE) terminate_call(pLine->hChannel);
        result = reset_with_configuration(pLine);
    });
    return result;
}

}  // namespace

void terminate_call(DornLine* channel) {
    DornLineResultRecord terminate{};
    DornLineTerminateCallISDN(channel, &terminate);
    if (!release_pending(terminate.status, terminate.sub_status)) return;
    DornCallRecord release;
    do {
        release = {};
        DornCallWaitForRelease(channel, &release);
    } while (release_pending(release.status, release.cause));
}

int32_t get_value_sz(HKEY key, const wchar_t* name, wchar_t (&value)[VALUE_SIZE / sizeof(wchar_t)]) {
    TRACE(TRACE_FUNCTION_ENTER, "get_value_sz");
    constexpr size_t last = VALUE_SIZE / sizeof(wchar_t) - 1;
    for (wchar_t& character : value) character = L'\0';
    DWORD size = VALUE_SIZE;
    const LSTATUS error = RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(value), &size);
    if (error != ERROR_SUCCESS) value[0] = L'\0';
    value[last] = L'\0';
    const int32_t result = error == ERROR_SUCCESS ? 0 : 1;
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", "get_value_sz", result);
    return result;
}

int32_t LumLineResetReg(LineRec* pLine) {
    constexpr char name[] = "LumLineResetReg";
    if (!pLine) {
        TRACE_NULL_LINE(name);
        return -1;
    }
    TRACE_ENTER(pLine, name);
    const int32_t result = reset_line(pLine);
    TRACE_LINE(TRACE_FUNCTION_EXIT, pLine, "%s(%d)", name, result);
    return result;
}
