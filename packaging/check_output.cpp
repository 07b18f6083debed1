// How the results are told: to people, and to programs.
#include "check.h"
#include "exit_status.h"
#include "json.h"

namespace {

struct VerdictRow {
    Verdict verdict;
    const char* word;
    const char* colour;  // escape sequence; empty for the console's own
};

constexpr VerdictRow VERDICTS[] = {
    {Verdict::good, "ok", "\x1b[32m"},
    {Verdict::not_tried, "not tried", ""},
    {Verdict::attention, "attention", "\x1b[33m"},
    {Verdict::wrong, "wrong", "\x1b[31m"},
};

constexpr char COLOUR_END[] = "\x1b[0m";
constexpr size_t TEXT_COLUMN = 11;

const VerdictRow& row_of(Verdict verdict) {
    for (const VerdictRow& row : VERDICTS) {
        if (row.verdict == verdict) return row;
    }
    return VERDICTS[0];
}

std::string lines_of(const CheckResult& result, bool colours) {
    const VerdictRow& row = row_of(result.verdict);
    const std::string word = row.word;
    const std::string gap(TEXT_COLUMN - word.size(), ' ');
    const bool coloured = colours && *row.colour;
    std::string text = (coloured ? row.colour + word + COLOUR_END : word) + gap + result.name + ": " + result.text;
    if (!result.advice.empty()) text += "\n" + std::string(TEXT_COLUMN, ' ') + result.advice;
    return text;
}

Verdict worst_of(const std::vector<CheckResult>& results) {
    switch (check_status(results)) {
        case SETUP_GOOD:
            return Verdict::good;
        case SETUP_ATTENTION:
            return Verdict::attention;
        default:
            return Verdict::wrong;
    }
}

}  // namespace

std::string check_lines(const std::vector<CheckResult>& results, bool colours) {
    std::string text;
    for (const CheckResult& result : results) text += (text.empty() ? "" : "\n") + lines_of(result, colours);
    return text;
}

std::string check_json(const std::vector<CheckResult>& results) {
    std::vector<JsonObject> checks;
    for (const CheckResult& result : results) {
        JsonObject check;
        json_text(check, "name", result.name);
        json_text(check, "status", row_of(result.verdict).word);
        json_text(check, "text", result.text);
        json_text(check, "advice", result.advice);
        checks.push_back(check);
    }
    JsonObject object;
    json_text(object, "status", row_of(worst_of(results)).word);
    return json_line(json_objects(object, "checks", checks));
}
