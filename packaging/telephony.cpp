// tapi32.dll, loaded when needed: a machine without it can still be told so.
#include "telephony.h"

#include <tapi.h>

#include <memory>
#include <type_traits>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

constexpr DWORD TAPI_VERSION_2_0 = 0x00020000;

struct ModuleFreer {
    using pointer = HMODULE;
    void operator()(HMODULE module) const { FreeLibrary(module); }
};
using OwnedModule = std::unique_ptr<HMODULE, ModuleFreer>;

// A function of the system's tapi32.dll, which is loaded as long as this lives.
template <typename Function>
struct TapiFunction {
    explicit TapiFunction(const char* name)
        : module(LoadLibraryExW(L"tapi32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)),
          call(module ? reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module.get(), name)))
                      : nullptr) {}
    OwnedModule module;
    Function* call;
};

struct KnownProvider {
    DWORD dwPermanentProviderID;
    std::wstring file_name;  // without its folder
};

// TAPI's list, in a buffer that TAPI has said to be large enough.
LONG get_list(std::vector<DWORD>& buffer) {
    const TapiFunction<decltype(lineGetProviderListW)> list("lineGetProviderListW");
    if (!list.call) return static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
    buffer.assign(1024, 0);
    while (true) {
        auto* record = reinterpret_cast<LINEPROVIDERLIST*>(buffer.data());
        record->dwTotalSize = static_cast<DWORD>(buffer.size() * sizeof(DWORD));
        const LONG error = list.call(TAPI_VERSION_2_0, record);
        if (error != 0 || record->dwNeededSize <= record->dwTotalSize) return error;
        buffer.assign(record->dwNeededSize / sizeof(DWORD) + 1, 0);
    }
}

LONG known_providers(std::vector<KnownProvider>& providers) {
    std::vector<DWORD> buffer;
    if (const LONG error = get_list(buffer)) return error;
    const auto* bytes = reinterpret_cast<const BYTE*>(buffer.data());
    const auto* list = reinterpret_cast<const LINEPROVIDERLIST*>(bytes);
    const auto* entries = reinterpret_cast<const LINEPROVIDERENTRY*>(bytes + list->dwProviderListOffset);
    for (DWORD i = 0; i < list->dwNumProviders; ++i) {
        const auto* field = reinterpret_cast<const wchar_t*>(bytes + entries[i].dwProviderFilenameOffset);
        const std::wstring path(field, wcsnlen(field, entries[i].dwProviderFilenameSize / sizeof(wchar_t)));
        providers.push_back({entries[i].dwPermanentProviderID, path.substr(path.find_last_of(L'\\') + 1)});
    }
    return 0;
}

bool same_name(const std::wstring& one, const std::wstring& other) {
    return _wcsicmp(one.c_str(), other.c_str()) == 0;
}

}  // namespace

LONG telephony_has(const std::wstring& file_name, bool& has) {
    has = false;
    std::vector<KnownProvider> providers;
    const LONG error = known_providers(providers);
    for (const KnownProvider& provider : providers) has = has || same_name(provider.file_name, file_name);
    return error;
}

LONG telephony_add(const std::wstring& file_name) {
    const TapiFunction<decltype(lineAddProviderW)> add("lineAddProviderW");
    DWORD dwPermanentProviderID = 0;
    return add.call ? add.call(file_name.c_str(), nullptr, &dwPermanentProviderID)
                    : static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
}

LONG telephony_remove(const std::wstring& file_name) {
    std::vector<KnownProvider> providers;
    LONG error = known_providers(providers);
    if (error != 0) return telephony_exists() ? error : 0;
    const TapiFunction<decltype(lineRemoveProvider)> remove("lineRemoveProvider");
    for (const KnownProvider& provider : providers) {
        if (!same_name(provider.file_name, file_name)) continue;
        const LONG removed = remove.call ? remove.call(provider.dwPermanentProviderID, nullptr)
                                         : static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
        if (removed != 0) error = removed;
    }
    return error;
}

std::string telephony_error(LONG error) {
    return format("LINEERR 0x%08lX", static_cast<unsigned long>(error));
}

bool telephony_exists() {
    std::vector<DWORD> buffer;
    return get_list(buffer) == 0 || service_exists(L"TapiSrv");
}
