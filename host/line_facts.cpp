// The answers of the provider's queries, put into words.
#include "line_facts.h"

#include <algorithm>

#include "call.h"
#include "names.h"

namespace {

constexpr size_t NAME_WIDTH = 20;  // of a fact, in characters
constexpr size_t TEXT_WIDTH = 76;
constexpr DWORD ADDRESS_ID = 0;

template <typename Record>
struct FlagField {
    const char* name;
    FlagKind kind;
    DWORD Record::*field;
};

constexpr FlagField<LINEDEVCAPS> DEVICE_FIELDS[] = {
    {"address modes", FlagKind::address_modes, &LINEDEVCAPS::dwAddressModes},
    {"bearer modes", FlagKind::bearer_modes, &LINEDEVCAPS::dwBearerModes},
    {"media modes", FlagKind::media_modes, &LINEDEVCAPS::dwMediaModes},
    {"device flags", FlagKind::device_cap_flags, &LINEDEVCAPS::dwDevCapFlags},
    {"line states", FlagKind::device_states, &LINEDEVCAPS::dwLineStates},
    {"line features", FlagKind::line_features, &LINEDEVCAPS::dwLineFeatures},
};

constexpr FlagField<LINEADDRESSCAPS> ADDRESS_FIELDS[] = {
    {"address sharing", FlagKind::address_sharing, &LINEADDRESSCAPS::dwAddressSharing},
    {"call info states", FlagKind::call_info_states, &LINEADDRESSCAPS::dwCallInfoStates},
    {"caller ID flags", FlagKind::party_id, &LINEADDRESSCAPS::dwCallerIDFlags},
    {"called ID flags", FlagKind::party_id, &LINEADDRESSCAPS::dwCalledIDFlags},
    {"redirection flags", FlagKind::party_id, &LINEADDRESSCAPS::dwRedirectionIDFlags},
    {"redirecting flags", FlagKind::party_id, &LINEADDRESSCAPS::dwRedirectingIDFlags},
    {"call states", FlagKind::call_states, &LINEADDRESSCAPS::dwCallStates},
    {"dial tone modes", FlagKind::dial_tone_modes, &LINEADDRESSCAPS::dwDialToneModes},
    {"busy modes", FlagKind::busy_modes, &LINEADDRESSCAPS::dwBusyModes},
    {"special information", FlagKind::special_info, &LINEADDRESSCAPS::dwSpecialInfo},
    {"disconnect modes", FlagKind::disconnect_modes, &LINEADDRESSCAPS::dwDisconnectModes},
    {"address flags", FlagKind::address_cap_flags, &LINEADDRESSCAPS::dwAddrCapFlags},
    {"call features", FlagKind::call_features, &LINEADDRESSCAPS::dwCallFeatures},
    {"address features", FlagKind::address_features, &LINEADDRESSCAPS::dwAddressFeatures},
};

constexpr FlagField<LINECALLINFO> CALL_FIELDS[] = {
    {"called ID flags", FlagKind::party_id, &LINECALLINFO::dwCalledIDFlags},
    {"caller ID flags", FlagKind::party_id, &LINECALLINFO::dwCallerIDFlags},
    {"bearer mode", FlagKind::bearer_modes, &LINECALLINFO::dwBearerMode},
    {"media mode", FlagKind::media_modes, &LINECALLINFO::dwMediaMode},
    {"origin", FlagKind::call_origin, &LINECALLINFO::dwOrigin},
    {"reason", FlagKind::call_reason, &LINECALLINFO::dwReason},
};

template <typename Record, size_t COUNT>
void add_flags(Facts& facts, const RecordBuffer<Record>& record, const FlagField<Record> (&fields)[COUNT]) {
    for (const FlagField<Record>& row : fields)
        facts.push_back({row.name, flag_names(row.kind, record.operator->()->*row.field)});
}

// A result other than 0, by its name.
std::string refused(LONG result) {
    return "refused, " + lineerr_name(result);
}

std::string active_calls(DWORD count) {
    return format("%lu active call%s", count, count == 1 ? "" : "s");
}

std::string device_id(const Line& line) {
    struct {
        VARSTRING fixed;
        DWORD dwDeviceID;
    } id = {};
    static_assert(sizeof id == 28, "a VARSTRING with one identifier");
    id.fixed.dwTotalSize = sizeof id;
    const LONG result = line.provider->tspi.lineGetID(line.hdLine, ADDRESS_ID, nullptr, LINECALLSELECT_LINE, &id.fixed,
                                                      L"tapi/line", GetCurrentProcess());
    if (result != 0) return refused(result);
    return id.dwDeviceID == line.dwDeviceID ? "tapi/line" : format("tapi/line of device ID %lu", id.dwDeviceID);
}

std::string device_status(const Line& line) {
    RecordBuffer<LINEDEVSTATUS> status(LINEDEVSTATUS_SIZE);
    const LONG result = line.provider->tspi.lineGetLineDevStatus(line.hdLine, status.get());
    if (result != 0) return refused(result);
    return flag_names(FlagKind::device_status_flags, status->dwDevStatusFlags) + ", " +
           active_calls(status->dwNumActiveCalls);
}

std::string address_status(const Line& line) {
    RecordBuffer<LINEADDRESSSTATUS> status(LINEADDRESSSTATUS_SIZE);
    const LONG result = line.provider->tspi.lineGetAddressStatus(line.hdLine, ADDRESS_ID, status.get());
    if (result != 0) return refused(result);
    return flag_names(FlagKind::address_features, status->dwAddressFeatures) + ", " +
           active_calls(status->dwNumActiveCalls);
}

std::string call_address(const Line& line) {
    DWORD dwAddressID = 0;
    const LONG result = line.provider->tspi.lineGetCallAddressID(line.hdCall, &dwAddressID);
    return result == 0 ? format("%lu", dwAddressID) : refused(result);
}

void add_call_status(Facts& facts, const Line& line) {
    RecordBuffer<LINECALLSTATUS> status(LINECALLSTATUS_SIZE);
    if (const LONG result = line.provider->tspi.lineGetCallStatus(line.hdCall, status.get())) {
        facts.push_back({"call state", refused(result)});
        return;
    }
    const std::string mode = call_state_mode_name(status->dwCallState, status->dwCallStateMode);
    facts.push_back({"call state", call_state_name(status->dwCallState) + (mode.empty() ? "" : ", " + mode)});
    facts.push_back({"call features", flag_names(FlagKind::call_features, status->dwCallFeatures)});
}

}  // namespace

