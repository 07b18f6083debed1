// Calls on a line: placing, answering, ending.
#pragma once

#include <string>

#include "line.h"

// What the provider knows about the call, from TSPI_lineGetCallInfo.
struct CallInfo {
    std::string called_id;
    std::string caller_id;
    std::string caller_name;
    DWORD dwRate = 0;  // bit/s
};

// Calls `number` and waits until somebody answers, `timeout` milliseconds at most or until `stop` is set. A failure
// names what the fax service would tell the sender (FS_BUSY, FS_NO_ANSWER, ...) and the call state; the call is then
// still to be ended.
Failure call_place(Line& line, const std::string& number, DWORD timeout, HANDLE stop);

// Waits for a call, lets it ring `rings` times (1 or more) and answers it. Calls whose caller gives up before are
// cleared and the wait goes on. `stop` ends it. `info` is what the provider knew when it answered.
Failure call_answer(Line& line, unsigned rings, HANDLE stop, CallInfo& info);

// Drops the call, if there is one, and releases it. Waits for a fax thread that has not let go of it yet, 5 s at most.
void call_end(Line& line);

// As call_end, for a line that stays open for further calls. The provider's ring detection pauses for 6 s after every
// ring and mistakes a call that was closed meanwhile for one that still rings, so that the next one would not be
// offered: this waits until that pause is over. `stop` cuts it short.
void call_end_for_next(Line& line, HANDLE stop);

// Of the line's call; empty when the provider does not answer.
CallInfo call_info(const Line& line);
RecordBuffer<LINECALLINFO> call_info_record(const Line& line);
