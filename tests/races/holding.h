// Holding a thread between two of its steps, and looking who has the line's lock meanwhile.
#pragma once

#include <atomic>
#include <string>

#include "harness.h"

// What TAPI is told when a call without a worker is closed.
inline const harness::Lines kCallIsOver = {
    "LINE_CALLSTATE(HTLINE1, HTCALL1, IDLE, 0x0, 0x20)",
    "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
    "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
};

// Whether somebody holds the mutex of this name; asked from a thread that does not.
bool is_held(const std::string& mutex);
// Waits until a call stands before the mutex.
testing::AssertionResult waits_for(harness::Call& call, const std::string& mutex);

// What the waits of a length become: they last until their object is signalled, or are over at once.
void waits_last(DWORD milliseconds);
void waits_time_out(DWORD milliseconds);

// Stops the thread that alerts the board where it takes the mutex the next time. Waits of a second, as the close of a
// line has them, become short ones.
class HoldAfterTheAlert {
  public:
    explicit HoldAfterTheAlert(const std::string& mutex);
    ~HoldAfterTheAlert();
    HoldAfterTheAlert(const HoldAfterTheAlert&) = delete;
    HoldAfterTheAlert& operator=(const HoldAfterTheAlert&) = delete;
    bool holds_somebody() { return gate_.holds_somebody(); }
    void open() { gate_.open(); }

  private:
    harness::Gate gate_;
    std::atomic<DWORD> alerting_ = 0;
};
