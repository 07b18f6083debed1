// The frame of a fax thread: whatever happens inside, the arguments are freed, the end of the job is reported and the
// line is given up, so that the fax service never waits in vain.
#pragma once

#include <memory>

#include "diag/diag.h"
#include "fault_guard.h"
#include "fax/qorv_fax.h"

struct FreeGlobal {
    void operator()(void* memory) const { GlobalFree(memory); }
};

// run(args) carries the fax out; `outcome` stands for it if it raises something. Then the board's reports are turned
// off, and report_end(pLine, outcome) tells the fax service, the shared segment and TAPI.
template <class Outcome, class Run, class ReportEnd>
void run_fax_thread(const char* name, void* arg, Outcome outcome, Run run, ReportEnd report_end) {
    std::unique_ptr<FaxThreadArgs, FreeGlobal> args(static_cast<FaxThreadArgs*>(arg));
    if (!args) {
        TRACE_NULL_ARGUMENT(name, "arg");
        return;
    }
    LineRec* pLine = args->pLine;
    if (!pLine) {
        TRACE_NULL_LINE(name);
        static_cast<void>(args.release());
        return;
    }
    TRACE_ENTER(pLine, name);
    completes_or_traces(name, [&] { outcome = run(*args); });
    args.reset();
    completes_or_traces(name, [&] { install_report_handler(pLine, nullptr); });
    completes_or_traces(name, [&] { report_end(pLine, outcome); });
    const LineIdentity identity = end_fax_job(pLine);
    TRACE_EXIT(identity, name);
}
