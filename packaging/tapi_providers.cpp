// TAPI's list of providers. tapi32.dll is loaded by hand: it is no part of every Windows server.
#include "tapi_providers.h"

#include <windows.h>
// tapi.h wants windows.h first.
#include <tapi.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <memory>

#include "owned.h"

namespace {

constexpr DWORD API_VERSION = 0x00020000;
constexpr DWORD USUAL_LIST_SIZE = 4096;

// A record with its variable part behind it.
using ListBuffer = std::unique_ptr<LINEPROVIDERLIST, decltype(&std::free)>;

ListBuffer list_buffer(DWORD size) {
    ListBuffer list(static_cast<LINEPROVIDERLIST*>(std::calloc(1, size)), &std::free);
    if (list) list->dwTotalSize = size;
    return list;
}

const LINEPROVIDERENTRY* entries_of(const LINEPROVIDERLIST* list) {
    const char* start = reinterpret_cast<const char*>(list);
    return reinterpret_cast<const LINEPROVIDERENTRY*>(start + list->dwProviderListOffset);
}

std::wstring file_name_of(const LINEPROVIDERLIST* list, const LINEPROVIDERENTRY& entry) {
    const auto* name =
        reinterpret_cast<const wchar_t*>(reinterpret_cast<const char*>(list) + entry.dwProviderFilenameOffset);
    return std::wstring(name, wcsnlen(name, entry.dwProviderFilenameSize / sizeof(wchar_t)));
}

TapiProviders providers_of(const LINEPROVIDERLIST* list) {
    TapiProviders result;
    const LINEPROVIDERENTRY* entries = entries_of(list);
    for (DWORD i = 0; i < list->dwNumProviders; ++i) {
        result.providers.push_back({entries[i].dwPermanentProviderID, file_name_of(list, entries[i])});
    }
    return result;
}

TapiProviders with_error(LONG error) {
    TapiProviders result;
    result.error = static_cast<uint32_t>(error);
    return result;
}

}  // namespace

TapiProviders tapi_providers() {
    const OwnedModule tapi(LoadLibraryExW(L"tapi32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    if (!tapi) return with_error(static_cast<LONG>(LINEERR_OPERATIONUNAVAIL));
    const auto get_list = reinterpret_cast<decltype(&lineGetProviderListW)>(
        reinterpret_cast<void*>(GetProcAddress(tapi.get(), "lineGetProviderListW")));
    if (!get_list) return with_error(static_cast<LONG>(LINEERR_OPERATIONUNAVAIL));

    // Once more with more room for as long as somebody adds providers faster than they can be listed.
    for (DWORD size = USUAL_LIST_SIZE;;) {
        const ListBuffer list = list_buffer(size);
        if (!list) return with_error(static_cast<LONG>(LINEERR_NOMEM));
        const LONG error = get_list(API_VERSION, list.get());
        if (list->dwNeededSize > size) {
            size = list->dwNeededSize;
            continue;
        }
        return error == 0 ? providers_of(list.get()) : with_error(error);
    }
}

const TapiProvider* find_provider(const TapiProviders& list, const std::wstring& file_name) {
    const auto found = std::find_if(list.providers.begin(), list.providers.end(), [&](const TapiProvider& provider) {
        const std::wstring& path = provider.file_name;
        return _wcsicmp(path.c_str() + (path.find_last_of(L'\\') + 1), file_name.c_str()) == 0;
    });
    return found == list.providers.end() ? nullptr : &*found;
}
