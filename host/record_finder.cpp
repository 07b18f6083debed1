// The search for a line's record.
#include "record_finder.h"

#include <algorithm>
#include <cstring>

void finder_begin(RecordFinder& finder, const FaxSegment& segment, bool receiving, const std::string& caller_id) {
    finder.segment = &segment;
    finder.before.assign(segment.records, segment.records + FAX_RECORD_COUNT);
    finder.receiving = receiving;
    finder.caller_id = caller_id;
}

static bool body_differs(const FaxStatusBlock& a, const FaxStatusBlock& b) {
    constexpr size_t body = offsetof(FaxStatusBlock, szRemoteId);
    const auto* bytes_a = reinterpret_cast<const char*>(&a);
    const auto* bytes_b = reinterpret_cast<const char*>(&b);
    return std::memcmp(bytes_a + body, bytes_b + body, sizeof(FaxStatusBlock) - body) != 0;
}

static bool fits(const RecordFinder& finder, const FaxStatusBlock& record) {
    const FaxStatus status = fax_status_of(record);
    if (!finder.receiving) return status.caller_id.empty() && status.called_id.empty();
    return status.caller_id == finder.caller_id;
}

static bool is_taken(uint32_t unit, const std::map<unsigned long, uint32_t>& taken) {
    return std::any_of(taken.begin(), taken.end(), [unit](const auto& entry) { return entry.second == unit; });
}

std::optional<uint32_t> finder_look(const RecordFinder& finder, const std::map<unsigned long, uint32_t>& taken) {
    std::optional<uint32_t> found;
    for (uint32_t unit = 0; unit < FAX_RECORD_COUNT; ++unit) {
        const FaxStatusBlock& now = finder.segment->records[unit];
        if (!body_differs(now, finder.before[unit]) || !fits(finder, now)) continue;
        if (is_taken(unit, taken)) continue;
        if (found) return std::nullopt;
        found = unit;
    }
    return found;
}
