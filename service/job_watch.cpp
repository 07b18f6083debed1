// Finds the ends of fax jobs by comparing the records with what they were.
#include "job_watch.h"

#include <cstring>

#include "text.h"

JobWatch job_watch_begin(const FaxStatusBlock* records) {
    JobWatch watch;
    watch.last.assign(records, records + FAX_RECORD_COUNT);
    watch.told.assign(FAX_RECORD_COUNT, false);
    return watch;
}

// Looks at the few fields in which a job shows, because this is done for every record several times a second.
static bool has_moved(const FaxStatusBlock& a, const FaxStatusBlock& b) {
    return std::memcmp(&a, &b, offsetof(FaxStatusBlock, cRemoteIdEnd)) != 0 || a.dwPageCount != b.dwPageCount ||
           a.wszCalledId[0] != b.wszCalledId[0] || a.wszCallerId[0] != b.wszCallerId[0];
}

// The body of another job: what a job has published it takes back only by starting anew.
static bool body_was_replaced(const FaxStatusBlock& before, const FaxStatusBlock& now) {
    return now.dwPageCount < before.dwPageCount ||
           (before.szRemoteId[0] != 0 && std::memcmp(before.szRemoteId, now.szRemoteId, sizeof(now.szRemoteId)) != 0) ||
           (before.wszCallerId[0] != 0 && now.wszCallerId[0] == 0) ||
           (before.wszCalledId[0] != 0 && now.wszCalledId[0] == 0);
}

static FinishedJob finished(uint32_t unit, const FaxStatusBlock& body, const FaxStatusBlock& result) {
    FinishedJob job = {unit, fax_status_of(body)};
    job.status.status = result.status;
    job.status.line_status = result.line_status;
    return job;
}

std::vector<FinishedJob> job_watch_look(JobWatch& watch, const FaxStatusBlock* records) {
    std::vector<FinishedJob> jobs;
    for (uint32_t unit = 0; unit < FAX_RECORD_COUNT; ++unit) {
        if (!has_moved(records[unit], watch.last[unit])) continue;
        const FaxStatusBlock now = records[unit];
        FaxStatusBlock& before = watch.last[unit];
        const bool new_result = now.status != before.status || now.line_status != before.line_status;
        const bool body_gone = body_was_replaced(before, now);
        if (new_result) {
            jobs.push_back(finished(unit, body_gone || fax_body_is_empty(now) ? before : now, now));
        } else if (body_gone && !watch.told[unit]) {
            jobs.push_back(finished(unit, before, now));
        }
        watch.told[unit] = body_gone ? false : watch.told[unit] || new_result;
        before = now;
    }
    return jobs;
}

std::string finished_job_text(const FinishedJob& job) {
    const FaxStatus& status = job.status;
    std::string text = format("unit %u: %s", job.unit, kx_result_text(status.status, status.line_status).c_str());
    if (!status.remote_id.empty()) text += format(", remote id \"%s\"", status.remote_id.c_str());
    if (!status.called_id.empty()) text += ", called " + status.called_id;
    if (!status.caller_id.empty()) text += ", caller " + status.caller_id;
    return text + format(", pages %u", fax_pages_of(status));
}
