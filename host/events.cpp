// Event queues, and the procedures through which the provider fills them.
#include "events.h"

#include <map>
#include <utility>

namespace {

struct HubLine {
    DWORD dwDeviceID;
    EventQueue* queue;
};

struct HubRequest {
    HTAPILINE htLine;
    const char* function;
};

// The completion procedure gets no context from the provider, so what it needs is the process's.
struct EventHub {
    SRWLOCK lock = SRWLOCK_INIT;
    std::map<HTAPILINE, HubLine> lines;
    std::map<DRV_REQUESTID, HubRequest> requests;
    uintptr_t next_line = 0x1000;
    uintptr_t next_call = 0x100000;
    DRV_REQUESTID next_request = 1;
};

EventHub gHub;
EventObserver gObserver;

// Observer first, so that what it shows of an event comes before what the event's receiver makes of it.
void deliver(HTAPILINE htLine, TapiEvent event) {
    {
        const ScopedLock lock(gHub.lock);
        const auto line = gHub.lines.find(htLine);
        if (line != gHub.lines.end()) event.dwDeviceID = line->second.dwDeviceID;
    }
    if (gObserver) gObserver(event);
    const ScopedLock lock(gHub.lock);
    const auto line = gHub.lines.find(htLine);
    if (line != gHub.lines.end()) queue_put(*line->second.queue, event);
}

bool take_present(EventQueue& queue, const EventMatch& match, TapiEvent& event) {
    const ScopedLock lock(queue.lock);
    for (auto candidate = queue.events.begin(); candidate != queue.events.end(); ++candidate) {
        if (!match(*candidate)) continue;
        event = *candidate;
        queue.events.erase(candidate);
        return true;
    }
    return false;
}

DWORD time_left(const Patience& patience) {
    if (patience.deadline == UINT64_MAX) return INFINITE;
    const ULONGLONG now = GetTickCount64();
    return now >= patience.deadline ? 0 : static_cast<DWORD>(patience.deadline - now);
}

}  // namespace

Patience patience(DWORD milliseconds, HANDLE stop) {
    return {GetTickCount64() + milliseconds, stop};
}

Patience endless_patience(HANDLE stop) {
    return {UINT64_MAX, stop};
}

bool stopped_within(DWORD milliseconds, HANDLE stop) {
    if (stop) return WaitForSingleObject(stop, milliseconds) == WAIT_OBJECT_0;
    Sleep(milliseconds);
    return false;
}

Taken queue_take(EventQueue& queue, const EventMatch& match, const Patience& patience, TapiEvent& event) {
    const HANDLE handles[] = {queue.arrived.get(), patience.stop};
    const DWORD count = patience.stop ? 2 : 1;
    while (true) {
        if (take_present(queue, match, event)) return Taken::event;
        switch (WaitForMultipleObjects(count, handles, FALSE, time_left(patience))) {
            case WAIT_OBJECT_0:
                break;
            case WAIT_OBJECT_0 + 1:
                return Taken::stopped;
            default:
                return Taken::timeout;
        }
    }
}

void queue_put(EventQueue& queue, const TapiEvent& event) {
    {
        const ScopedLock lock(queue.lock);
        queue.events.push_back(event);
        if (!event.function && event.dwMsg == LINE_CALLSTATE) queue.dwCallState = static_cast<DWORD>(event.dwParam1);
    }
    SetEvent(queue.arrived.get());
}

void queue_clear(EventQueue& queue) {
    const ScopedLock lock(queue.lock);
    queue.events.clear();
}

DWORD queue_call_state(EventQueue& queue) {
    const ScopedLock lock(queue.lock);
    return queue.dwCallState;
}

void queue_set_call_state(EventQueue& queue, DWORD dwCallState) {
    const ScopedLock lock(queue.lock);
    queue.dwCallState = dwCallState;
}

void hub_observe(EventObserver observer) {
    gObserver = std::move(observer);
}

HTAPILINE hub_add_line(DWORD dwDeviceID, EventQueue& queue) {
    const ScopedLock lock(gHub.lock);
    const auto htLine = reinterpret_cast<HTAPILINE>(gHub.next_line++);
    gHub.lines[htLine] = {dwDeviceID, &queue};
    return htLine;
}

void hub_remove_line(HTAPILINE htLine) {
    const ScopedLock lock(gHub.lock);
    gHub.lines.erase(htLine);
}

DRV_REQUESTID hub_new_request(HTAPILINE htLine, const char* function) {
    const ScopedLock lock(gHub.lock);
    const DRV_REQUESTID dwRequestID = gHub.next_request;
    // An entry point returns the id or a negative LINEERR_*, so ids stay below the sign bit and are never 0.
    gHub.next_request = gHub.next_request % 0x7FFFFFFF + 1;
    gHub.requests[dwRequestID] = {htLine, function};
    return dwRequestID;
}

void hub_forget_request(DRV_REQUESTID dwRequestID) {
    const ScopedLock lock(gHub.lock);
    gHub.requests.erase(dwRequestID);
}

HTAPICALL hub_new_call() {
    const ScopedLock lock(gHub.lock);
    return reinterpret_cast<HTAPICALL>(gHub.next_call++);
}

void CALLBACK hub_line_event(HTAPILINE htLine, HTAPICALL htCall, DWORD dwMsg, DWORD_PTR dwParam1, DWORD_PTR dwParam2,
                             DWORD_PTR dwParam3) {
    TapiEvent event;
    event.tick = GetTickCount64();
    event.dwMsg = dwMsg;
    event.htCall = htCall;
    event.dwParam1 = dwParam1;
    event.dwParam2 = dwParam2;
    event.dwParam3 = dwParam3;
    if (dwMsg == LINE_NEWCALL && dwParam2 != 0) {
        // The one event that is answered: the provider reads our handle for the call when this procedure returns.
        event.htCall = hub_new_call();
        *reinterpret_cast<HTAPICALL*>(dwParam2) = event.htCall;
    }
    deliver(htLine, event);
}

void CALLBACK hub_completion(DRV_REQUESTID dwRequestID, LONG lResult) {
    TapiEvent event;
    event.tick = GetTickCount64();
    event.function = "unknown request";
    event.dwRequestID = dwRequestID;
    event.lResult = lResult;
    HTAPILINE htLine = nullptr;
    {
        const ScopedLock lock(gHub.lock);
        const auto request = gHub.requests.find(dwRequestID);
        if (request != gHub.requests.end()) {
            event.function = request->second.function;
            htLine = request->second.htLine;
            gHub.requests.erase(request);
        }
    }
    deliver(htLine, event);
}
