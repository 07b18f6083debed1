// The check-up as a whole, and its exit status.
#include "check.h"

#include <algorithm>

#include "check_parts.h"
#include "exit_status.h"
#include "machine.h"

std::vector<CheckResult> check_machine() {
    const ScopedSystemFolder folder;
    const Telephony telephony = look_at_telephony();
    const Configuration configuration = look_at_configuration();
    DriverLibrary driver;
    // The elements are made in this order.
    return {
        check_provider(),
        check_telephony(telephony),
        check_host_service(),
        check_fax_service(),
        check_configuration_key(configuration),
        check_configuration_file(configuration),
        check_driver_library(driver),
        check_event_source(),
        check_segment(),
        check_panic_folder(),
        check_fax_devices(),
        check_channels(driver, configuration, telephony),
    };
}

int check_status(const std::vector<CheckResult>& results) {
    const auto any = [&](Verdict verdict) {
        return std::any_of(results.begin(), results.end(),
                           [=](const CheckResult& result) { return result.verdict == verdict; });
    };
    if (any(Verdict::wrong)) return SETUP_FAILED;
    return any(Verdict::attention) ? SETUP_ATTENTION : SETUP_GOOD;
}

CheckResult hidden(const std::string& name, const std::string& what) {
    return {name, Verdict::not_tried, what + " cannot be seen by this account", "run it as administrator"};
}

std::string first_few(const std::vector<std::string>& texts) {
    constexpr size_t FEW = 3;
    std::string list;
    for (size_t i = 0; i < std::min(texts.size(), FEW); ++i) list += (i == 0 ? "" : ", ") + texts[i];
    return texts.size() > FEW ? list + " and " + std::to_string(texts.size() - FEW) + " more" : list;
}
