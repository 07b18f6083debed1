// The trace of a provider of the same code, which exports it.
#include "diag/diag.h"

extern "C" __declspec(dllexport) decltype(&trace) bench_trace() {
    return trace;
}
