// What the telephony service asks of the provider.
#pragma once

#include <cstdint>

#include "provider_exports.h"
#include "tapi.h"

namespace chaos {

extern harness::ProviderExports provider;
constexpr DWORD DEVICE_ID_BASE = 7;
constexpr DWORD TSPI_VERSION = 0x00020000;
constexpr DWORD PROVIDER_ID = 3;

// A thread of TAPI: so many operations, chosen by chance, on lines chosen by chance.
void play_tapi(uint32_t operations);

// Brings everything to rest, as TAPI does before it shuts the provider down: ends the faxes, closes the calls and the
// lines. Nobody else may ask for anything meanwhile.
void close_everything();

// Whether every operation that was made was taken at least once.
bool everything_was_taken();
// How often every operation was made, and how often the provider took it, a line each.
std::string operations_made();

}  // namespace chaos
