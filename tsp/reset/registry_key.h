// An open registry key that closes itself.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

struct CloseKey {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using RegistryKey = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

// Null when the key cannot be opened.
inline RegistryKey open_key(HKEY parent, const wchar_t* path, REGSAM access) {
    HKEY key = nullptr;
    return RegistryKey(RegOpenKeyExW(parent, path, 0, access, &key) == ERROR_SUCCESS ? key : nullptr);
}
