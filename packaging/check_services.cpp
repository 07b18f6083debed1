// The two services that the provider asks for when it starts, and what the host service publishes.
#include "check_parts.h"
#include "machine.h"
#include "segment.h"
#include "service_control.h"
#include "text.h"

namespace {

struct StateName {
    DWORD state;
    const char* text;
};

constexpr StateName STATES[] = {
    {SERVICE_STOPPED, "is stopped"},
    {SERVICE_START_PENDING, "is starting"},
    {SERVICE_STOP_PENDING, "is stopping"},
    {SERVICE_RUNNING, "is running"},
    {SERVICE_CONTINUE_PENDING, "is being continued"},
    {SERVICE_PAUSE_PENDING, "is being paused"},
    {SERVICE_PAUSED, "is paused"},
};

std::string state_text(DWORD state) {
    for (const StateName& row : STATES) {
        if (row.state == state) return row.text;
    }
    return format("is in state %lu", state);
}

}  // namespace

CheckResult check_host_service() {
    const std::string name = "host service";
    const ServiceState service = service_state(SERVICE_NAME);
    if (service.error == ERROR_ACCESS_DENIED) return hidden(name, "the service calder");
    if (service.error == ERROR_SERVICE_DOES_NOT_EXIST) {
        return {name, Verdict::wrong, "there is no service calder", BOARD_ADVICE};
    }
    if (service.error != 0) {
        return {name, Verdict::wrong, "the service calder cannot be asked: " + windows_error(service.error), ""};
    }
    // As the provider judges it.
    const bool runs = service.state == SERVICE_RUNNING || service.state == SERVICE_START_PENDING;
    return {name, runs ? Verdict::good : Verdict::wrong, "calder " + state_text(service.state),
            runs ? "" : "net start calder"};
}

CheckResult check_fax_service() {
    const std::string name = "fax service";
    const ServiceState service = service_state(FAX_SERVICE_NAME);
    if (service.error == ERROR_ACCESS_DENIED) return hidden(name, "the service Fax");
    if (service.error == ERROR_SERVICE_DOES_NOT_EXIST) {
        return {
            name, Verdict::wrong, "there is no service Fax",
            "add the Windows feature \"Windows Fax and Scan\" (on a server the role \"Fax Server\"), or for a trial: "
            "qorvsetup install --fax-stand-in"};
    }
    if (service.error != 0) {
        return {name, Verdict::wrong, "the service Fax cannot be asked: " + windows_error(service.error), ""};
    }
    return {name, Verdict::good, "Fax is installed", ""};
}

CheckResult check_segment() {
    const std::string name = "shared segment";
    const std::string segment_name = utf8(FAX_SEGMENT_NAME);
    FaxSegment segment;
    const uint32_t error = fax_segment_open(segment);
    if (error == ERROR_FILE_NOT_FOUND) {
        return {name, Verdict::attention, segment_name + " does not exist; calder creates it", "net start calder"};
    }
    if (error == ERROR_ACCESS_DENIED) {
        return {name, Verdict::attention, segment_name + " exists, but its creator keeps readers out",
                "let calder create it: net stop tapisrv, net stop calder, net start calder, net start tapisrv"};
    }
    if (error != 0) {
        return {name, Verdict::attention, segment_name + " cannot be read: " + windows_error(error), ""};
    }
    return {name, Verdict::good, segment_name + " can be read", ""};
}
