// The scripted driver: what the board does in a test, and the journal of what the provider asked of it.
//
// A test changes the board before or while the provider runs:
//
//     driver.modules = {{2, 4, 3}};                  module 2 has three channels, 4, 5 and 6
//     driver.channel(5).attaches = false;            channel 5 cannot be attached
//     driver.channel(4).capabilities.erase(20);
//     driver.ring(4, {"5551234"});                   the blocked (or next) wait for a call on channel 4 returns a ring
//     driver.wait_ends(4, KX_STATUS_TIMEOUT);        ... or another result
//     driver.gate("DornFaxSendPageTiff").close();    who makes that call stops before it is carried out
//     driver.on.DornLineReset = [](DornLine*, DornResetRecord* record) { record->status = 5; return -1; };
//
// A handler in `on` takes the place of the default; `ScriptedDriver::usual().DornLineReset` is the default itself, for
// a handler that only adds something. Handlers run on the provider's thread, without any lock of the harness; they may
// block (driver.block, Gate::pass), throw, or cause a fault.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "driver_door.h"
#include "journal.h"
#include "waiting.h"

namespace harness {

// What the network tells about an incoming call.
struct CallData {
    std::string called = "";
    std::string second_called = "";
    std::string calling = "";
    std::string calling_name = "";
    std::string information = "";
};

// How a wait for a call ends. With status 0, any line_status but WAIT_FOR_CALL_TIMEOUT is a ring.
struct WaitResult {
    uint32_t status = KX_STATUS_OK;
    uint32_t line_status = 1;
    CallData call = {};
};

struct Channel {
    uint32_t number = 0;
    uint32_t unit = 0;  // by default number + 10, so that a mix-up shows
    bool attaches = true;
    std::set<int> capabilities = {14, 20, 41};
    int reset_result = 0;
    uint32_t reset_status = 0;
    std::string error_text = "";  // by default "error text of CHANn"
    uint32_t line_state = DORN_LINE_STATE_CONNECTED;
    uint32_t protocol = 0;
    uint32_t setup_status = KX_STATUS_OK, setup_cause = 0;
    uint32_t complete_status = KX_STATUS_OK, complete_cause = 339;
    std::deque<WaitResult> wait_results = {};  // what the next waits for a call return
    uint8_t dcs[8] = {};
    DornIncomingCmdFunc handler = nullptr;  // the slot of the report handler
    std::string remote_id = "REMOTE STATION";
    std::string second_id = "";
    int pages_to_send = 1;
    int pages_to_receive = 1;

    // The driver's own bookkeeping.
    bool blocked = false;           // a blocking call is in progress
    bool waiting_for_call = false;  // ... and it is the wait for a call
    bool alerted = false;           // ... and it has been alerted
    bool released = false;          // ... and the test ends it
    bool fax_session = false;
    bool alert_kept = false;   // alerted between two calls of a fax session
    DWORD alerted_thread = 0;  // whose wait for a call an alert has ended, until it signals that it has seen it
    int pages_done = 0;        // of the session
};

struct Module {
    uint32_t number;
    uint32_t first_channel;
    uint32_t channel_count;
    uint32_t status = 0;
    uint32_t presence[3] = {1, 1, 1};
};

// A tagged value of a board report.
struct Tag {
    uint32_t tag;
    std::vector<uint8_t> bytes;
};

class ScriptedDriver {
  public:
    // One handler for every function, under the function's own name.
    struct Handlers {
#define X(result, name, parameters, arguments) std::function<result parameters> name;
        DRIVER_FUNCTIONS(X)
#undef X
    };

    std::vector<Module> modules = {{2, 4, 2}};
    Handlers on;
    bool makes_filters = true;           // false: QorvLogFilterNew returns null
    std::set<int> uninteresting_levels;  // QorvLogIsInterested says no

    static const Handlers& usual();

    // The board as it is at the start of a test, with the door open.
    void install();
    // Wakes everybody who is blocked and lets nobody block again; for the end of a test.
    void let_everybody_go();

    // The channel, made when it is first asked for.
    Channel& channel(uint32_t number);
    Channel& channel_of(DornLine* line);
    // How many board objects are attached now.
    size_t attached() const;
    bool is_attached(const DornLine* line) const;
    // The board object of the channel's last attach, null before the first.
    DornLine* line_of(uint32_t channel);

    void ring(uint32_t channel, const CallData& call = {});
    void wait_ends(uint32_t channel, uint32_t status, uint32_t line_status = 0);
    // The channel is in the wait for a call, and nothing has ended it yet.
    bool waits_for_call(uint32_t channel, int milliseconds = kPatience);

    // For handlers: blocks until the unit is alerted (true) or the test calls release (false).
    bool block(DornLine* line);
    void release(uint32_t channel);
    bool is_blocked(uint32_t channel, int milliseconds = kPatience);

    // A gate in front of a function, open until closed.
    Gate& gate(const std::string& function);

    // Calls the handler in the channel's slot with a report, on a thread as the driver has one, and returns the report
    // as the handler left it. Does nothing when the slot is empty.
    DornReport report(uint32_t channel, uint32_t report_class, uint32_t type, uint32_t sub_code,
                      const std::vector<Tag>& tags = {});

    // For behaviours: what the calls of the same name do to the board.
    DornLine* attach(uint32_t channel);
    void detach(DornLine* line);
    void alert(uint32_t unit);
    // The calling thread has signalled an event: if its wait for a call was ended by an alert, it has answered that.
    void answered_alert();
    // Waits until nobody is on the way between an alert and the answer to it. A real board is slower than any thread.
    void alerts_are_answered(const Channel& channel);
    // As block; also ends when the predicate, asked with the world held, is true.
    bool block(Channel& channel, const std::function<bool()>& over);

    // The log as the provider has set it up.
    bool log_initialised = false;
    uint32_t log_client = 0;  // key of the filter added last, 0 before
    int initialisations = 0;  // DornInitialize minus DornShutdown

  private:
    struct BoardLine {
        DornLine head;
        uint32_t channel;
        bool attached;
    };
    std::map<uint32_t, Channel> channels_;
    std::deque<BoardLine> lines_;
    std::mutex gates_lock_;  // taken before the world, never after it
    std::map<std::string, Gate> gates_;
    bool everybody_goes_ = false;
};

extern ScriptedDriver driver;

// The driver's exported variables.
struct InterfaceVersion {
    uint32_t compiled, bld_comp, auto_comp;
};
InterfaceVersion exported_interface_version();
void set_exported_packet_version(uint32_t version);

}  // namespace harness
