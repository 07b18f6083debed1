// Windows as the provider has it in this world: events, mutexes, critical sections, sleeps, threads and memory. The
// rest of Windows is that of the harness (fake_windows.h).
#pragma once

#include <windows.h>

#include <string>

#include "fake_windows.h"
#include "world.h"

namespace chaos {

// What the provider imports and this world replaces, on top of the harness's fakes.
harness::Fakes object_fakes();
harness::Fakes memory_fakes();

// Every lock that somebody holds, with who holds it, a line each.
std::string held_locks();
bool waits_for_lock_of(const Thread* thread, const Thread* holder);
// Whether the running thread holds the lock of that owner's line.
bool holds_lock_of(const std::string& owner);
// Whether nobody holds it, or there is none.
bool lock_is_free(const std::string& owner);
// The handles that the provider has not closed, a line each.
std::string open_handles();
size_t open_handle_count();

// How often a creation of an object, or an allocation of a record, fails: of a thousand.
struct Shortages {
    uint32_t of_handles = 0;
    uint32_t of_memory = 0;
};
extern Shortages shortages;

// ---- memory -------------------------------------------------------------------------------------------------------

// What the provider has allocated and not freed, in records of the sizes that its own records have; a line for each
// size. The runtime's own allocations do not count.
std::string live_records();
size_t live_record_count();
// Gives up if somebody has written to a record that was freed. Freed records keep their place for a while, so that a
// late reader finds nothing but 0xDD in them, and every handle and pointer read from there is known for what it is.
void check_freed_records();
bool is_from_a_freed_record(const void* pointer);
constexpr char FREED_POINTER[] = "DDDDDDDDDDDDDDDD";  // as a trace shows it

}  // namespace chaos
