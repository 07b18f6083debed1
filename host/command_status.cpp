// faxhost status: the records of the shared segment.
#include <algorithm>
#include <cstring>
#include <vector>

#include "commands.h"
#include "fax_status.h"
#include "journal.h"
#include "json.h"
#include "program.h"
#include "segment.h"
#include "session.h"
#include "text.h"

namespace {

constexpr DWORD WATCH_INTERVAL = 100;  // milliseconds

bool is_blank(const FaxStatusBlock& record) {
    static const FaxStatusBlock blank = {};
    return std::memcmp(&record, &blank, sizeof(record)) == 0;
}

void show_record(const Arguments& arguments, uint32_t unit, const FaxStatusBlock& record) {
    const FaxStatus status = fax_status_of(record);
    const std::string result = kx_result_text(status.status, status.line_status);
    JsonObject facts;
    json_text(facts, "type", "record");
    json_number(facts, "unit", unit);
    json_text(facts, "result", result);
    json_text(facts, "remote_id", status.remote_id);
    json_text(facts, "called", status.called_id);
    json_text(facts, "caller", status.caller_id);
    json_number(facts, "pages", status.dwPageCount);
    show(arguments,
         format("%4u  %-44s  %-20s  %-16s  %-16s  %5u", unit, result.c_str(), status.remote_id.c_str(),
                status.called_id.c_str(), status.caller_id.c_str(), status.dwPageCount),
         facts);
}

// A blank record belongs to no channel, or to one that has had no fax, or none that failed, and has none now.
size_t show_records(const Arguments& arguments, const FaxSegment& segment) {
    size_t shown = 0;
    for (uint32_t unit = 0; unit < FAX_RECORD_COUNT; ++unit) {
        const FaxStatusBlock record = segment.records[unit];
        if (is_blank(record)) continue;
        show_record(arguments, unit, record);
        ++shown;
    }
    return shown;
}

void watch(const Arguments& arguments, const FaxSegment& segment) {
    std::vector<FaxStatusBlock> last(segment.records, segment.records + FAX_RECORD_COUNT);
    while (WaitForSingleObject(stop_event(), WATCH_INTERVAL) == WAIT_TIMEOUT) {
        for (uint32_t unit = 0; unit < FAX_RECORD_COUNT; ++unit) {
            const FaxStatusBlock now = segment.records[unit];
            if (std::memcmp(&now, &last[unit], sizeof(now)) == 0) continue;
            show_record(arguments, unit, now);
            last[unit] = now;
        }
    }
}

Failure segment_failure(uint32_t error) {
    Failure failure = {EXIT_PROVIDER, "LINEERR_RESOURCEUNAVAIL",
                       "the shared segment cannot be opened, " + windows_error(error), ""};
    failure.advice = error == ERROR_ACCESS_DENIED
                         ? "a provider created it for its own account; start the service calder before any provider"
                         : "start the service calder: net start calder";
    return failure;
}

}  // namespace

Failure command_status(const Arguments& arguments) {
    FaxSegment segment;
    if (const uint32_t error = fax_segment_open(segment)) return segment_failure(error);
    const Journal journal;
    if (!arguments.json) {
        journal_line(format("%4s  %-44s  %-20s  %-16s  %-16s  %5s", "unit", "last result", "remote id", "called",
                            "caller", "pages"));
    }
    const size_t shown = show_records(arguments, segment);
    if (arguments.watch) {
        watch(arguments, segment);
    } else if (shown == 0 && !arguments.json) {
        journal_line("every record is blank: no fax is in progress and none has failed last");
    }
    return {};
}
