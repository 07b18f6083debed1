// The ring count of a line, from the registry of the fax service: one subkey a fax device, whose first subkey holds the
// permanent line ID and the number of rings.
#include <string>

#include "diag/diag.h"
#include "reset/LumLineResetReg.h"
#include "reset/registry_key.h"

namespace {

constexpr wchar_t FAX_DEVICES[] = L"SOFTWARE\\Microsoft\\Fax\\Devices";
constexpr DWORD MAX_KEY_NAME = 512;

bool subkey_name(HKEY key, DWORD index, wchar_t (&name)[MAX_KEY_NAME]) {
    DWORD length = MAX_KEY_NAME;
    return RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

bool read_dword(HKEY key, const wchar_t* name, uint32_t* value) {
    DWORD data = 0;
    DWORD size = sizeof data;
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&data), &size) != ERROR_SUCCESS)
        return false;
    *value = data;
    return true;
}

// Whether this device is the line's and has a ring count, which then goes to *pRings.
bool rings_of_device(const wchar_t* device_name, uint32_t dwLineId, uint32_t* pRings) {
    std::wstring path = std::wstring(FAX_DEVICES) + L"\\" + device_name;
    const RegistryKey device = open_key(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ);
    wchar_t first_subkey[MAX_KEY_NAME];
    if (!device || !subkey_name(device.get(), 0, first_subkey)) return false;

    path = path + L"\\" + first_subkey;
    const RegistryKey settings = open_key(HKEY_LOCAL_MACHINE, path.c_str(), KEY_QUERY_VALUE);
    if (!settings) {
        TRACE(TRACE_INFO, "Cannot open key %ls", path.c_str());
        return false;
    }
    uint32_t permanent_id = 0;
    if (!read_dword(settings.get(), L"TAPI Permanent Lineid", &permanent_id)) return false;
    if (permanent_id != dwLineId) {
        TRACE(TRACE_INFO, "The Line ID %d is not match with the Permanent LineID %d", permanent_id, dwLineId);
        return false;
    }
    if (read_dword(settings.get(), L"Rings", pRings)) return true;
    TRACE(TRACE_INFO, "Can not find Rings registry key");
    return false;
}

bool find_rings(uint32_t dwLineId, uint32_t* pRings) {
    const RegistryKey devices = open_key(HKEY_LOCAL_MACHINE, FAX_DEVICES, KEY_READ);
    if (!devices) {
        TRACE(TRACE_INFO, "****** FindNringsFromLineID:  Can not open the registry");
        return false;
    }
    wchar_t device_name[MAX_KEY_NAME];
    for (DWORD index = 0; subkey_name(devices.get(), index, device_name); ++index)
        if (rings_of_device(device_name, dwLineId, pRings)) return true;
    return false;
}

}  // namespace

int32_t findNringsFromLineID(uint32_t dwLineId, uint32_t* pRings) {
    constexpr char name[] = "findNringsFromLineID";
    TRACE(TRACE_FUNCTION_ENTER, name);
    *pRings = 1;
    const bool found = find_rings(dwLineId, pRings);
    if (!found) TRACE(TRACE_INFO, "****** FindNringsFromLineID: did not find it ");
    const int32_t result = found ? 0 : 1;
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, result);
    return result;
}
