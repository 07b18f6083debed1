// The fax service's side of a job on a connected call: open the TIFF file, send or receive, follow the progress, take
// the result, close the file.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "call.h"
#include "line.h"
#include "segment.h"

// How the provider is asked to tell that a command is finished.
enum class Completion { tapi, event };

struct FaxJob {
    bool receiving = false;
    std::string file;  // full path
    std::string header_text;
    std::string local_id;
    bool add_header = false;
    Completion completion = Completion::tapi;
    CallInfo call;  // of a received call
};

// A job as far as it has come. What comes from the shared segment is missing when the segment cannot be read.
struct FaxProgress {
    uint32_t pages = 0;  // that went through
    std::string remote_id;
    std::string called_id;
    std::string caller_id;
    DWORD dwRate = 0;  // bit/s
};
using ProgressObserver = std::function<void(const FaxProgress&)>;

struct FaxResult {
    uint32_t status = 0;
    uint32_t line_status = 0;
    FaxProgress progress;
    double seconds = 0;  // from the start command to the end notification
};

// Where the progress of every line of this process is read. One for all lines; opened by the first job.
struct StatusReader {
    SRWLOCK lock = SRWLOCK_INIT;
    FaxSegment segment;
    bool tried = false;
    uint32_t error = 0;               // Windows error of the segment's opening
    std::map<DWORD, uint32_t> units;  // records that are known, by device ID; a channel keeps its unit
};

// Opens the segment if that has not been tried. A reader that has none is no failure: jobs go on, their page counts
// taken from the notifications alone. Returns the Windows error.
uint32_t status_reader_open(StatusReader& reader);

// Runs one job from TIFFOPEN to TIFFCLOSE on a line whose call is connected. Blocks until the job has ended; `stop`
// (may be null) aborts it, and its result is then that of an aborted job. What the job came to is in `result`; a
// failure is that of a command around it: the file cannot be opened or finished, the job does not start or end.
Failure fax_job_run(Line& line, const FaxJob& job, StatusReader& reader, const ProgressObserver& observer, HANDLE stop,
                    FaxResult& result);
