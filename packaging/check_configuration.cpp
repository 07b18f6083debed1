// The call configuration file, found the way the provider finds it before every reset.
#include <cstdlib>

#include "call_configuration.h"
#include "check_parts.h"
#include "machine.h"
#include "registry.h"
#include "text.h"

namespace {

constexpr size_t DRIVER_PATH_SIZE = 260;

std::string key_name() {
    return "HKLM\\" + utf8(PARAMETERS_KEY);
}

// The provider converts the path in the locale "C", which ends it at the first character that has no single byte.
void pass_on(Configuration& configuration) {
    if (configuration.path.size() > CONFIGURATION_PATH_LIMIT) return;
    char path[DRIVER_PATH_SIZE + 1] = {};
    configuration.passed_on =
        std::wcstombs(path, configuration.path.c_str(), DRIVER_PATH_SIZE) != static_cast<size_t>(-1);
    configuration.driver_path = path;
}

}  // namespace

Configuration look_at_configuration() {
    Configuration configuration;
    const MachineKey key = machine_key(PARAMETERS_KEY);
    configuration.key_error = key.error;
    if (key.error != 0) return configuration;
    const std::optional<TextValue> value = text_value(key.key.get(), CONFIGURATION_VALUE);
    configuration.named = value.has_value();
    if (!value) return configuration;
    configuration.path = value->text;
    pass_on(configuration);
    return configuration;
}

CheckResult check_configuration_key(const Configuration& configuration) {
    const std::string name = "configuration key";
    if (configuration.key_error == ERROR_ACCESS_DENIED) return hidden(name, key_name());
    if (configuration.key_error == ERROR_FILE_NOT_FOUND) {
        return {name, Verdict::wrong, "there is no " + key_name(), BOARD_ADVICE};
    }
    if (configuration.key_error != 0) {
        return {name, Verdict::wrong, key_name() + " cannot be read: " + windows_error(configuration.key_error), ""};
    }
    return {name, Verdict::good, key_name(), ""};
}

CheckResult check_configuration_file(const Configuration& configuration) {
    const std::string name = "configuration file";
    const std::string path = utf8(configuration.path);
    if (configuration.key_error != 0) return {name, Verdict::not_tried, "the registry key above names it", ""};
    if (!configuration.named) {
        return {name, Verdict::wrong, "the registry key above has no value kxcall to name it", BOARD_ADVICE};
    }
    if (configuration.path.size() > CONFIGURATION_PATH_LIMIT) {
        return {name, Verdict::wrong,
                format("kxcall has %zu characters, the provider reads %zu at most", configuration.path.size(),
                       CONFIGURATION_PATH_LIMIT),
                "give the file a shorter path, and kxcall too"};
    }
    if (!configuration.passed_on) {
        return {name, Verdict::wrong, "kxcall has a character that the provider cannot hand on: " + path,
                "give the file a path in plain letters, and kxcall too"};
    }
    const OwnedHandle file = owned_file(CreateFileA(configuration.driver_path.c_str(), GENERIC_READ,
                                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return {name, Verdict::wrong, "kxcall names \"" + path + "\": " + windows_error(GetLastError()),
                "put the file there, readable for NETWORK SERVICE, or change kxcall, in which nothing is expanded"};
    }
    return {name, Verdict::good, "kxcall names " + path, ""};
}
