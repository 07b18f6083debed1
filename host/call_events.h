// The line events that calls are followed by.
#pragma once

#include "events.h"

inline bool is_call_state(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_CALLSTATE;
}

inline bool is_call_state(const TapiEvent& event, DWORD dwCallState) {
    return is_call_state(event) && event.dwParam1 == dwCallState;
}

inline bool is_new_call(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_NEWCALL;
}

inline bool is_ring(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_LINEDEVSTATE && event.dwParam1 == LINEDEVSTATE_RINGING;
}

inline bool is_notification(const TapiEvent& event) {
    return !event.function && event.dwMsg == LINE_CALLDEVSPECIFIC;
}
