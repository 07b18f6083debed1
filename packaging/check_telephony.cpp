// The provider's file and its place on TAPI's list.
#include "check_parts.h"
#include "machine.h"
#include "tapi_providers.h"
#include "text.h"

Telephony look_at_telephony() {
    Telephony telephony;
    const TapiProviders list = tapi_providers();
    telephony.list_error = list.error;
    if (const TapiProvider* provider = find_provider(list, PROVIDER_FILE)) {
        telephony.registered = true;
        telephony.provider_id = provider->permanent_id;
    }
    // Asked behind the list, which may have started it.
    const ServiceState service = service_state(L"TapiSrv");
    telephony.has_service = service.error != ERROR_SERVICE_DOES_NOT_EXIST;
    telephony.service_runs = telephony.has_service && service.state != SERVICE_STOPPED;
    return telephony;
}

CheckResult check_provider() {
    const std::string name = "provider";
    const std::wstring path = in_system_folder(PROVIDER_FILE);
    if (!is_file(path)) {
        return {name, Verdict::wrong, "qorvtsp.tsp is not in " + utf8(system_folder()), "qorvsetup install"};
    }
    const std::string version = version_text(file_version(path).number);
    if (version.empty()) {
        return {name, Verdict::wrong, utf8(path) + " has no version: it is damaged, or another file",
                "qorvsetup install"};
    }
    return {name, Verdict::good, "qorvtsp.tsp " + version + " is in " + utf8(system_folder()), ""};
}

CheckResult check_telephony(const Telephony& telephony) {
    const std::string name = "telephony";
    if (telephony.list_error != 0 && !telephony.has_service) {
        return {name, Verdict::attention, "this machine has no telephony service; only faxhost can use the provider",
                ""};
    }
    if (telephony.list_error != 0) {
        return {name, Verdict::wrong, format("TAPI does not tell its providers: LINEERR 0x%08X", telephony.list_error),
                "see that the service TapiSrv is not disabled: sc qc tapisrv"};
    }
    if (!telephony.registered) {
        return {name, Verdict::wrong, "qorvtsp.tsp is not on TAPI's list of providers", "qorvsetup install"};
    }
    return {name, Verdict::good, format("qorvtsp.tsp is TAPI's provider %u", telephony.provider_id), ""};
}
