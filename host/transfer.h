// One fax on one line, from the call to its end, told on the way. What send, receive and loopback are made of.
#pragma once

#include <string>

#include "call.h"
#include "fax_job.h"
#include "line.h"
#include "session.h"

struct TransferFile {
    std::string path;        // full
    std::string station_id;  // given to the far end
};

struct Transfer {
    FaxResult result;
    CallInfo call;  // of a received fax
    bool job_ran = false;
};

// Calls the number, sends the file and leaves the call to be ended by the caller. A failure is that of the call or of
// the job; what the job came to is in the transfer, if it ran.
Failure transfer_send(Session& session, Line& line, const TransferFile& file, const std::string& number, HANDLE stop,
                      Transfer& transfer);

// Waits for a call and answers it.
Failure transfer_answer(Session& session, Line& line, HANDLE stop, Transfer& transfer);

// Receives into the file, over an answered call; the rest as for sending.
Failure transfer_receive(Session& session, Line& line, const TransferFile& file, HANDLE stop, Transfer& transfer);
