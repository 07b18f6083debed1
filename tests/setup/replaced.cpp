#include "replaced.h"

#include <gtest/gtest.h>
// tapi.h wants windows.h first.
#include <tapi.h>

#include <cstring>
#include <map>

namespace {

Replaced* the_replaced;
std::map<std::string, void*> found_functions;
decltype(&GetProcAddress) original_get_proc_address;

FARPROC WINAPI get_proc_address(HMODULE module, const char* name) {
    const auto found = found_functions.find(name);
    if (found == found_functions.end()) return original_get_proc_address(module, name);
    if (!found->second) SetLastError(ERROR_PROC_NOT_FOUND);
    return reinterpret_cast<FARPROC>(found->second);
}

DWORD size_of(const std::wstring& text) {
    return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

DWORD needed_size(const std::vector<TapiProvider>& providers) {
    DWORD size = sizeof(LINEPROVIDERLIST);
    for (const TapiProvider& provider : providers) size += sizeof(LINEPROVIDERENTRY) + size_of(provider.file_name);
    return size;
}

// As TAPI fills it: the entries behind the head, the names behind the entries.
void fill(LINEPROVIDERLIST* list, const std::vector<TapiProvider>& providers) {
    const auto count = static_cast<DWORD>(providers.size());
    list->dwNumProviders = count;
    list->dwProviderListSize = count * sizeof(LINEPROVIDERENTRY);
    list->dwProviderListOffset = sizeof(LINEPROVIDERLIST);
    auto* start = reinterpret_cast<char*>(list);
    auto* entries = reinterpret_cast<LINEPROVIDERENTRY*>(start + list->dwProviderListOffset);
    DWORD end = list->dwProviderListOffset + list->dwProviderListSize;
    for (DWORD i = 0; i < count; ++i) {
        const std::wstring& name = providers[i].file_name;
        entries[i] = {providers[i].permanent_id, size_of(name), end};
        std::memcpy(start + end, name.c_str(), size_of(name));
        end += size_of(name);
    }
    list->dwUsedSize = end;
}

LONG WINAPI get_provider_list(DWORD version, LINEPROVIDERLIST* list) {
    TapiList& tapi = the_replaced->tapi;
    ++tapi.asked;
    EXPECT_EQ(0x00020000u, version);
    if (tapi.error != 0) return tapi.error;
    list->dwNeededSize = needed_size(tapi.providers);
    list->dwUsedSize = sizeof(LINEPROVIDERLIST);
    if (list->dwTotalSize >= list->dwNeededSize) fill(list, tapi.providers);
    return 0;
}

}  // namespace

Replaced::Replaced() : imports_(GetModuleHandleW(nullptr)) {
    the_replaced = this;
    original_get_proc_address = reinterpret_cast<decltype(&GetProcAddress)>(imports_.original("GetProcAddress"));
    imported("GetProcAddress", reinterpret_cast<void*>(&get_proc_address));
    found("lineGetProviderListW", reinterpret_cast<void*>(&get_provider_list));
}

Replaced::~Replaced() {
    imports_.restore();
    found_functions.clear();
    the_replaced = nullptr;
}

void Replaced::found(const std::string& name, void* function) {
    found_functions[name] = function;
}

void Replaced::imported(const std::string& name, void* function) {
    ASSERT_TRUE(imports_.replace(name, function)) << name;
}
