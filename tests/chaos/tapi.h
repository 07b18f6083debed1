// The telephony service of this world: what it knows of its lines and calls, and what it must never be told.
//
// It is a client as the provider may expect it: it opens a device once, closes a line only when no request of it is
// under way or unfinished (a close of the call apart) and no fax of it runs, and uses a call's handle until it has
// closed the call. What it asks for within these bounds, and when, is chance's.
#pragma once

#include <windows.h>
// tapi.h wants windows.h first.
#include <tapi.h>
#include <tspi.h>

#include <cstdint>
#include <deque>
#include <string>

#include "provider_fixture.h"
#include "world.h"

namespace chaos {

enum class Life { closed, opening, open, closing };

// The call of a line as TAPI knows it.
struct TapiCall {
    HTAPICALL handle = nullptr;  // null: there is none
    bool is_incoming = false;
    bool is_being_made = false;       // TSPI_lineMakeCall has not returned
    bool is_closing = false;          // TSPI_lineCloseCall has been called
    bool stays = false;               // ... and found no memory: only the close of the line tries it again
    uint32_t state = 0;               // LINECALLSTATE_* told last, 0 before the first
    uint32_t requests_under_way = 0;  // accepts and answers
    std::string called = "";          // as LINE_CALLINFO told it
};

struct TapiLine {
    uint32_t index = 0;
    std::string name = {};  // "line 3"
    Life life = Life::closed;
    HTAPILINE handle = nullptr;
    HDRVLINE provider_handle = nullptr;
    TapiCall call = {};
    uint32_t requests_under_way = 0;  // calls of the provider that have not returned, closes of the call apart
    uint32_t closes_under_way = 0;    // of the call
    uint32_t drops_under_way = 0;
    uint32_t dials_under_way = 0;
    uint32_t makes_under_way = 0;
    HTAPICALL handle_being_made = nullptr;  // of the call that is being made
    uint32_t endings_begun = 0;             // drops and closes of the call, ever
    // Faxes: those begun, those whose end was told, and the result of the last one.
    uint32_t faxes_begun = 0, faxes_ended = 0;
    uint32_t last_status = 0, last_line_status = 0;
    bool results_overlap = false;  // two faxes ran at a time: whose result is published last is not known
    bool faxes_have_met = false;   // two faxes ran at a time: page ends may have been missed since
    bool fax_is_undisturbed =
        false;  // no close of the call came between the last fax and its end, and none met another

    HDRVCALL provider_call() const { return reinterpret_cast<HDRVCALL>(provider_handle); }
};

extern std::deque<TapiLine> tapi_lines;
void add_lines(uint32_t count);
HTAPILINE new_line_handle(const TapiLine& line);
HTAPICALL new_call_handle();
// Fax threads of the provider that live on the line.
size_t faxes_running(const TapiLine& line);
// What the provider publishes of the line.
const harness::SharedRecord& shared_record(const TapiLine& line);

// ---- requests -----------------------------------------------------------------------------------------------------

// An asynchronous request, from the call of the provider to its completion. Give up when something is not as it must
// be: a completion of what was not asked for, was refused or is completed already, or none at all.
DRV_REQUESTID new_request(TapiLine& line, const std::string& what);
// The request makes this call: once it completes, it is the line's.
void makes_call(DRV_REQUESTID request, HTAPICALL handle);
// The provider has returned. `completed_by_now`: an accepted request completes before the call returns.
void request_returned(DRV_REQUESTID request, LONG result, bool completed_by_now);
// The provider completes this one by an event, or not at all.
void expect_no_completion(DRV_REQUESTID request);
// The completion must have this result instead of 0.
void expect_completion_with(DRV_REQUESTID request, LONG result);
size_t unfinished_requests(const TapiLine& line);

// ---- what the provider calls --------------------------------------------------------------------------------------

void CALLBACK on_event(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR parameter1, DWORD_PTR parameter2,
                       DWORD_PTR parameter3);
void CALLBACK on_completion(DRV_REQUESTID request, LONG result);

}  // namespace chaos
