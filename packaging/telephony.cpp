// tapi32.dll, loaded when needed: a machine without it can still be told so.
#include "telephony.h"

#include <tapi.h>

#include "machine.h"
#include "owned.h"
#include "text.h"

namespace {

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

}  // namespace

LONG telephony_add(const std::wstring& file_name) {
    const TapiFunction<decltype(lineAddProviderW)> add("lineAddProviderW");
    DWORD dwPermanentProviderID = 0;
    return add.call ? add.call(file_name.c_str(), nullptr, &dwPermanentProviderID)
                    : static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
}

LONG telephony_remove(const std::wstring& file_name) {
    const TapiProviders list = tapi_providers();
    if (list.error != 0) return telephony_exists(list) ? static_cast<LONG>(list.error) : 0;
    const TapiProvider* provider = find_provider(list, file_name);
    if (!provider) return 0;
    const TapiFunction<decltype(lineRemoveProvider)> remove("lineRemoveProvider");
    return remove.call ? remove.call(provider->permanent_id, nullptr) : static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
}

std::string telephony_error(LONG error) {
    return format("LINEERR 0x%08lX", static_cast<unsigned long>(error));
}

bool telephony_exists(const TapiProviders& list) {
    return list.error == 0 || service_exists(L"TapiSrv");
}
