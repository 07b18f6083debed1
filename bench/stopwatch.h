// Time that has passed, and time that processors have spent on this process.
#pragma once

#include <windows.h>

#include <chrono>

class Stopwatch {
  public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Of all threads, in the system and out of it.
inline double process_seconds() {
    FILETIME created;
    FILETIME ended;
    FILETIME times[2];
    GetProcessTimes(GetCurrentProcess(), &created, &ended, &times[0], &times[1]);
    double seconds = 0;
    for (const FILETIME& time : times) {
        const ULARGE_INTEGER ticks{{time.dwLowDateTime, time.dwHighDateTime}};
        seconds += static_cast<double>(ticks.QuadPart) * 1e-7;
    }
    return seconds;
}
