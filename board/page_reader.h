// Reads back what the fax engine has received.
#pragma once

#include <string>

#include "page.h"

namespace softboard {

// spandsp writes each page that it accepts into its file, as one strip and already in the wanted coding. The number
// counts from 0. False when the file has no such page; the bad rows, which no file tells, stay as they are.
bool read_received_page(const std::string& path, int number, ReceivedPage& page);

}  // namespace softboard
