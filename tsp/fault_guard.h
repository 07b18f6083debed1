// Runs a body so that nothing it raises gets out: no C++ exception, and no hardware fault either (access violation,
// division fault and the like). The telephony service lives in the same process; one wild handle must not end it.
#pragma once

#include <climits>

#include "diag/diag.h"

// A body that runs in a guard.
using GuardedBody = int (*)(void* context, int argument);

// What the guard gives instead of the body's own result, which is never this.
constexpr int FAULTED = INT_MIN;

// Gives what body(context, argument) returns, or FAULTED when a hardware fault has ended it, in which case no
// destructor has run on the way. C++ exceptions pass through.
extern "C" int call_with_fault_frame(GuardedBody body, void* context, int argument);

// The same; after a fault the line locks that the body took through LineLock are given back.
int call_with_fault_guard(GuardedBody body, void* context);

template <class Body>
int run_body(void* body, int) {
    (*static_cast<Body*>(body))();
    return 0;
}

// What a fault becomes on its way out of the guard.
struct HardwareFault {};

// Runs body; a fault in it goes on as a C++ exception from here, so that the destructors of the callers run.
template <class Body>
void with_faults_as_exceptions(Body body) {
    if (call_with_fault_guard(run_body<Body>, &body) == FAULTED) throw HardwareFault{};
}

// Whether body returned, rather than raised something.
template <class Body>
bool completes(Body body) {
    try {
        with_faults_as_exceptions(body);
        return true;
    } catch (...) {
        return false;
    }
}

// As completes, for a body that takes no line lock; it is spared the look at those that the thread holds.
template <class Body>
bool completes_without_locks(Body body) {
    try {
        return call_with_fault_frame(run_body<Body>, &body, 0) != FAULTED;
    } catch (...) {
        return false;
    }
}

// As completes; what body raised is traced under the name of the function that it is the body of.
template <class Body>
bool completes_or_traces(const char* name, Body body) {
    if (completes(body)) return true;
    TRACE(TRACE_PANIC, "%s: Exception", name);
    return false;
}
