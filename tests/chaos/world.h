// A world in which one thread runs at a time. Wherever the provider meets what surrounds it (a Windows call, a call of
// the driver, a call of TAPI's procedures) chance decides who goes on, and the clock is a number that jumps to the next
// deadline when nobody can. So a run depends on its seed alone, hours of waiting take no time, and it is seen at once
// when somebody can never go on.
//
// Everything of this folder that the threads of the world share needs no lock: only the one that runs touches it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace chaos {

// ---- chance -------------------------------------------------------------------------------------------------------

// The same numbers for the same seed, on every machine and with every library.
class Chance {
  public:
    explicit Chance(uint64_t seed = 0) : state_(seed) {}
    uint64_t next();
    uint32_t below(uint32_t bound);  // 0 to bound - 1
    bool one_in(uint32_t many) { return below(many) == 0; }
    bool percent(uint32_t share) { return below(100) < share; }

  private:
    uint64_t state_;
};

// The one source of chance of a run; drawn from by whoever runs.
Chance& chance();

// ---- threads ------------------------------------------------------------------------------------------------------

using Milliseconds = uint64_t;
constexpr Milliseconds FOR_EVER = UINT64_MAX;

// How the threads of the world behave; changed now and then, so that a run sees lazy and hectic times.
struct Habits {
    uint32_t stays = 50;    // per cent: how often a thread goes on by itself where another one could
    uint32_t hurries = 10;  // of a million: how often the time jumps although somebody could go on
    uint32_t stalls = 0;    // of ten thousand: how often a thread gets no turn for seconds
};
extern Habits habits;

struct Thread;

// Makes the calling thread the only one of a new world. It becomes "the test". Each thread of the machine calls
// `introduce` before its first life, while nobody else runs: what the runtime keeps for a thread is not the provider's.
void begin_world(uint64_t seed, void (*introduce)());

// Adds a thread; it runs when its turn comes.
void start_thread(const std::string& name, std::function<void()> body);

// The thread whose turn it is. False for threads that do not belong to the world: those of Windows and of the watchdog.
Thread* running();
bool has_turn();
const std::string& name_of(const Thread* thread);
// How many threads whose name begins so are alive.
size_t alive(const std::string& name);
// How many such were started, ever.
size_t started(const std::string& name);

// Somebody else may go on.
void point();
// Gives the turn up until ready() or the time, in milliseconds from now. Returns whether it was ready in time.
bool wait(const std::string& for_what, const std::function<bool()>& ready, Milliseconds at_most = FOR_EVER);
void sleep(Milliseconds time);
Milliseconds now();
// How many turns there were; the same number is the same place of a run.
uint64_t steps();

// What a thread does for TAPI.
struct Task {
    std::string what = "";    // "TSPI_lineOpen"
    std::string owner = "";   // "line 3": threads and objects that come of it are named after it
    std::string thread = "";  // what a thread that comes of it is called
    Milliseconds since = 0;
};
const Task& current_task();

// Gives the running thread a task for as long as it lives. One that takes longer than hours of the world's time is a
// hang as well.
class Doing {
  public:
    Doing(const std::string& what, const std::string& owner, const std::string& thread = "");
    ~Doing();
    Doing(const Doing&) = delete;
    Doing& operator=(const Doing&) = delete;

  private:
    Task before_;
};

// ---- an alert on its way ------------------------------------------------------------------------------------------

// A thread that an alert has taken out of the driver is on its way until it waits for something else than a lock, or
// ends. `place` is the channel's.
void on_its_way_from(uint32_t place);
// It has come to where it waits.
void arrived();
// Waits until nobody is on the way from there, but for one who waits for a lock of this very thread.
void wait_for_those_on_their_way(uint32_t place);

// ---- the end of a run ---------------------------------------------------------------------------------------------

// Prints why, the seed, who waits for what and who holds which lock, and the journal; ends the process.
[[noreturn]] void give_up(const std::string& why);

}  // namespace chaos
