// The notes in the registry: a line of text per change, kind|name|detail|before.
#include "install_log.h"

#include <algorithm>

#include "machine.h"
#include "registry.h"

namespace {

constexpr wchar_t LOG_KEY[] = L"SOFTWARE\\Halvorsund Telephony Service Provider";
constexpr wchar_t DONE[] = L"Done";
constexpr wchar_t IN_PROGRESS[] = L"InProgress";

constexpr const wchar_t* KIND_NAMES[] = {L"file",    L"replaced", L"folder",  L"key",     L"value",
                                         L"service", L"started",  L"stopped", L"provider"};
static_assert(std::size(KIND_NAMES) == static_cast<size_t>(ChangeKind::provider) + 1);

std::wstring line_of(const Change& change) {
    return std::wstring(KIND_NAMES[static_cast<size_t>(change.kind)]) + L"|" + change.name + L"|" + change.detail +
           L"|" + change.before;
}

// The text up to the next separator, which is taken off with it.
std::wstring take_field(std::wstring& line) {
    const size_t end = std::min(line.find(L'|'), line.size());
    std::wstring field = line.substr(0, end);
    line.erase(0, end + 1);
    return field;
}

// Lines of a later version, of a kind that is not known here, are left out.
std::vector<Change> changes_of(const std::vector<std::wstring>& lines) {
    std::vector<Change> changes;
    for (std::wstring line : lines) {
        const std::wstring kind = take_field(line);
        const auto* const name = std::find(std::begin(KIND_NAMES), std::end(KIND_NAMES), kind);
        if (name == std::end(KIND_NAMES)) continue;
        Change change = {static_cast<ChangeKind>(name - KIND_NAMES), take_field(line), take_field(line), line};
        changes.push_back(change);
    }
    return changes;
}

uint32_t write_changes(HKEY key, const wchar_t* name, const std::vector<Change>& changes) {
    std::vector<std::wstring> lines(changes.size());
    std::transform(changes.begin(), changes.end(), lines.begin(), line_of);
    return write_lines(key, name, lines);
}

bool concerns_the_same(const Change& one, const Change& other) {
    return one.kind == other.kind && one.name == other.name &&
           (one.kind != ChangeKind::value || one.detail == other.detail);
}

// The note about the same thing that is there, else this one, added.
Change& find_or_add(std::vector<Change>& changes, const Change& change) {
    const auto noted = std::find_if(changes.begin(), changes.end(),
                                    [&](const Change& other) { return concerns_the_same(other, change); });
    return noted != changes.end() ? *noted : changes.emplace_back(change);
}

void add_file(std::vector<Change>& changes, const std::wstring& path) {
    find_or_add(changes, {ChangeKind::file, path, L"", L""}).detail = file_fingerprint(path);
}

}  // namespace

uint32_t install_log_read(InstallLog& log) {
    log = {};
    OwnedKey key;
    const uint32_t error = open_key(LOG_KEY, KEY_READ, key);
    if (error == ERROR_FILE_NOT_FOUND) return 0;
    if (error != 0) return error;
    log.done = changes_of(read_lines(key.get(), DONE));
    log.in_progress = changes_of(read_lines(key.get(), IN_PROGRESS));
    return 0;
}

uint32_t install_log_write(const InstallLog& log) {
    if (log.done.empty() && log.in_progress.empty()) {
        const uint32_t error = RegDeleteKeyW(HKEY_LOCAL_MACHINE, LOG_KEY);
        return error == ERROR_FILE_NOT_FOUND ? 0 : error;
    }
    OwnedKey key;
    uint32_t error = create_key(LOG_KEY, key);
    // Were it cut short between the two, a change would be noted twice rather than not at all.
    if (error == 0) error = write_changes(key.get(), DONE, log.done);
    if (error == 0) error = write_changes(key.get(), IN_PROGRESS, log.in_progress);
    return error;
}

void install_log_commit(InstallLog& log) {
    for (const Change& change : log.in_progress) {
        if (change.kind == ChangeKind::started || change.kind == ChangeKind::stopped) continue;
        if (change.kind == ChangeKind::replaced) add_file(log.done, change.detail);
        if (change.kind == ChangeKind::replaced || change.kind == ChangeKind::file) {
            add_file(log.done, change.name);
        } else {
            find_or_add(log.done, change);
        }
    }
    log.in_progress.clear();
}
