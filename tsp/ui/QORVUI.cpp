// Installation, removal and configuration. The provider is its own user-interface module: the TUISPI functions live
// here beside the TSPI ones, and may be called in a process that never initialises the provider.
#include "ui/QORVUI.h"

#include <cwchar>

#include "diag/diag.h"
#include "entry_point.h"
#include "provider.h"
#include "ui/module.h"

namespace {

constexpr wchar_t PROPERTY_SHEET_MODULE[] = L"qorvconf.cpl";
constexpr size_t UI_PATH_LENGTH = 260;  // TAPI's buffer, in characters

// A TSPI_provider* function of which TAPI wants to hear only that all is well.
LONG provider_does_nothing(const char* name, LibraryEnd end, HWND hwndOwner, DWORD dwPermanentProviderID) {
    return provider_entry(
        name, TRACE_PROVIDER_EXIT, end,
        [&] {
            TRACE(TRACE_PROVIDER_ENTER, "%s: hwndOwner(%d), dwPermanentProviderID(%d)", name,
                  static_cast<int>(reinterpret_cast<intptr_t>(hwndOwner)), dwPermanentProviderID);
        },
        []() -> LONG { return 0; });
}

template <class Work>
LONG ui_entry(const char* name, LibraryEnd end, Work work) {
    return provider_entry(
        name, TRACE_TUISPI_EXIT, end, [&] { TRACE(TRACE_TUISPI_ENTER, "%s", name); }, work);
}

// Appends what fits.
void append_path(wchar_t* path, const wchar_t* part) {
    wcsncat(path, part, UI_PATH_LENGTH - 1 - wcslen(path));
}

void ui_module_path(wchar_t* path) {
    const DWORD length = GetEnvironmentVariableW(L"windir", path, UI_PATH_LENGTH);
    if (length == 0 || length >= UI_PATH_LENGTH) path[0] = L'\0';
    append_path(path, L"\\system32\\");
    append_path(path, PROVIDER_FILE);
    TRACE(TRACE_INFO, "TSPI_providerUIIdentify lpszUIDLLName: %ls", path);
}

// What the board's control-panel module offers: (its own handle, owner window) -> negative on failure.
using PropertySheetProc = int32_t(WINAPI*)(HMODULE, HWND);

int32_t show_property_sheet(HWND owner) {
    const Module module(LoadLibraryW(PROPERTY_SHEET_MODULE));
    if (!module) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "LoadLibrary(%ls) failed, err=%d", PROPERTY_SHEET_MODULE, error);
        return 1;
    }
    const auto do_prop_sheet = export_of<PropertySheetProc>(module, "do_prop_sheet");
    if (!do_prop_sheet) {
        const DWORD error = GetLastError();
        TRACE(TRACE_INFO, "GetProcAddr(do_prop_sheet) failed, err=%d", error);
        return 1;
    }
    return do_prop_sheet(module.get(), owner) < 0 ? 1 : 0;
}

}  // namespace

int32_t display_prop_sheet(HWND owner) {
    constexpr char name[] = "display_prop_sheet";
    TRACE(TRACE_FUNCTION_ENTER, name);
    const int32_t result = show_property_sheet(owner);
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, result);
    return result;
}

// Installation and removal close the library bracket also when TSPI_providerInit has left it open.

extern "C" LONG WINAPI TSPI_providerInstall(HWND hwndOwner, DWORD dwPermanentProviderID) {
    return provider_does_nothing(__func__, LibraryEnd::Always, hwndOwner, dwPermanentProviderID);
}

extern "C" LONG WINAPI TSPI_providerRemove(HWND hwndOwner, DWORD dwPermanentProviderID) {
    return provider_does_nothing(__func__, LibraryEnd::Always, hwndOwner, dwPermanentProviderID);
}

extern "C" LONG WINAPI TSPI_providerConfig(HWND hwndOwner, DWORD dwPermanentProviderID) {
    return provider_does_nothing(__func__, LibraryEnd::UnlessOpenedBefore, hwndOwner, dwPermanentProviderID);
}

// Writes the path of the user-interface module into a buffer of 260 characters.
extern "C" LONG WINAPI TSPI_providerUIIdentify(LPWSTR lpszUIDLLName) {
    const char* name = __func__;
    return provider_entry(
        name, TRACE_PROVIDER_EXIT, LibraryEnd::UnlessOpenedBefore, [&] { TRACE(TRACE_PROVIDER_ENTER, "%s", name); },
        [&]() -> LONG {
            ui_module_path(lpszUIDLLName);
            return 0;
        });
}

// Writes the permanent provider ID, 32 bits, at lpParams.
extern "C" LONG WINAPI TSPI_providerGenericDialogData(DWORD_PTR dwObjectID, DWORD dwObjectType, LPVOID lpParams,
                                                      DWORD dwSize) {
    const char* name = __func__;
    return provider_entry(
        name, TRACE_PROVIDER_EXIT, LibraryEnd::UnlessOpenedBefore,
        [&] {
            TRACE(TRACE_PROVIDER_ENTER, "%s: dwObjectID(%d), dwObjectType(%d), dwSize(%d)", name,
                  static_cast<int>(dwObjectID), dwObjectType, dwSize);
        },
        [&]() -> LONG {
            *static_cast<DWORD*>(lpParams) = globals.gdwPermanentProviderID;
            return 0;
        });
}

extern "C" LONG WINAPI TUISPI_providerInstall(TUISPIDLLCALLBACK, HWND, DWORD) {
    return ui_entry(__func__, LibraryEnd::UnlessOpenedBefore, [] { return ProviderInstall(PROVIDER_FILE, 1); });
}

extern "C" LONG WINAPI TUISPI_providerRemove(TUISPIDLLCALLBACK, HWND, DWORD) {
    return ui_entry(__func__, LibraryEnd::Always, []() -> LONG { return 0; });
}

extern "C" LONG WINAPI TUISPI_providerConfig(TUISPIDLLCALLBACK, HWND, DWORD) {
    return ui_entry(__func__, LibraryEnd::UnlessOpenedBefore, []() -> LONG { return 0; });
}

// One property sheet serves all lines.
extern "C" LONG WINAPI TUISPI_lineConfigDialog(TUISPIDLLCALLBACK, DWORD, HWND hwndOwner, LPCWSTR) {
    return ui_entry(__func__, LibraryEnd::UnlessOpenedBefore,
                    [&]() -> LONG { return display_prop_sheet(hwndOwner) == 0 ? 0 : LINEERR_OPERATIONFAILED; });
}
