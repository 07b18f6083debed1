// What the journal says about each call to the driver, and the check that the caller's record was cleared.
#pragma once

#include <string>

#include "driver_door.h"
#include "journal.h"

namespace harness {

// The journal entry of a call: one function for every function of the interface, with the same parameters.
#define X(result, name, parameters, arguments) Entry describe##name parameters;
DRIVER_FUNCTIONS(X)
#undef X

}  // namespace harness
