// Line queries, opening and closing.
#include "line.h"

#include "call.h"
#include "text.h"

namespace {

constexpr DWORD COMPLETION_TIMEOUT = 30000;  // milliseconds
constexpr DWORD LINE_STATES = LINEDEVSTATE_RINGING | LINEDEVSTATE_NUMCALLS;
constexpr DWORD ADDRESS_STATES = LINEADDRESSSTATE_NUMCALLS;
constexpr DWORD ADDRESS_ID = 0;

Failure refused(LONG result, DWORD dwDeviceID, const char* doing) {
    return line_error_failure(result, format("%s line %lu", doing, dwDeviceID), EXIT_PROVIDER);
}

Failure negotiate(const Provider& provider, DWORD dwDeviceID, LineInfo& info) {
    LONG result = provider.tspi.lineNegotiateTSPIVersion(dwDeviceID, provider.dwTSPIVersion, provider.dwTSPIVersion,
                                                         &info.dwTSPIVersion);
    if (result != 0) return refused(result, dwDeviceID, "negotiating the version of");
    result = provider.tspi.lineGetExtensionID(dwDeviceID, info.dwTSPIVersion, &info.extension);
    if (result != 0) return refused(result, dwDeviceID, "asking for the extension of");
    result = provider.tspi.lineNegotiateExtVersion(dwDeviceID, info.dwTSPIVersion, TAPI_VERSION_2_0, TAPI_VERSION_2_0,
                                                   &info.dwExtVersion);
    if (result != 0) return refused(result, dwDeviceID, "negotiating the extension of");
    return {};
}

Failure get_device_caps(const Provider& provider, DWORD dwDeviceID, RecordBuffer<LINEDEVCAPS>& caps) {
    auto get = [&] {
        return provider.tspi.lineGetDevCaps(dwDeviceID, provider.dwTSPIVersion, TAPI_VERSION_2_0, caps.get());
    };
    LONG result = get();
    if (result == 0 && caps->dwNeededSize > caps->dwTotalSize) {
        caps.assign(LINEDEVCAPS_SIZE, caps->dwNeededSize);
        result = get();
    }
    return result == 0 ? Failure() : refused(result, dwDeviceID, "asking for the capabilities of");
}

// What the telephony service tells and asks a line when an application has opened it.
LONG prepare(Line& line, bool receiving) {
    const TspiFunctions& tspi = line.provider->tspi;
    LONG result = tspi.lineSelectExtVersion(line.hdLine, TAPI_VERSION_2_0);
    DWORD dwNumAddressIDs = 0;
    if (result == 0) result = tspi.lineGetNumAddressIDs(line.hdLine, &dwNumAddressIDs);
    if (result == 0) result = tspi.lineSetStatusMessages(line.hdLine, LINE_STATES, ADDRESS_STATES);
    if (result == 0 && receiving) result = tspi.lineSetDefaultMediaDetection(line.hdLine, LINEMEDIAMODE_G3FAX);
    return result;
}

}  // namespace

Failure line_query(const Provider& provider, DWORD dwDeviceID, LineInfo& info) {
    if (Failure failure = provider_check_line(provider, dwDeviceID)) return failure;
    if (Failure failure = negotiate(provider, dwDeviceID, info)) return failure;
    RecordBuffer<LINEDEVCAPS>& caps = info.device_caps;
    if (Failure failure = get_device_caps(provider, dwDeviceID, caps)) return failure;
    const LONG result = provider.tspi.lineGetAddressCaps(dwDeviceID, ADDRESS_ID, provider.dwTSPIVersion,
                                                         TAPI_VERSION_2_0, info.address_caps.get());
    if (result != 0) return refused(result, dwDeviceID, "asking for the address of");

    info.dwDeviceID = dwDeviceID;
    info.name = caps.text(caps->dwLineNameOffset, caps->dwLineNameSize);
    info.dwChannel = caps->dwPermanentLineID & 0xFFFF;
    return {};
}

Failure line_open(Line& line, const Provider& provider, DWORD dwDeviceID, bool receiving) {
    LineInfo info;
    if (Failure failure = line_query(provider, dwDeviceID, info)) return failure;
    line.provider = &provider;
    line.dwDeviceID = dwDeviceID;
    line.htLine = hub_add_line(dwDeviceID, line.queue);
    LONG result = provider.tspi.lineOpen(dwDeviceID, line.htLine, &line.hdLine, provider.dwTSPIVersion, hub_line_event);
    if (result != 0) {
        line.hdLine = nullptr;
        hub_remove_line(line.htLine);
        return refused(result, dwDeviceID, "opening");
    }
    line.free_since = GetTickCount64();
    result = prepare(line, receiving);
    return result == 0 ? Failure() : refused(result, dwDeviceID, "preparing");
}

void line_close(Line& line) {
    if (!line.hdLine) return;
    call_end(line);
    line.provider->tspi.lineClose(line.hdLine);
    line.hdLine = nullptr;
    hub_remove_line(line.htLine);
    queue_clear(line.queue);
}

Line::~Line() {
    line_close(*this);
}

std::string line_state(const Line& line) {
    RecordBuffer<LINEDEVSTATUS> status(LINEDEVSTATUS_SIZE);
    if (line.provider->tspi.lineGetLineDevStatus(line.hdLine, status.get()) != 0) return "unknown";
    std::string text = status->dwDevStatusFlags & LINEDEVSTATUSFLAGS_INSERVICE ? "in service" : "out of service";
    if (status->dwNumActiveCalls > 0) text += format(", %lu call", status->dwNumActiveCalls);
    return text;
}

LONG line_request(Line& line, const char* function, const std::function<LONG(DRV_REQUESTID)>& entry_point) {
    const DRV_REQUESTID dwRequestID = hub_new_request(line.htLine, function);
    const LONG result = entry_point(dwRequestID);
    if (result < 0) {
        hub_forget_request(dwRequestID);
        return result;
    }
    TapiEvent completion;
    const auto is_ours = [dwRequestID](const TapiEvent& event) {
        return event.function && event.dwRequestID == dwRequestID;
    };
    if (queue_take(line.queue, is_ours, patience(COMPLETION_TIMEOUT), completion) != Taken::event) {
        hub_forget_request(dwRequestID);
        return static_cast<LONG>(LINEERR_OPERATIONFAILED);
    }
    return completion.lResult;
}
