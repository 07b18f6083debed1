// An in-memory registry under HKEY_LOCAL_MACHINE.
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "fake_windows.h"
#include "journal.h"
#include "text.h"

namespace harness {

namespace {

const std::wstring kRoot = L"HKLM";

// An open key is its path on the heap.
const std::wstring& path_of(HKEY key) {
    return key == HKEY_LOCAL_MACHINE ? kRoot : *reinterpret_cast<std::wstring*>(key);
}

FakeRegistry::Key* find(const std::wstring& path) {
    auto& keys = windows.registry.keys;
    auto key = std::find_if(keys.begin(), keys.end(), [&](const FakeRegistry::Key& known) {
        return _wcsicmp(known.path.c_str(), path.c_str()) == 0;
    });
    return key == keys.end() ? nullptr : &*key;
}

std::wstring joined(const std::wstring& path, LPCWSTR below) {
    return below && *below ? path + L"\\" + below : path;
}

LSTATUS WINAPI open_key(HKEY parent, LPCWSTR below, DWORD, REGSAM access, PHKEY opened) {
    std::wstring path = joined(path_of(parent), below);
    journal_windows("RegOpenKeyExW(" + quoted(path.c_str()) + text(", 0x%lX)", access));
    FakeRegistry::Key* key = find(path);
    if (!key) return ERROR_FILE_NOT_FOUND;
    if (key->open_error) return static_cast<LSTATUS>(key->open_error);
    *opened = reinterpret_cast<HKEY>(new std::wstring(path));
    ++windows.registry.open_keys;
    return ERROR_SUCCESS;
}

LSTATUS WINAPI enumerate_key(HKEY parent, DWORD index, LPWSTR name, LPDWORD name_size, LPDWORD, LPWSTR, LPDWORD,
                             PFILETIME) {
    std::wstring prefix = path_of(parent) + L"\\";
    journal_windows("RegEnumKeyExW(" + quoted(path_of(parent).c_str()) + text(", %lu)", index));
    for (const FakeRegistry::Key& key : windows.registry.keys) {
        if (_wcsnicmp(key.path.c_str(), prefix.c_str(), prefix.size()) != 0) continue;
        std::wstring below = key.path.substr(prefix.size());
        if (below.find(L'\\') != std::wstring::npos || index-- != 0) continue;
        if (*name_size <= below.size()) return ERROR_MORE_DATA;
        std::wcscpy(name, below.c_str());
        *name_size = static_cast<DWORD>(below.size());
        return ERROR_SUCCESS;
    }
    return ERROR_NO_MORE_ITEMS;
}

LSTATUS WINAPI query_value(HKEY key, LPCWSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size) {
    journal_windows("RegQueryValueExW(" + quoted(path_of(key).c_str()) + ", " + quoted(name) + ")");
    FakeRegistry::Key* known = find(path_of(key));
    if (!known || !known->values.count(name)) return ERROR_FILE_NOT_FOUND;
    const std::vector<uint8_t>& value = known->values[name];
    DWORD room = size ? *size : 0;
    if (type) *type = known->types[name];
    if (size) *size = static_cast<DWORD>(value.size());
    if (!data) return ERROR_SUCCESS;
    // A value that is too long leaves something of itself behind.
    std::memcpy(data, value.data(), std::min<size_t>(room, value.size()));
    if (room < value.size()) return ERROR_MORE_DATA;
    return ERROR_SUCCESS;
}

LSTATUS WINAPI close_key(HKEY key) {
    journal_windows("RegCloseKey(" + quoted(path_of(key).c_str()) + ")");
    if (key == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
    --windows.registry.open_keys;
    delete reinterpret_cast<std::wstring*>(key);
    return ERROR_SUCCESS;
}

}  // namespace

FakeRegistry::Key& FakeRegistry::key(const std::wstring& path) {
    for (Key& known : keys)
        if (known.path == path) return known;
    size_t end = path.rfind(L'\\');
    if (end != std::wstring::npos) key(path.substr(0, end));
    keys.push_back({path});
    return keys.back();
}

void FakeRegistry::set(const std::wstring& path, const std::wstring& name, DWORD value) {
    auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    key(path).values[name] = std::vector<uint8_t>(bytes, bytes + sizeof(value));
    key(path).types[name] = REG_DWORD;
}

void FakeRegistry::set(const std::wstring& path, const std::wstring& name, const std::wstring& value) {
    auto* bytes = reinterpret_cast<const uint8_t*>(value.c_str());
    key(path).values[name] = std::vector<uint8_t>(bytes, bytes + (value.size() + 1) * sizeof(wchar_t));
    key(path).types[name] = REG_SZ;
}

void FakeRegistry::remove(const std::wstring& path) {
    keys.erase(
        std::remove_if(keys.begin(), keys.end(),
                       [&](const Key& known) { return known.path == path || known.path.rfind(path + L"\\", 0) == 0; }),
        keys.end());
}

Fakes registry_fakes() {
    return {fake("RegOpenKeyExW", open_key), fake("RegEnumKeyExW", enumerate_key),
            fake("RegQueryValueExW", query_value), fake("RegCloseKey", close_key)};
}

}  // namespace harness
