// The registry under HKEY_LOCAL_MACHINE. Functions that fail give the Windows error, else 0.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "owned.h"

// A value of any type. Without bytes and of type REG_NONE: there is none.
struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};
bool operator==(const RegistryValue& one, const RegistryValue& other);

RegistryValue registry_text(const std::wstring& text, DWORD type = REG_SZ);
RegistryValue registry_number(DWORD number);

// "TYPE:HEXADECIMAL BYTES", from which it can be made again; empty when there is no value.
std::wstring text_form(const RegistryValue& value);
RegistryValue registry_value_of(const std::wstring& text_form);

bool key_exists(const std::wstring& path);
uint32_t open_key(const std::wstring& path, REGSAM access, OwnedKey& key);
uint32_t create_key(const std::wstring& path, OwnedKey& key);

RegistryValue read_value(HKEY key, const std::wstring& name);
// Writes the value, or deletes it when it is none.
uint32_t write_value(HKEY key, const std::wstring& name, const RegistryValue& value);

// A list of texts, none of them empty. An empty list is no value.
std::vector<std::wstring> read_lines(HKEY key, const std::wstring& name);
uint32_t write_lines(HKEY key, const std::wstring& name, const std::vector<std::wstring>& lines);

// ---- for a look only ----------------------------------------------------------------------------------------------

struct MachineKey {
    uint32_t error = 0;
    OwnedKey key;
};
MachineKey machine_key(const std::wstring& path);

struct TextValue {
    DWORD type = REG_NONE;
    std::wstring text;  // up to its NUL, not expanded
};
// Nothing when there is no such value.
std::optional<TextValue> text_value(HKEY key, const std::wstring& name);
std::optional<DWORD> number_value(HKEY key, const std::wstring& name);
// The name of the key's subkey of this number, nothing behind the last one.
std::optional<std::wstring> subkey_name(HKEY key, DWORD index);

// ---- for a removal ------------------------------------------------------------------------------------------------

// Deletes the key unless something is in it: values or keys of somebody else's.
uint32_t delete_empty_key(const std::wstring& path);
