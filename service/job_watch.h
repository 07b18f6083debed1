// Notices finished fax jobs in the shared segment, which tells of them only by what its records hold.
//
// A record keeps the result of its last job until the next one ends, and the job's body until the call is closed or the
// next job begins. So a job has ended when the result changes, or, when it ended like the one before it, when a body
// that was there goes away. What cannot be noticed: a job that ended like the one before it without having published
// anything (no number, no station id, no page), and a body that came and went between two looks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fax_status.h"

struct JobWatch {
    std::vector<FaxStatusBlock> last;  // every record as it was at the last look
    std::vector<bool> told;            // the result of the body now in the record has been told
};

struct FinishedJob {
    uint32_t unit;
    FaxStatus status;
};

// Takes the records (FAX_RECORD_COUNT of them) as they are for the beginning: results in them are not told again.
JobWatch job_watch_begin(const FaxStatusBlock* records);

// The jobs that have ended since the last look, in the order of their units.
std::vector<FinishedJob> job_watch_look(JobWatch& watch, const FaxStatusBlock* records);

// "unit 3: KX_STATUS_OK, remote id "+49 1", called 101, caller 100, pages 3". The page count is what went through: of a
// job that ended well one more than the record says, which does not count a document's last page.
std::string finished_job_text(const FinishedJob& job);