Facts line_facts(const Line& line, const LineInfo& info) {
    const RecordBuffer<LINEDEVCAPS>& caps = info.device_caps;
    const LINEEXTENSIONID& id = info.extension;
    Facts facts = {
        {"provider", caps.text(caps->dwProviderInfoOffset, caps->dwProviderInfoSize)},
        {"TSPI version", format("0x%08lX", info.dwTSPIVersion)},
        {"extension", format("0x%08lX 0x%08lX 0x%08lX 0x%08lX, version 0x%08lX", id.dwExtensionID0, id.dwExtensionID1,
                             id.dwExtensionID2, id.dwExtensionID3, info.dwExtVersion)},
        {"device class", device_id(line)},
        {"addresses", format("%lu", caps->dwNumAddresses)},
        {"active calls", format("%lu at most", caps->dwMaxNumActiveCalls)},
    };
    add_flags(facts, caps, DEVICE_FIELDS);
    add_flags(facts, info.address_caps, ADDRESS_FIELDS);
    facts.push_back({"device status", device_status(line)});
    facts.push_back({"address status", address_status(line)});
    return facts;
}

Facts call_facts(const Line& line) {
    Facts facts;
    add_call_status(facts, line);
    const RecordBuffer<LINECALLINFO> info = call_info_record(line);
    facts.push_back({"address", call_address(line)});
    facts.push_back({"called", info.text(info->dwCalledIDOffset, info->dwCalledIDSize)});
    facts.push_back({"caller", info.text(info->dwCallerIDOffset, info->dwCallerIDSize)});
    facts.push_back({"caller name", info.text(info->dwCallerIDNameOffset, info->dwCallerIDNameSize)});
    facts.push_back({"rate", format("%lu bit/s", info->dwRate)});
    add_flags(facts, info, CALL_FIELDS);
    return facts;
}

std::string facts_text(const Facts& facts) {
    std::string text;
    for (const Fact& fact : facts) {
        if (!text.empty()) text += '\n';
        text += format("  %-*s  ", static_cast<int>(NAME_WIDTH), fact.name) +
                wrapped(fact.text, TEXT_WIDTH, NAME_WIDTH + 4);
    }
    return text;
}
