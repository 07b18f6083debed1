// The telephony service providers that TAPI has on its list.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct TapiProvider {
    uint32_t permanent_id;
    std::wstring file_name;  // as it was given to TAPI: with or without a folder
};

struct TapiProviders {
    uint32_t error = 0;  // 0, or TAPI's LINEERR_* code when the list cannot be had
    std::vector<TapiProvider> providers;
};

// Asks tapi32.dll of the system folder, loaded for the length of the call. Needs no administrator's rights; blocks as
// long as the telephony service takes to start.
TapiProviders tapi_providers();

// The entry of the provider with this file name, whatever its folder and its capitals; null when there is none.
const TapiProvider* find_provider(const TapiProviders& list, const std::wstring& file_name);
