// The channels, found, attached and reset as the provider does when it starts.
#include <cstring>
#include <memory>
#include <thread>

#include "check_parts.h"
#include "program.h"
#include "text.h"

namespace {

constexpr uint32_t FIRST_MODULE = 2;
constexpr uint32_t LAST_MODULE = 126;
constexpr uint32_t LAST_MODULE_EXPANDED = 254;
constexpr int CAPABILITY_FIRMWARE = 14;

// The library is up for as long as it lives.
struct DriverUse {
    explicit DriverUse(const DriverLibrary& used) : driver(used) {
        *driver._dorn_api_ver_compiled = DORN_API_VER_COMPILED;
        *driver._dorn_api_ver_bld_comp = DORN_API_VER_BLD_COMP;
        *driver._dorn_api_ver_auto_comp = DORN_API_VER_AUTO_COMP;
        error = driver.DornInitialize();
    }
    ~DriverUse() {
        if (error == 0) driver.DornShutdown();
    }
    DriverUse(const DriverUse&) = delete;
    DriverUse& operator=(const DriverUse&) = delete;

    const DriverLibrary& driver;
    int error;
};

struct LineDetacher {
    const DriverLibrary* driver;
    void operator()(DornLine* line) const {
        DornAttachRecord zeroed{};
        driver->DornSessionDetach(line, &zeroed);
    }
};

std::vector<uint32_t> find_channels(const DriverLibrary& driver) {
    std::vector<uint32_t> channels;
    const uint32_t last = *driver._dorn_pkt_version_exp != 0 ? LAST_MODULE_EXPANDED : LAST_MODULE;
    for (uint32_t module = FIRST_MODULE; module <= last; ++module) {
        DornModuleInfoRecord info{};
        info.dwModule = module;
        driver.DornModuleInfo(nullptr, &info);
        if (info.status != 0 || !info.dwPresence[0] || !info.dwPresence[1] || !info.dwPresence[2]) continue;
        for (uint32_t i = 0; i < info.dwChannelCount; ++i) channels.push_back(info.dwFirstChannel + i);
    }
    return channels;
}

struct Trial {
    uint32_t channel;
    std::unique_ptr<DornLine, LineDetacher> line;
    std::string trouble;  // empty when there is none
};

std::vector<Trial> attach_channels(const DriverLibrary& driver) {
    std::vector<Trial> trials;
    for (const uint32_t channel : find_channels(driver)) {
        DornAttachRecord attach{};
        attach.dwChannel = channel;
        DornLine* line = driver.DornLineAttach(&attach);
        trials.push_back({channel, {line, {&driver}}, line ? "" : "cannot be attached"});
    }
    return trials;
}

void reset_channel(const DriverLibrary& driver, const std::string& configuration, Trial& trial) {
    DornResetRecord reset{};
    reset.szConfiguration = configuration.c_str();
    if (driver.DornLineReset(trial.line.get(), &reset) < 0) {
        const char* message = driver.DornErrorMessage(trial.line.get());
        trial.trouble = "cannot be reset (" + utf8_of_ansi(message, std::strlen(message)) + ")";
    } else if (!driver.DornLineCapCheck(trial.line.get(), CAPABILITY_FIRMWARE)) {
        trial.trouble = "has no firmware";
    }
    trial.line.reset();
}

// Side by side, as at start-up: a reset may take seconds.
void reset_channels(const DriverLibrary& driver, const std::string& configuration, std::vector<Trial>& trials) {
    std::vector<std::thread> threads;
    for (Trial& trial : trials) {
        if (trial.line) threads.emplace_back([&] { reset_channel(driver, configuration, trial); });
    }
    for (std::thread& thread : threads) thread.join();
}

bool telephony_host_runs() {
    const OwnedHandle mutex(OpenMutexW(SYNCHRONIZE, FALSE, TELEPHONY_HOST_MUTEX));
    return mutex || GetLastError() == ERROR_ACCESS_DENIED;
}

CheckResult try_channels(const std::string& name, const DriverLibrary& driver, const std::string& configuration) {
    const DriverUse use(driver);
    if (use.error != 0) {
        return {name, Verdict::wrong, format("the driver library does not start: DornInitialize gives %d", use.error),
                "the board maker's software tells the state of the boards"};
    }
    std::vector<Trial> trials = attach_channels(driver);
    if (trials.empty()) {
        return {name, Verdict::wrong, "the driver library has none",
                "the board maker's software tells the state of the boards; the software board's channels are in "
                "softboard.ini beside calddlld.dll"};
    }
    reset_channels(driver, configuration, trials);
    std::vector<std::string> troubles;
    for (const Trial& trial : trials) {
        if (!trial.trouble.empty()) troubles.push_back(format("channel %u ", trial.channel) + trial.trouble);
    }
    if (troubles.empty()) return {name, Verdict::good, format("%zu attach and reset", trials.size()), ""};
    return {name, Verdict::wrong, format("%zu of %zu fail: ", troubles.size(), trials.size()) + first_few(troubles),
            "the board maker's software tells the state of the boards; a reset needs the configuration file above"};
}

}  // namespace

CheckResult check_channels(const DriverLibrary& driver, const Configuration& configuration,
                           const Telephony& telephony) {
    const std::string name = "channels";
    if (!driver.module) return {name, Verdict::not_tried, "the driver library must be in order first", ""};
    // A list that cannot be had may name the provider.
    if (telephony.service_runs && (telephony.registered || telephony.list_error != 0)) {
        return {name, Verdict::not_tried, "the telephony service is using them",
                "to try them: net stop tapisrv, then once more qorvsetup check"};
    }
    if (telephony_host_runs()) {
        return {name, Verdict::not_tried, "faxhost is using them", "end it, then once more qorvsetup check"};
    }
    if (configuration.key_error != 0) {
        return {name, Verdict::not_tried, "without the configuration key the provider resets none", ""};
    }
    return try_channels(name, driver, configuration.driver_path);
}
