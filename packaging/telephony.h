// Telling TAPI of the provider.
#pragma once

#include <windows.h>

#include <string>

// All three give 0 or a LINEERR_* value of TAPI.

// Whether telephony knows a provider of this file name; the folder and the case of letters do not matter.
LONG telephony_has(const std::wstring& file_name, bool& has);

// lineAddProvider. Telephony loads the provider and asks it for its lines, so what it needs must be in place.
LONG telephony_add(const std::wstring& file_name);

// Takes every provider of this name off; good also when there is none, or no telephony at all.
LONG telephony_remove(const std::wstring& file_name);

// "LINEERR 0x80000048".
std::string telephony_error(LONG error);

// False on a machine that has no telephony service, such as Wine's: its TAPI refuses everything.
bool telephony_exists();
