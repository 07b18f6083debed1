// The modules that the provider loads by name, with what they export, and the environment.
#include <windows.h>
// tapi.h wants windows.h first.
#include <tapi.h>

#include <algorithm>
#include <cstring>

#include "fake_windows.h"
#include "journal.h"
#include "text.h"

namespace harness {

namespace {

// The handle of a module is the address of its state in the map.
HMODULE handle_of(FakeModule& module) {
    return reinterpret_cast<HMODULE>(&module);
}

// Null for the modules that are none of the fakes'.
const std::pair<const std::wstring, FakeModule>* find(HMODULE handle) {
    for (auto& known : windows.modules)
        if (handle_of(known.second) == handle) return &known;
    return nullptr;
}

FakeModule& loaded(const std::wstring& name, const char* call) {
    FakeModule& module = windows.modules[name];
    if (module.loaded <= 0) problem(std::string(call) + ": " + narrow(name.c_str()) + " is not loaded");
    return module;
}

// The first of a script, which is used up; the fallback when there is none.
template <class Value>
Value next_of(std::deque<Value>& script, Value fallback) {
    if (script.empty()) return fallback;
    Value value = script.front();
    script.pop_front();
    return value;
}

// ---- what the modules export --------------------------------------------------------------------------------------

DWORD size_of(const std::wstring& file) {
    return static_cast<DWORD>((file.size() + 1) * sizeof(wchar_t));
}

// The list as a whole: its entries behind the fixed part, their names behind the entries in reverse order, so that
// only the offsets tell which name is whose.
void fill(LINEPROVIDERLIST* list, DWORD size) {
    const auto& files = windows.providers.files;
    auto* start = reinterpret_cast<uint8_t*>(list);
    auto* entries = reinterpret_cast<LINEPROVIDERENTRY*>(list + 1);
    DWORD end = size;
    list->dwUsedSize = size;
    list->dwNumProviders = static_cast<DWORD>(files.size());
    list->dwProviderListSize = static_cast<DWORD>(files.size() * sizeof(LINEPROVIDERENTRY));
    list->dwProviderListOffset = sizeof(LINEPROVIDERLIST);
    for (size_t i = 0; i < files.size(); ++i) {
        end -= size_of(files[i]);
        std::memcpy(start + end, files[i].c_str(), size_of(files[i]));
        entries[i] = {static_cast<DWORD>(i + 1), size_of(files[i]), end};
    }
}

LONG WINAPI list_providers(DWORD version, LINEPROVIDERLIST* list) {
    journal_windows(text("lineGetProviderListW(0x%lX, %lu bytes)", version, list->dwTotalSize));
    loaded(L"tapi32.dll", "lineGetProviderListW");
    if (windows.providers.on_call) windows.providers.on_call();
    const auto* bytes = reinterpret_cast<const uint8_t*>(list);
    if (std::any_of(bytes + sizeof(DWORD), bytes + list->dwTotalSize, [](uint8_t byte) { return byte != 0; }))
        problem("lineGetProviderListW: the list was not cleared");
    if (LONG failure = next_of(windows.providers.failures, LONG{0})) return failure;

    DWORD size = sizeof(LINEPROVIDERLIST) + next_of(windows.providers.growth, DWORD{0});
    for (const std::wstring& file : windows.providers.files) size += sizeof(LINEPROVIDERENTRY) + size_of(file);
    list->dwNeededSize = size;
    if (size <= list->dwTotalSize)
        fill(list, size);
    else
        list->dwUsedSize = sizeof(LINEPROVIDERLIST);
    return 0;
}

int32_t WINAPI show_sheet(HMODULE module, HWND owner) {
    const auto* known = find(module);
    journal_windows("do_prop_sheet(" + (known ? narrow(known->first.c_str()) : "unknown handle") + ", " +
                    name_of(owner) + ")");
    loaded(L"qorvconf.cpl", "do_prop_sheet");
    return windows.property_sheet(owner);
}

struct Export {
    const wchar_t* module;
    const char* name;
    FARPROC address;
};
const Export kExports[] = {
    {L"tapi32.dll", "lineGetProviderListW", reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&list_providers))},
    {L"qorvconf.cpl", "do_prop_sheet", reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&show_sheet))},
};

// ---- loading them -------------------------------------------------------------------------------------------------

HMODULE WINAPI load_library(LPCWSTR name) {
    auto known = windows.modules.find(name);
    if (known == windows.modules.end()) return LoadLibraryW(name);
    FakeModule& module = known->second;
    journal_windows("LoadLibraryW(" + quoted(name) + ")" + (module.load_error ? " failed" : ""));
    if (module.load_error) {
        SetLastError(module.load_error);
        return nullptr;
    }
    ++module.loaded;
    return handle_of(module);
}

FARPROC WINAPI find_export(HMODULE handle, LPCSTR name) {
    const auto* known = find(handle);
    if (!known) return GetProcAddress(handle, name);
    DWORD error = loaded(known->first, "GetProcAddress").export_error;
    const auto* found = std::find_if(std::begin(kExports), std::end(kExports), [&](const Export& one) {
        return known->first == one.module && std::strcmp(one.name, name) == 0;
    });
    if (!error && found == std::end(kExports)) error = ERROR_PROC_NOT_FOUND;
    journal_windows("GetProcAddress(" + narrow(known->first.c_str()) + ", " + quoted(name) + ")" +
                    (error ? " failed" : ""));
    if (!error) return found->address;
    SetLastError(error);
    return nullptr;
}

BOOL WINAPI free_library(HMODULE handle) {
    const auto* known = find(handle);
    if (!known) return FreeLibrary(handle);
    journal_windows("FreeLibrary(" + narrow(known->first.c_str()) + ")");
    --loaded(known->first, "FreeLibrary").loaded;
    return TRUE;
}

// ---- the environment ----------------------------------------------------------------------------------------------

// A buffer that is too small, or whose variable is not there, holds rubbish afterwards: its contents are not defined.
DWORD WINAPI get_variable(LPCWSTR name, LPWSTR buffer, DWORD size) {
    if (std::wcscmp(name, L"windir") != 0) return GetEnvironmentVariableW(name, buffer, size);
    journal_windows("GetEnvironmentVariableW(" + quoted(name) + text(", %lu)", size));
    if (windows.on_windir) windows.on_windir();
    const auto& value = windows.windir;
    if (value && value->size() < size) {
        std::wcscpy(buffer, value->c_str());
        return static_cast<DWORD>(value->size());
    }
    std::fill_n(buffer, size, L'#');
    SetLastError(value ? ERROR_SUCCESS : ERROR_ENVVAR_NOT_FOUND);
    return value ? static_cast<DWORD>(value->size() + 1) : 0;
}

}  // namespace

Fakes module_fakes() {
    return {fake("LoadLibraryW", load_library), fake("GetProcAddress", find_export), fake("FreeLibrary", free_library),
            fake("GetEnvironmentVariableW", get_variable)};
}

}  // namespace harness
