// How the provider's event source is registered, so that the event viewer finds the texts of its entries.
#pragma once

#include <windows.h>

// Under HKEY_LOCAL_MACHINE.
constexpr wchar_t EVENT_SOURCE_KEY[] =
    L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Halvorsund Telephony Service Provider";

// Values that name the file with the texts.
constexpr const wchar_t* EVENT_FILE_VALUES[] = {L"EventMessageFile", L"CategoryMessageFile"};
constexpr wchar_t EVENT_FILE[] = L"%SystemRoot%\\System32\\qorvtsp.tsp";

struct EventSourceNumber {
    const wchar_t* name;
    DWORD value;
};
constexpr EventSourceNumber EVENT_NUMBERS[] = {
    {L"CategoryCount", 5},
    {L"TypesSupported", EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE},
};
