// Telling TAPI of the provider.
#pragma once

#include <windows.h>

#include <string>

#include "tapi_providers.h"

// False on a machine that has no telephony service, such as Wine's, whose TAPI has no list either.
bool telephony_exists(const TapiProviders& list);

// Both give 0 or a LINEERR_* value of TAPI.

// lineAddProvider. Telephony loads the provider and asks it for its lines, so what it needs must be in place.
LONG telephony_add(const std::wstring& file_name);

// Takes the provider of this name off; good also when there is none, or no telephony at all.
LONG telephony_remove(const std::wstring& file_name);

// "LINEERR 0x80000048".
std::string telephony_error(LONG error);
