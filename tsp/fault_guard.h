// Runs a body so that nothing it raises gets out: no C++ exception, and no hardware fault either (access violation,
// division fault and the like). The telephony service lives in the same process; one wild handle must not end it.
#pragma once

#include "diag/diag.h"

// Calls body(context). 0 = it returned; 1 = a hardware fault ended it, in which case no destructor has run on the way.
// C++ exceptions pass through.
extern "C" int call_with_fault_frame(void (*body)(void*), void* context);

// The same; after a fault the line locks that the body took through LineLock are given back.
extern "C" int call_with_fault_guard(void (*body)(void*), void* context);

template <class Body>
void run_body(void* body) {
    (*static_cast<Body*>(body))();
}

// What a fault becomes on its way out of the guard.
struct HardwareFault {};

// Runs body; a fault in it goes on as a C++ exception from here, so that the destructors of the callers run.
template <class Body>
void with_faults_as_exceptions(Body body) {
    if (call_with_fault_guard(run_body<Body>, &body) != 0) throw HardwareFault{};
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
        return call_with_fault_frame(run_body<Body>, &body) == 0;
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
