// A line of the provider: what it can do, and its opening and closing.
#pragma once

#include <functional>
#include <string>

#include "events.h"
#include "failure.h"
#include "provider.h"
#include "record_buffer.h"

// What the line's provider answers before the line is open.
struct LineInfo {
    DWORD dwDeviceID = 0;
    std::string name;
    DWORD dwChannel = 0;  // the low half of the permanent ID
    DWORD dwTSPIVersion = 0;
    DWORD dwExtVersion = 0;
    LINEEXTENSIONID extension = {};
    RecordBuffer<LINEDEVCAPS> device_caps{LINEDEVCAPS_SIZE};
    RecordBuffer<LINEADDRESSCAPS> address_caps{LINEADDRESSCAPS_SIZE};
};

// Opened by line_open, closed by its owner's end, whatever state its call is in. Its functions block and may be called
// on any thread but the provider's own, one thread at a time.
struct Line {
    Line() = default;
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    const Provider* provider = nullptr;
    DWORD dwDeviceID = 0;
    HTAPILINE htLine = nullptr;
    HDRVLINE hdLine = nullptr;  // null while closed
    HDRVCALL hdCall = nullptr;  // null while there is no call
    ULONGLONG free_since = 0;   // GetTickCount64 of the opening, or of the end of the last call
    ULONGLONG last_ring = 0;    // GetTickCount64 of the last ring of an incoming call
    EventQueue queue;
};

// The line's capabilities, after the negotiation of both versions as before every opening.
Failure line_query(const Provider& provider, DWORD dwDeviceID, LineInfo& info);

// Opens the line; with `receiving` it looks out for fax calls.
Failure line_open(Line& line, const Provider& provider, DWORD dwDeviceID, bool receiving);

// Clears a call that is left and closes the line. Takes as long as the provider's ring detection needs to stop, up to
// 6 s after a ring. Does nothing on a closed line.
void line_close(Line& line);

// The state of an open line in words: "in service", "in service, 1 call".
std::string line_state(const Line& line);

// Calls an asynchronous entry point with a fresh request id and waits for its completion, 30 s at most. Returns 0 or
// LINEERR_*: what the entry point returned, else what it completed with.
LONG line_request(Line& line, const char* function, const std::function<LONG(DRV_REQUESTID)>& entry_point);
