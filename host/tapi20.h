// TAPI as it was in version 2.0. The headers of the compiler give its records their TAPI 3.0 size whatever version is
// asked for, and a provider of version 2.0 knows nothing behind these sizes: never use sizeof on the records.
#pragma once

#include <windows.h>

#define TAPI_CURRENT_VERSION 0x00020000
#include <tapi.h>
#include <tspi.h>

constexpr DWORD TAPI_VERSION_2_0 = 0x00020000;

constexpr DWORD LINEDEVCAPS_SIZE = 252;
constexpr DWORD LINEADDRESSCAPS_SIZE = 228;
constexpr DWORD LINECALLPARAMS_SIZE = 176;
constexpr DWORD LINECALLINFO_SIZE = 324;
constexpr DWORD LINEADDRESSSTATUS_SIZE = 64;
constexpr DWORD LINECALLSTATUS_SIZE = 56;
constexpr DWORD LINEDEVSTATUS_SIZE = 88;
