// What the end of a T.30 session means to the driver's callers.
#pragma once

#include <calddlld.h>

namespace softboard {

// Of a T30_ERR_* completion code of spandsp.
KXResult fax_result(int completion);

}  // namespace softboard
