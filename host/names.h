// The names of the constants that the provider sends and returns.
#pragma once

#include <cstdint>
#include <string>

#include "tapi20.h"

// "LINEERR_INUSE"; "0" for success, "0x80001234" for a value without a name.
std::string lineerr_name(int32_t result);
// What to do about it, or an empty text.
const char* lineerr_advice(int32_t result);

std::string message_name(DWORD message);
std::string call_state_name(DWORD state);
// The mode that goes with a call state: "LINEBUSYMODE_STATION"; empty for 0 and for states without modes.
std::string call_state_mode_name(DWORD state, DWORD mode);

// The kinds of flags in the records that the provider fills.
enum class FlagKind {
    address_cap_flags,
    address_features,
    address_modes,
    address_sharing,
    bearer_modes,
    busy_modes,
    call_features,
    call_info_states,
    call_origin,
    call_reason,
    call_states,
    device_cap_flags,
    device_states,
    device_status_flags,
    dial_tone_modes,
    disconnect_modes,
    line_features,
    media_modes,
    party_id,
    special_info,
};
// The flags that are set: "LINEBUSYMODE_STATION | LINEBUSYMODE_TRUNK"; "0" for none, bits without a name as "0x...".
std::string flag_names(FlagKind kind, DWORD flags);

// An event's parameters in words: "LINECALLSTATE_BUSY, LINEBUSYMODE_STATION, LINEMEDIAMODE_G3FAX".
std::string event_parameters_text(DWORD message, DWORD_PTR param1, DWORD_PTR param2, DWORD_PTR param3);
