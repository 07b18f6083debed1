// The thread that the provider wants to start, kept from starting: a test runs its body with an argument of its own.
#pragma once

#include <windows.h>

#include "import_table.h"

namespace harness {

// One at a time. From its making to its end the provider's threads are not started.
class WantedThread {
  public:
    explicit WantedThread(HMODULE provider);

    // What the provider gave to the thread that it wanted last, null until it wants one.
    uint8_t* argument() const;
    // Runs that thread's body with this argument, on a thread, to its end.
    void run(void* argument) const;
    // The same with zeroed memory in the place of the argument, which the body frees.
    void run_with_zeros() const;

  private:
    Replacements table_;
};

}  // namespace harness
