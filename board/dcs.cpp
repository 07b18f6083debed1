#include "dcs.h"

namespace softboard {

constexpr uint8_t FCF_DCS = 0x82;
constexpr uint8_t X_BIT = 0x01;
constexpr uint8_t RATE_BITS = 0x3C;

// T.30, table 2: bits 11 to 14.
constexpr DcsRate DCS_RATES[] = {
    {0x00, 0, 2400, FastModem::V27TER}, {0x08, 1, 4800, FastModem::V27TER}, {0x0C, 2, 7200, FastModem::V29},
    {0x04, 3, 9600, FastModem::V29},    {0x2C, 4, 7200, FastModem::V17},    {0x24, 5, 9600, FastModem::V17},
    {0x28, 6, 12000, FastModem::V17},   {0x20, 7, 14400, FastModem::V17},
};

bool is_dcs(const uint8_t* frame, size_t length) {
    return length > DCS_FIRST_BYTE + 1 && (frame[2] & ~X_BIT) == FCF_DCS;
}

const DcsRate* dcs_rate(const uint8_t* frame, size_t length) {
    if (!is_dcs(frame, length)) return nullptr;
    for (const DcsRate& rate : DCS_RATES) {
        if (rate.code == (frame[DCS_FIRST_BYTE + 1] & RATE_BITS)) return &rate;
    }
    return nullptr;
}

uint32_t dcs_rate_index(const uint8_t* frame, size_t length) {
    const DcsRate* const rate = dcs_rate(frame, length);
    return rate == nullptr ? 0 : rate->index;
}

}  // namespace softboard
