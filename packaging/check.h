// Whether everything is there that the provider needs when telephony starts it.
#pragma once

#include <string>
#include <vector>

enum class Verdict {
    good,
    not_tried,  // not looked at, for a reason that `text` gives; counts as good
    attention,  // the provider works without it
    wrong,      // the provider does not work
};

struct CheckResult {
    std::string name;  // "host service", unchanging, for programs too
    Verdict verdict = Verdict::good;
    std::string text;    // what was found: "calder is running"
    std::string advice;  // what to do; empty when there is nothing to do
};

// Looks at the machine, changes nothing on it, and needs no administrator's rights, though without them it may have to
// say that something cannot be seen. Blocks as long as the channels' resets take.
std::vector<CheckResult> check_machine();

// A line per result: "ok         host service: calder is running". With `colours` the verdict is coloured by the
// console's escape sequences.
std::string check_lines(const std::vector<CheckResult>& results, bool colours);

// The same as one JSON object: {"status": "ok", "checks": [{"name": ..., "status": ..., "text": ..., "advice": ...}]}.
std::string check_json(const std::vector<CheckResult>& results);

// SETUP_GOOD, SETUP_ATTENTION or SETUP_FAILED, by the worst.
int check_status(const std::vector<CheckResult>& results);
