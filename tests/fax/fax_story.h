// The steps of fax requests and jobs, for lists of everything that a thread did (whole_story.h). What is done under the
// line's lock stands between its taking and its giving back.
#pragma once

#include <string>
#include <vector>

#include "fax_fixture.h"
#include "whole_story.h"

// What the test's own thread did, which plays TAPI's.
harness::View whole_request();

// A function on LINE1 from its entry to its exit, and what happens in between.
harness::Lines inside(const std::string& function, const std::vector<harness::Lines>& parts = {});
// ... that tells its result at its exit.
harness::Lines inside_with_result(const std::string& function, int result, const std::vector<harness::Lines>& parts);
// What happens under the lock of LINE1.
harness::Lines locked(const std::vector<harness::Lines>& parts);
// How a request takes the lock, for what does not give it back.
harness::Lines lock_is_taken();

// A request of this ID from its entry to its exit, with what its command does between the taking of the lock and the
// completion.
harness::Lines accepted_request(DRV_REQUESTID id, const std::string& command, const harness::Lines& done,
                                uint32_t result = 0);

// The line's status is published.
const harness::Lines& published();
// The fax service is told of progress, or of the end of a job with this result.
const harness::Lines& told_of_progress();
harness::Lines told_of_the_end(uint32_t status, uint32_t line_status);
// The thread's end behind that: the result is published, the call is disconnected, the line given up.
harness::Lines job_is_over(uint32_t mode);
