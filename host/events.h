// What the provider tells: line events and completions of asynchronous requests. The provider calls in on its own
// threads, some of them holding a line's lock, so nothing here does more than queue; whoever waits for something takes
// it out of the line's queue on a thread of the host.
#pragma once

#include <deque>
#include <functional>

#include "owned.h"
#include "tapi20.h"

constexpr DWORD NO_LINE = 0xFFFFFFFF;

// A line event, or a completion when `function` is set.
struct TapiEvent {
    ULONGLONG tick = 0;              // GetTickCount64
    DWORD dwDeviceID = NO_LINE;      // the line it belongs to
    const char* function = nullptr;  // of a completion: the entry point that was asked
    DRV_REQUESTID dwRequestID = 0;   // of a completion
    LONG lResult = 0;                // of a completion: 0 or LINEERR_*
    DWORD dwMsg = 0;                 // of an event: LINE_*
    HTAPICALL htCall = nullptr;      // of an event; LINE_NEWCALL: the handle that the host gave
    DWORD_PTR dwParam1 = 0;
    DWORD_PTR dwParam2 = 0;
    DWORD_PTR dwParam3 = 0;
};

// The events of one line, in the order in which they came.
struct EventQueue {
    EventQueue() : arrived(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}
    SRWLOCK lock = SRWLOCK_INIT;
    std::deque<TapiEvent> events;
    DWORD dwCallState = LINECALLSTATE_IDLE;  // of the last LINE_CALLSTATE
    OwnedHandle arrived;                     // auto-reset
};

// How long to wait: until a GetTickCount64 value at most, and no longer than until `stop` (may be null) is set.
struct Patience {
    ULONGLONG deadline;
    HANDLE stop;
};
Patience patience(DWORD milliseconds, HANDLE stop = nullptr);
Patience endless_patience(HANDLE stop);

// True when `stop` (may be null) is set within so many milliseconds; else they have passed.
bool stopped_within(DWORD milliseconds, HANDLE stop);

enum class Taken { event, timeout, stopped };
using EventMatch = std::function<bool(const TapiEvent&)>;

// Takes the oldest event that matches, waiting for it if need be, and leaves the others in the queue. One thread per
// queue may wait.
Taken queue_take(EventQueue& queue, const EventMatch& match, const Patience& patience, TapiEvent& event);
// Adds an event, for whoever waits for it. Does not block.
void queue_put(EventQueue& queue, const TapiEvent& event);
void queue_clear(EventQueue& queue);
DWORD queue_call_state(EventQueue& queue);
void queue_set_call_state(EventQueue& queue, DWORD dwCallState);

// ---- the provider's counterpart, one per process ------------------------------------------------------------------

// Called for every event and completion on the provider's thread, before it is queued; must only queue, too.
using EventObserver = std::function<void(const TapiEvent&)>;
void hub_observe(EventObserver observer);

// A line's handle for the provider; its events go to `queue`, which must live until the line is removed.
HTAPILINE hub_add_line(DWORD dwDeviceID, EventQueue& queue);
void hub_remove_line(HTAPILINE htLine);

// A request id for an asynchronous entry point; its completion goes to the line's queue, even when it comes before the
// entry point has returned. A request that was refused is forgotten.
DRV_REQUESTID hub_new_request(HTAPILINE htLine, const char* function);
void hub_forget_request(DRV_REQUESTID dwRequestID);
HTAPICALL hub_new_call();

// The procedures that the provider is given.
void CALLBACK hub_line_event(HTAPILINE htLine, HTAPICALL htCall, DWORD dwMsg, DWORD_PTR dwParam1, DWORD_PTR dwParam2,
                             DWORD_PTR dwParam3);
void CALLBACK hub_completion(DRV_REQUESTID dwRequestID, LONG lResult);
