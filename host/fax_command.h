// The commands of a fax job, one function each.
#pragma once

#include "command_block.h"
#include "fax_job.h"

// Each sends its command and waits for it to be finished. A failure is the provider's refusal, or the command's own:
// the file cannot be opened, the job did not start, the file cannot be finished.
Failure tiff_open(Line& line, const FaxJob& job);
Failure fax_start(Line& line, const FaxJob& job);
Failure fax_abort(Line& line, Completion completion);
Failure fax_get_status(Line& line, Completion completion);
Failure tiff_close(Line& line, const FaxJob& job);
