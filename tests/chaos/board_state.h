// What the files of the board share.
#pragma once

#include <cstdint>
#include <string>

#include "board.h"
#include "driver_door.h"
#include "scripted_driver.h"
#include "world.h"

namespace chaos {

struct Channel {
    uint32_t number = 0;
    DornLine* line = nullptr;  // while it is attached
    DornIncomingCmdFunc handler = nullptr;
    uint32_t state_word = 0;
    uint8_t dcs[8] = {};
    uint32_t calls_in_progress = 0;  // that an alert ends
    uint64_t alerts = 0;
    bool in_session = false;
    bool alert_kept = false;  // came between two calls of a session
    uint32_t reports_on_their_way = 0;
    uint32_t pages_left = 0;
    Session session = {};
    ArrivedCall arrived = {};
};

Channel& channel_of(DornLine* line);
bool goes_wrong();
KXResult some_failure();
// A call of the driver that takes its time. Returns whether an alert has ended it.
bool lasts(Channel& channel, Milliseconds time, const char* call);

using Handlers = harness::ScriptedDriver::Handlers;
void add_board_lines(Handlers& board);
void add_board_fax(Handlers& board);
void add_board_files(Handlers& board);
void add_board_log(Handlers& board);
// Whether the log wants lines of a level.
bool is_traced(int level);

}  // namespace chaos
