#include "journal.h"

#include <algorithm>
#include <map>
#include <utility>

#include "text.h"
#include "waiting.h"

namespace harness {

namespace {

std::vector<Entry> journal;
Lines found_problems;
std::map<uint64_t, std::string> names;

bool is_enter_or_exit(const Entry& entry) {
    return entry.kind == TRACE && (entry.level == 8 || entry.level == 9);
}

bool is_about_the_lock(const Entry& entry) {
    return entry.kind == TRACE && entry.level == 4 &&
           (entry.text.rfind("lock_line()", 0) == 0 || entry.text.rfind("unlock_line()", 0) == 0);
}

std::string line_of(const Entry& entry) {
    std::string shown = with_names(entry.text);
    return entry.kind == TRACE ? text("[%d] ", entry.level) + shown : shown;
}

bool is_usual(const Entry& entry) {
    return !is_enter_or_exit(entry) && !is_about_the_lock(entry);
}

bool selected(const View& view, const Entry& entry) {
    if (!(view.kinds & entry.kind)) return false;
    const std::vector<int>& levels = view.wanted_levels;
    bool level_kept =
        levels.empty() ? is_usual(entry) : std::find(levels.begin(), levels.end(), entry.level) != levels.end();
    return (entry.kind != TRACE || level_kept) && (!view.keep || view.keep(entry));
}

View narrowed(View view, std::function<bool(const Entry&)> more) {
    view.keep = [before = view.keep, more](const Entry& entry) { return (!before || before(entry)) && more(entry); };
    return view;
}

bool matches_one(const std::vector<std::string>& patterns, const Entry& entry) {
    std::string line = line_of(entry);
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return matches(pattern, line); });
}

// The 16 upper-case digits at a place of a text as a number, if they are such.
bool pointer_at(const std::string& text, size_t place, uint64_t& value) {
    if (place + 16 > text.size()) return false;
    value = 0;
    for (size_t i = place; i < place + 16; ++i) {
        char digit = text[i];
        bool decimal = digit >= '0' && digit <= '9';
        if (!decimal && (digit < 'A' || digit > 'F')) return false;
        value = value * 16 + static_cast<uint64_t>(decimal ? digit - '0' : digit - 'A' + 10);
    }
    return true;
}

}  // namespace

View View::levels(std::initializer_list<int> wanted) const {
    View view = *this;
    view.wanted_levels = wanted;
    return view;
}

View View::all_levels() const {
    return levels({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18});
}

View View::on_thread(DWORD thread) const {
    return narrowed(*this, [thread](const Entry& entry) { return entry.thread == thread; });
}

View View::only(std::vector<std::string> patterns) const {
    return narrowed(*this,
                    [patterns = std::move(patterns)](const Entry& entry) { return matches_one(patterns, entry); });
}

View View::without(std::vector<std::string> patterns) const {
    return narrowed(*this,
                    [patterns = std::move(patterns)](const Entry& entry) { return !matches_one(patterns, entry); });
}

View all_of(unsigned kinds) {
    return {kinds};
}
View story() {
    return all_of(TRACE | DRIVER | EVENT | COMPLETION | EVENT_LOG | NOTE);
}
View traces() {
    return all_of(TRACE);
}
View driver_calls() {
    return all_of(DRIVER);
}
View events() {
    return all_of(EVENT);
}
View completions() {
    return all_of(COMPLETION);
}
View event_log() {
    return all_of(EVENT_LOG);
}
View windows_calls() {
    return all_of(WINDOWS);
}

void add_entry(Entry entry) {
    entry.thread = GetCurrentThreadId();
    {
        std::lock_guard<std::mutex> holding(world());
        journal.push_back(std::move(entry));
    }
    world_changed();
}

void note(const std::string& text) {
    add_entry({NOTE, text});
}

void new_chapter() {
    std::lock_guard<std::mutex> holding(world());
    journal.clear();
}

std::vector<Entry> entries(const View& view) {
    std::vector<Entry> all;
    {
        std::lock_guard<std::mutex> holding(world());
        all = journal;
    }
    all.erase(std::remove_if(all.begin(), all.end(), [&](const Entry& entry) { return !selected(view, entry); }),
              all.end());
    return all;
}

Lines lines(const View& view) {
    Lines result;
    for (const Entry& entry : entries(view)) result.push_back(line_of(entry));
    return result;
}

size_t count(const View& view, const std::string& pattern) {
    Lines seen = lines(view);
    return static_cast<size_t>(
        std::count_if(seen.begin(), seen.end(), [&](const std::string& line) { return matches(pattern, line); }));
}

std::string whole_journal() {
    std::string result;
    for (const Entry& entry : entries(all_of(~0u).all_levels()))
        if (!is_about_the_lock(entry)) result += text("  %5lu  ", entry.thread) + line_of(entry) + "\n";
    return result;
}

testing::AssertionResult comes(const std::string& pattern, size_t times) {
    size_t looked_at = 0, found = 0;
    auto came = [&] {
        std::vector<Entry> fresh;
        {
            std::lock_guard<std::mutex> holding(world());
            looked_at = std::min(looked_at, journal.size());
            fresh.assign(journal.begin() + static_cast<ptrdiff_t>(looked_at), journal.end());
            looked_at = journal.size();
        }
        for (const Entry& entry : fresh) found += matches(pattern, line_of(entry)) ? 1 : 0;
        return found >= times;
    };
    if (wait_until(came)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "never came: " << pattern << " (" << times << " times); the journal:\n"
                                       << whole_journal();
}

void name_pointer(const void* pointer, const std::string& name) {
    std::lock_guard<std::mutex> holding(world());
    names[reinterpret_cast<uintptr_t>(pointer)] = name;
}

std::string name_of(const void* pointer) {
    return with_names(pointer_text(pointer));
}

std::string with_names(const std::string& raw) {
    std::lock_guard<std::mutex> holding(world());
    std::string shown;
    for (size_t place = 0; place < raw.size();) {
        uint64_t value = 0;
        bool ours = raw[place] == '@' && pointer_at(raw, place + 1, value);
        if (!ours && !pointer_at(raw, place, value)) {
            shown += raw[place++];
            continue;
        }
        auto named = names.find(value);
        place += ours ? 1 : 0;
        if (named != names.end())
            shown += named->second;
        else if (ours && value == 0)
            shown += "0";
        else
            shown += (ours ? "0x" : "") + raw.substr(place, 16);
        place += 16;
    }
    return shown;
}

void forget_names() {
    std::lock_guard<std::mutex> holding(world());
    names.clear();
}

void problem(const std::string& text) {
    {
        std::lock_guard<std::mutex> holding(world());
        found_problems.push_back(text);
    }
    world_changed();
}

Lines problems() {
    std::lock_guard<std::mutex> holding(world());
    return found_problems;
}

void forget_problems() {
    std::lock_guard<std::mutex> holding(world());
    found_problems.clear();
}

}  // namespace harness
