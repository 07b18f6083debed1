// The DCS frame of T.30, as far as the board reads it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace softboard {

constexpr size_t DCS_FIRST_BYTE = 3;  // of the frame: where its facsimile information field begins
constexpr size_t DCS_RATE_AT = 2;     // of DornLineDcsGet's result: the rate index; the information field follows

enum class FastModem { V27TER, V29, V17 };

struct DcsRate {
    uint8_t code;   // bits 11 to 14 of the DCS, as they stand in its second byte
    uint8_t index;  // the driver interface's rate index
    uint32_t rate;  // bit/s
    FastModem modem;
};

bool is_dcs(const uint8_t* frame, size_t length);

// Null when the frame is no DCS or asks for a modem that this table does not have.
const DcsRate* dcs_rate(const uint8_t* frame, size_t length);
uint32_t dcs_rate_index(const uint8_t* frame, size_t length);

}  // namespace softboard
