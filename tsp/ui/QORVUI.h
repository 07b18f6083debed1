// What the installation and configuration entry points do.
#pragma once

#include <windows.h>

#include <cstdint>

// The provider's file name, by which TAPI lists it.
constexpr wchar_t PROVIDER_FILE[] = L"qorvtsp.tsp";

// Whether TAPI's list of installed providers already holds file_name, when check is not 0. 0 = it does not,
// LINEERR_NOMULTIPLEINSTANCE = it does; LINEERR_OPERATIONFAILED, LINEERR_NOMEM or what TAPI returned.
LONG ProviderInstall(const wchar_t* file_name, int32_t check);

// Shows the board's property sheet, blocking until it is closed. 0 = shown, 1 = failure.
int32_t display_prop_sheet(HWND owner);
