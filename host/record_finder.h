// Finds out which record of the shared segment belongs to a line.
//
// Records are indexed by the driver's unit number, which the provider tells nobody: neither the device ID nor the
// channel number needs to be equal to it. What is known is when a line's record changes: before each progress
// notification of its job. So the line's record is the one whose body differs from what it was when the job began,
// carries numbers if the line received and none if it sent, and is not known to be another line's. As long as several
// fit, none is taken; the next notification decides. Once found, a unit is the line's for good.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "segment.h"

struct RecordFinder {
    const FaxSegment* segment = nullptr;
    std::vector<FaxStatusBlock> before;  // every record as the job began
    bool receiving = false;
    std::string caller_id;  // of a received call, as TAPI was told
};

// To be called before the job starts.
void finder_begin(RecordFinder& finder, const FaxSegment& segment, bool receiving, const std::string& caller_id);

// The unit of the line whose job has just told of progress, if it can be told from the others. `taken` are the units of
// other lines, by device ID.
std::optional<uint32_t> finder_look(const RecordFinder& finder, const std::map<unsigned long, uint32_t>& taken);
