// Ends a test program that hangs or crashes, with the journal as its last words.
#pragma once

namespace harness {

// Begins anew with every test.
void start_watchdog();
void stop_watchdog();

}  // namespace harness
