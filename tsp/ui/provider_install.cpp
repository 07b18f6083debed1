// Installation refuses a second instance: TAPI's list of providers is asked for one with the same file name.
#include <cwchar>
#include <memory>

#include "diag/diag.h"
#include "provider.h"
#include "ui/QORVUI.h"
#include "ui/module.h"

namespace {

constexpr DWORD TAPI_API_VERSION = 0x00020000;

using ProviderListProc = LONG(WINAPI*)(DWORD, LPLINEPROVIDERLIST);

struct FreeLocal {
    void operator()(void* memory) const { LocalFree(memory); }
};
using ProviderList = std::unique_ptr<LINEPROVIDERLIST, FreeLocal>;

// Fetches TAPI's list into as much memory as it needs.
LONG fetch_list(ProviderListProc lineGetProviderListW, ProviderList& list) {
    for (DWORD size = sizeof(LINEPROVIDERLIST);; size = list->dwNeededSize) {
        list.reset();
        list.reset(static_cast<LINEPROVIDERLIST*>(LocalAlloc(LPTR, size)));
        if (!list) return LINEERR_NOMEM;
        list->dwTotalSize = size;
        if (const LONG error = lineGetProviderListW(TAPI_API_VERSION, list.get())) return error;
        if (list->dwNeededSize <= list->dwTotalSize) return 0;
    }
}

// A path counts from behind its first backslash, not its last.
const wchar_t* comparable_name(const wchar_t* file_name) {
    const wchar_t* backslash = wcschr(file_name, L'\\');
    return backslash ? backslash + 1 : file_name;
}

bool list_holds(const LINEPROVIDERLIST* list, const wchar_t* file_name) {
    const auto* start = reinterpret_cast<const uint8_t*>(list);
    const auto* entries = reinterpret_cast<const LINEPROVIDERENTRY*>(start + list->dwProviderListOffset);
    for (DWORD i = 0; i < list->dwNumProviders; ++i) {
        const auto* name = reinterpret_cast<const wchar_t*>(start + entries[i].dwProviderFilenameOffset);
        if (_wcsicmp(comparable_name(name), file_name) == 0) return true;
    }
    return false;
}

LONG refuse_second_instance(const wchar_t* file_name) {
    const Module tapi(LoadLibraryW(L"tapi32.dll"));
    if (!tapi) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "LoadLibrary(tapi32.dll) failed, err=%X", error);
        return LINEERR_OPERATIONFAILED;
    }
    const auto lineGetProviderListW = export_of<ProviderListProc>(tapi, "lineGetProviderListW");
    if (!lineGetProviderListW) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "GetProcAddr(lineGetProviderList) failed, err=%X", error);
        return LINEERR_OPERATIONFAILED;
    }
    ProviderList list;
    if (const LONG error = fetch_list(lineGetProviderListW, list)) return error;
    return list_holds(list.get(), file_name) ? LINEERR_NOMULTIPLEINSTANCE : 0;
}

}  // namespace

LONG ProviderInstall(const wchar_t* file_name, int32_t check) {
    constexpr char name[] = "ProviderInstall";
    TRACE(TRACE_FUNCTION_ENTER, name);
    const LONG result = check == 0 ? 0 : refuse_second_instance(file_name);
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, result);
    return result;
}
