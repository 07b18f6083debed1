#include "provider_exports.h"

namespace harness {

namespace {

template <class Function>
Function find(HMODULE provider, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(provider, name)));
}

}  // namespace

std::string provider_path() {
    char path[MAX_PATH] = "";
    const DWORD length = GetEnvironmentVariableA("QORV_PROVIDER", path, MAX_PATH);
    if (length > 0 && length < MAX_PATH) return path;
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder = path;
    folder.erase(folder.rfind('\\'));
    return folder + "\\..\\..\\bin\\qorvtsp.tsp";
}

ProviderExports find_exports(HMODULE provider) {
    ProviderExports exports;
#define X(name) exports.name = find<decltype(&::name)>(provider, #name);
    PROVIDER_EXPORTS(X)
#undef X
    return exports;
}

}  // namespace harness
