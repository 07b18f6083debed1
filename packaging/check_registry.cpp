// What Windows keeps about the provider: the event source, the fax service's devices; and the panic file's folder.
#include "check_parts.h"
#include "event_source.h"
#include "machine.h"
#include "registry.h"
#include "text.h"

namespace {

constexpr wchar_t FAX_DEVICES[] = L"SOFTWARE\\Microsoft\\Fax\\Devices";

std::wstring expanded(const TextValue& value) {
    return value.type == REG_EXPAND_SZ ? with_environment(value.text) : value.text;
}

void check_source_file(HKEY key, const wchar_t* name, std::vector<std::string>& troubles) {
    const std::optional<TextValue> value = text_value(key, name);
    if (!value) {
        troubles.push_back("it has no " + utf8(name));
    } else if (_wcsicmp(expanded(*value).c_str(), in_system_folder(PROVIDER_FILE).c_str()) != 0) {
        troubles.push_back("its " + utf8(name) + " is " + utf8(value->text));
    }
}

void check_source_number(HKEY key, const EventSourceNumber& expected, std::vector<std::string>& troubles) {
    const std::optional<DWORD> value = number_value(key, expected.name);
    if (!value) {
        troubles.push_back("it has no " + utf8(expected.name));
    } else if (*value != expected.value) {
        troubles.push_back(format("its %s is %lu, not %lu", utf8(expected.name).c_str(), *value, expected.value));
    }
}

// "line 0x00050000 2 rings", as the provider finds them: in the device's first subkey. Empty when it names no line.
std::string device_text(const std::wstring& device_path) {
    const MachineKey device = machine_key(device_path);
    const std::optional<std::wstring> first = device.key ? subkey_name(device.key.get(), 0) : std::nullopt;
    if (!first) return "";
    const MachineKey settings = machine_key(device_path + L"\\" + *first);
    const std::optional<DWORD> line =
        settings.key ? number_value(settings.key.get(), L"TAPI Permanent Lineid") : std::nullopt;
    if (!line) return "";
    const DWORD rings = number_value(settings.key.get(), L"Rings").value_or(1);
    return format("line 0x%08lX %lu ring%s", *line, rings, rings == 1 ? "" : "s");
}

}  // namespace

CheckResult check_event_source() {
    const std::string name = "event source";
    const MachineKey source = machine_key(EVENT_SOURCE_KEY);
    if (source.error == ERROR_ACCESS_DENIED) return hidden(name, "the event source");
    if (source.error != 0) {
        return {name, Verdict::attention, "it is not registered: event log entries come without their text",
                "qorvsetup install"};
    }
    std::vector<std::string> troubles;
    for (const wchar_t* file : EVENT_FILE_VALUES) check_source_file(source.key.get(), file, troubles);
    for (const EventSourceNumber& number : EVENT_NUMBERS) check_source_number(source.key.get(), number, troubles);
    if (!is_file(in_system_folder(PROVIDER_FILE))) troubles.emplace_back("the file with its texts is missing");
    if (!troubles.empty()) return {name, Verdict::attention, first_few(troubles), "qorvsetup install"};
    return {name, Verdict::good, "registered, its texts are in qorvtsp.tsp", ""};
}

CheckResult check_panic_folder() {
    const std::string name = "panic file";
    const std::string folder = utf8(system_folder().substr(0, 2)) + "\\temp";
    if (is_folder(L"\\temp")) return {name, Verdict::good, folder + "\\QorvTspPanic.txt can be written", ""};
    return {name, Verdict::attention, "there is no folder " + folder + ": the provider writes no panic file",
            "mkdir " + folder};
}

CheckResult check_fax_devices() {
    const std::string name = "fax devices";
    const MachineKey devices = machine_key(FAX_DEVICES);
    if (devices.error == ERROR_ACCESS_DENIED) return hidden(name, "HKLM\\" + utf8(FAX_DEVICES));
    std::string text;
    for (DWORD index = 0; devices.key; ++index) {
        const std::optional<std::wstring> device = subkey_name(devices.key.get(), index);
        if (!device) break;
        const std::string found = device_text(std::wstring(FAX_DEVICES) + L"\\" + *device);
        if (!found.empty()) text += (text.empty() ? "" : ", ") + found;
    }
    if (!text.empty()) return {name, Verdict::good, text, ""};
    return {name, Verdict::attention, "the fax service knows none: every line rings once",
            "start the fax service once telephony has the provider: net start fax"};
}
