// The service manager's services, as a test waits for them.
#pragma once

#include "owned.h"

// Null when there is no such service.
OwnedService open_service(const wchar_t* name, DWORD access);

// Waits, 10 s at most, until the service is in this state.
bool reaches(SC_HANDLE service, DWORD state);
