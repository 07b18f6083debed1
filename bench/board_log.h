// What the software board's log says about the clock.
#pragma once

#include <cstdint>
#include <string>

// How many ticks its calls have missed, by the board's last word before it was shut down.
uint64_t missed_ticks(const std::string& log_file);
