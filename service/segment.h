// The shared segment: opened by its readers, created by the host service before any provider is.
#pragma once

#include <cstdint>

#include "fax_status.h"
#include "owned.h"

// The mapped segment; `records` has FAX_RECORD_COUNT entries. They change at any time, without a lock.
struct FaxSegment {
    OwnedHandle mapping;
    OwnedView<const FaxStatusBlock> view;
    const FaxStatusBlock* records = nullptr;
};

// Opens an existing segment for reading: the one of this session, else the one of the services' session. Returns 0, or
// the Windows error: 2 when nobody has created it, 5 when its descriptor keeps this process out.
uint32_t fax_segment_open(FaxSegment& segment);

// Creates the segment (or joins an existing one) with a descriptor that gives everyone reading and the accounts that
// run providers everything. Returns 0 or the Windows error; `existed` tells that somebody created it earlier, with a
// descriptor of his own.
uint32_t fax_segment_create(FaxSegment& segment, bool& existed);
