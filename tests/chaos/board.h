// A board with a mind of its own: calls come in, are answered, fail and break off as chance has it, reports come on
// threads of their own, and alerts reach whoever is in the driver just then, or nobody.
//
// It keeps to what a board promises: an alert ends the call in progress on its unit; during a fax session it is kept
// for the next one; a session's last call comes back when its reports have been delivered.
#pragma once

#include <cstdint>
#include <string>

#include "driver_door.h"

namespace chaos {

// How often something goes wrong on the board: per cent of the calls that can fail.
extern uint32_t failures;

// Whether a reset takes longer than a thread's way from an alert to its answer, as on a real board. On one that is
// faster a line's thread may answer the alert of a close of its call too late, and stay away until the next call or
// close.
extern bool resets_take_long;

// Installs a board of one module with so many channels behind the provider's calddlld.dll.
void install_board(uint32_t channels);

constexpr uint32_t FIRST_CHANNEL = 4;
constexpr uint32_t UNIT_OF_CHANNEL = 10;  // added to the channel's number, so that a mix-up shows

// What the board has told the provider about a channel's last fax session; the shared record must agree.
struct Session {
    std::string remote_id;                 // empty until the provider was told
    uint32_t pages = 0;                    // page ends that count
    uint32_t number = 0;                   // of the sessions on this channel
    uint32_t status = 0, line_status = 0;  // of the driver call that was made last
};
const Session& session_of(uint32_t channel);

// Calls that came in on the channel and were given to the provider.
struct ArrivedCall {
    std::string called, calling, calling_name, routing;
};
const ArrivedCall& arrived_call(uint32_t channel);

size_t attached_lines();
// What the library was initialised and not shut down, times.
int initialisations();
// Open TIFF files; the provider drops one when it opens a second one over it.
size_t open_files();

}  // namespace chaos
