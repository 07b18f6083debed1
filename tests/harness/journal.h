// The journal: everything that happened around the provider, in one ordered list, and the views that tests read.
//
// A test names what it looks at (a View), and compares the lines with literal texts:
//
//     EXPECT_TRUE(reads(driver_calls(), {"DornLineAlert(unit=14)", "DornSessionDetach(CHAN4)"}));
//     EXPECT_TRUE(comes("[4] Ring_det received alert"));
//
// How a line looks:
//     trace         [level] text, without the "P-0x..:T-0x..: " in front, which is checked when the line comes
//     driver call   DornCallSetup(CHAN4, "5551234")
//     TAPI event    LINE_CALLSTATE(HTLINE1, HTCALL1, OFFERING, 0x1, 0x20)
//     completion    completion(request=0x11, result=0x0)
//     event log     event log(category=1, 0xC000000D, "", "4")
//     Windows call  Sleep(6000)
// Pointers that have a name are shown by it, wherever they are: "hdLine(0xLINE1), htLine(0xHTLINE1), ...".
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace harness {

enum Kind : unsigned {
    TRACE = 0x01,
    DRIVER = 0x02,        // calls that do something on the board
    DRIVER_QUERY = 0x04,  // calls that only ask: unit, slot, state word, tagged values, interest in a level
    DRIVER_LOG = 0x08,    // set-up of the log's filter
    EVENT = 0x10,         // TAPI's line event procedure
    COMPLETION = 0x20,    // TAPI's completion procedure
    EVENT_LOG = 0x40,
    WINDOWS = 0x80,  // replaced Windows functions
    NOTE = 0x100,    // written by the test itself
};

struct Entry {
    Kind kind;
    std::string text;
    std::vector<uint8_t> record = {};  // the driver record as the provider passed it in
    int level = 0;                     // the next three: of a trace line
    std::string source_file = "";
    uint32_t source_line = 0;
    DWORD thread = 0;  // filled in by add_entry
};

// A selection of the journal. Function entries and exits (levels 8 and 9) and the level 4 lines of lock_line and
// unlock_line are left out unless asked for.
struct View {
    unsigned kinds;
    std::vector<int> wanted_levels = {};  // empty = the usual ones
    std::function<bool(const Entry&)> keep = nullptr;

    // Trace lines of exactly these levels; function entries and exits and the lock's lines are in if 8, 9, 4 are.
    View levels(std::initializer_list<int> wanted) const;
    // Trace lines of every level.
    View all_levels() const;
    // Only what this thread did.
    View on_thread(DWORD thread) const;
    // Only lines that match one of the patterns.
    View only(std::vector<std::string> patterns) const;
    // No line that matches one of the patterns.
    View without(std::vector<std::string> patterns) const;
};

View story();         // traces, driver calls, events, completions, event log
View traces();        // levels 1, 2, 4 and 12 to 17
View driver_calls();  // without the queries
View events();
View completions();
View event_log();
View windows_calls();
View all_of(unsigned kinds);

using Lines = std::vector<std::string>;

void add_entry(Entry entry);
void note(const std::string& text);
// Forgets what was written so far, so that a test sees only what it causes itself.
void new_chapter();
Lines lines(const View& view);
// The same with everything an entry keeps.
std::vector<Entry> entries(const View& view);
size_t count(const View& view, const std::string& pattern);
// The lines of the whole journal, for a hang or a failure.
std::string whole_journal();

// Exactly these lines; "<*>" stands for any run of characters. The message shows the difference.
testing::AssertionResult reads(const View& view, const Lines& expected);
// These lines in this order, with anything between them.
testing::AssertionResult reads_in_order(const View& view, const Lines& expected);
testing::AssertionResult holds(const View& view, const std::string& pattern);
testing::AssertionResult holds_no(const View& view, const std::string& pattern);
// Waits until so many lines of the journal, of any kind and level, match.
testing::AssertionResult comes(const std::string& pattern, size_t times = 1);

// Gives a pointer or handle the name under which lines show it; the newest name of a value counts.
void name_pointer(const void* pointer, const std::string& name);
std::string name_of(const void* pointer);
// The text with the names in it.
std::string with_names(const std::string& text);
void forget_names();

// What must not happen whatever a test is about: a record that was not cleared, a line used after its detach, a trace
// line with a wrong prefix. The fixture fails the test for each.
void problem(const std::string& text);
Lines problems();
void forget_problems();

}  // namespace harness
