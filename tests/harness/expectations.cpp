// Comparing views of the journal with what a test expects.
#include <algorithm>

#include "journal.h"
#include "text.h"

namespace harness {

namespace {

// The difference as a listing: "-" is expected and missing, "+" is there and not expected.
std::string difference(const Lines& expected, const Lines& seen) {
    size_t rows = expected.size(), columns = seen.size();
    std::vector<std::vector<size_t>> common(rows + 1, std::vector<size_t>(columns + 1, 0));
    for (size_t i = rows; i-- > 0;)
        for (size_t j = columns; j-- > 0;)
            common[i][j] =
                matches(expected[i], seen[j]) ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    std::string listing;
    size_t i = 0, j = 0;
    while (i < rows || j < columns) {
        if (i < rows && j < columns && matches(expected[i], seen[j])) {
            listing += "    " + seen[j] + "\n";
            ++i, ++j;
        } else if (j == columns || (i < rows && common[i + 1][j] >= common[i][j + 1])) {
            listing += "  - " + expected[i++] + "\n";
        } else {
            listing += "  + " + seen[j++] + "\n";
        }
    }
    return listing;
}

}  // namespace

testing::AssertionResult reads(const View& view, const Lines& expected) {
    Lines seen = lines(view);
    bool same = seen.size() == expected.size() &&
                std::equal(seen.begin(), seen.end(), expected.begin(),
                           [](const std::string& line, const std::string& pattern) { return matches(pattern, line); });
    if (same) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the journal reads otherwise (- missing, + not expected):\n"
                                       << difference(expected, seen);
}

testing::AssertionResult reads_in_order(const View& view, const Lines& expected) {
    Lines seen = lines(view);
    size_t next = 0;
    for (const std::string& line : seen)
        if (next < expected.size() && matches(expected[next], line)) ++next;
    if (next == expected.size()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "missing in this order from: " << expected[next] << "\n"
                                       << difference(expected, seen);
}

testing::AssertionResult holds(const View& view, const std::string& pattern) {
    if (count(view, pattern) > 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no line " << pattern << " in:\n" << difference({}, lines(view));
}

testing::AssertionResult holds_no(const View& view, const std::string& pattern) {
    if (count(view, pattern) == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "unexpected line " << pattern << " in:\n" << difference({}, lines(view));
}

}  // namespace harness
