// A module that is loaded for as long as it is needed.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

struct UnloadModule {
    void operator()(HMODULE module) const { FreeLibrary(module); }
};
using Module = std::unique_ptr<std::remove_pointer_t<HMODULE>, UnloadModule>;

// Null when the module has no such export.
template <class Function>
Function export_of(const Module& module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module.get(), name)));
}
