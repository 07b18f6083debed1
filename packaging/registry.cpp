// Registry access.
#include "registry.h"

#include <cstring>
#include <cwchar>

bool operator==(const RegistryValue& one, const RegistryValue& other) {
    return one.type == other.type && one.data == other.data;
}

static RegistryValue value_of_characters(const std::wstring& characters, DWORD type) {
    const auto* bytes = reinterpret_cast<const BYTE*>(characters.data());
    return {type, std::vector<BYTE>(bytes, bytes + characters.size() * sizeof(wchar_t))};
}

RegistryValue registry_text(const std::wstring& text, DWORD type) {
    return value_of_characters(text + L'\0', type);
}

RegistryValue registry_number(DWORD number) {
    const auto* bytes = reinterpret_cast<const BYTE*>(&number);
    return {REG_DWORD, std::vector<BYTE>(bytes, bytes + sizeof(number))};
}

std::wstring text_form(const RegistryValue& value) {
    if (value == RegistryValue()) return L"";
    std::wstring text = std::to_wstring(value.type) + L":";
    for (const BYTE byte : value.data) {
        wchar_t digits[3];
        swprintf(digits, std::size(digits), L"%02x", byte);
        text += digits;
    }
    return text;
}

RegistryValue registry_value_of(const std::wstring& text_form) {
    RegistryValue value;
    const size_t colon = text_form.find(L':');
    if (colon == std::wstring::npos) return value;
    value.type = wcstoul(text_form.c_str(), nullptr, 10);
    for (size_t i = colon + 1; i + 1 < text_form.size(); i += 2) {
        value.data.push_back(static_cast<BYTE>(wcstoul(text_form.substr(i, 2).c_str(), nullptr, 16)));
    }
    return value;
}

bool key_exists(const std::wstring& path) {
    OwnedKey key;
    return open_key(path, KEY_READ, key) == 0;
}

uint32_t open_key(const std::wstring& path, REGSAM access, OwnedKey& key) {
    HKEY raw = nullptr;
    const LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, &raw);
    key.reset(raw);
    return static_cast<uint32_t>(error);
}

uint32_t create_key(const std::wstring& path, OwnedKey& key) {
    HKEY raw = nullptr;
    const LSTATUS error =
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &raw, nullptr);
    key.reset(raw);
    return static_cast<uint32_t>(error);
}

RegistryValue read_value(HKEY key, const std::wstring& name) {
    RegistryValue value;
    DWORD size = 0;
    if (RegQueryValueExW(key, name.c_str(), nullptr, &value.type, nullptr, &size) != 0) return {};
    value.data.resize(size);
    if (RegQueryValueExW(key, name.c_str(), nullptr, &value.type, value.data.data(), &size) != 0) return {};
    value.data.resize(size);
    return value;
}

uint32_t write_value(HKEY key, const std::wstring& name, const RegistryValue& value) {
    if (value == RegistryValue()) {
        const LSTATUS error = RegDeleteValueW(key, name.c_str());
        return error == ERROR_FILE_NOT_FOUND ? 0 : static_cast<uint32_t>(error);
    }
    return static_cast<uint32_t>(
        RegSetValueExW(key, name.c_str(), 0, value.type, value.data.data(), static_cast<DWORD>(value.data.size())));
}

std::vector<std::wstring> read_lines(HKEY key, const std::wstring& name) {
    const RegistryValue value = read_value(key, name);
    std::vector<std::wstring> lines;
    const auto* text = reinterpret_cast<const wchar_t*>(value.data.data());
    const wchar_t* const end = text + value.data.size() / sizeof(wchar_t);
    while (text < end && *text) {
        const size_t length = wcsnlen(text, static_cast<size_t>(end - text));
        lines.emplace_back(text, length);
        text += length + 1;
    }
    return lines;
}

uint32_t write_lines(HKEY key, const std::wstring& name, const std::vector<std::wstring>& lines) {
    if (lines.empty()) return write_value(key, name, {});
    std::wstring text;
    for (const std::wstring& line : lines) text += line + L'\0';
    return write_value(key, name, value_of_characters(text + L'\0', REG_MULTI_SZ));
}

MachineKey machine_key(const std::wstring& path) {
    MachineKey result;
    result.error = open_key(path, KEY_READ, result.key);
    return result;
}

std::optional<TextValue> text_value(HKEY key, const std::wstring& name) {
    const RegistryValue value = read_value(key, name);
    if (value == RegistryValue()) return std::nullopt;
    const auto* text = reinterpret_cast<const wchar_t*>(value.data.data());
    return TextValue{value.type, std::wstring(text, wcsnlen(text, value.data.size() / sizeof(wchar_t)))};
}

std::optional<DWORD> number_value(HKEY key, const std::wstring& name) {
    const RegistryValue value = read_value(key, name);
    DWORD number = 0;
    if (value.data.size() != sizeof(number)) return std::nullopt;
    std::memcpy(&number, value.data.data(), sizeof(number));
    return number;
}

std::optional<std::wstring> subkey_name(HKEY key, DWORD index) {
    constexpr DWORD MAX_KEY_NAME = 256;  // characters, with the NUL
    wchar_t name[MAX_KEY_NAME];
    DWORD length = MAX_KEY_NAME;
    const LSTATUS error = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    return error == ERROR_SUCCESS ? std::optional<std::wstring>(name) : std::nullopt;
}

uint32_t delete_empty_key(const std::wstring& path) {
    OwnedKey key;
    uint32_t error = open_key(path, KEY_READ, key);
    if (error == ERROR_FILE_NOT_FOUND) return 0;
    if (error != 0) return error;
    DWORD keys = 0;
    DWORD values = 0;
    error = static_cast<uint32_t>(RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr,
                                                   &values, nullptr, nullptr, nullptr, nullptr));
    if (error != 0) return error;
    if (keys != 0 || values != 0) return ERROR_DIR_NOT_EMPTY;
    return static_cast<uint32_t>(RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str()));
}
