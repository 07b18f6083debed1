// Runs a body so that nothing it raises gets out: no C++ exception, and no hardware fault either (access violation,
// division fault and the like). The telephony service lives in the same process; one wild handle must not end it.
#pragma once

#include "diag/diag.h"

// Calls body(context). 0 = it returned; 1 = a hardware fault ended it, in which case no destructor has run on the way
// and the line locks that it took through LineLock are given back. C++ exceptions pass through.
extern "C" int call_with_fault_guard(void (*body)(void*), void* context);

// What a fault becomes on its way out of the guard.
struct HardwareFault {};

// Runs body; a fault in it goes on as a C++ exception from here, so that the destructors of the callers run.
template <class Body>
void with_faults_as_exceptions(Body body) {
    if (call_with_fault_guard([](void* context) { (*static_cast<Body*>(context))(); }, &body) != 0)
        throw HardwareFault{};
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

// As completes; what body raised is traced under the name of the function that it is the body of.
template <class Body>
bool completes_or_traces(const char* name, Body body) {
    if (completes(body)) return true;
    TRACE(TRACE_PANIC, "%s: Exception", name);
    return false;
}
