// The notes in the registry: a line of text per change, done|kind|name|detail|before|put, or begun|... while it is in
// progress. They are one value, so that a change of several of them is made as a whole.
#include "install_log.h"

#include <algorithm>

#include "machine.h"
#include "registry.h"

namespace {

constexpr wchar_t LOG_KEY[] = L"SOFTWARE\\Halvorsund Telephony Service Provider";
constexpr wchar_t CHANGES[] = L"Changes";
constexpr wchar_t DONE[] = L"done";
constexpr wchar_t BEGUN[] = L"begun";

constexpr const wchar_t* KIND_NAMES[] = {L"file",    L"replaced", L"folder",  L"key",     L"value",
                                         L"service", L"started",  L"stopped", L"provider"};
static_assert(std::size(KIND_NAMES) == static_cast<size_t>(ChangeKind::provider) + 1);

void add_lines(std::vector<std::wstring>& lines, const wchar_t* state, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        const wchar_t* kind = KIND_NAMES[static_cast<size_t>(change.kind)];
        lines.push_back(std::wstring(state) + L"|" + kind + L"|" + change.name + L"|" + change.detail + L"|" +
                        change.before + L"|" + change.put);
    }
}

// The text up to the next separator, which is taken off with it.
std::wstring take_field(std::wstring& line) {
    const size_t end = std::min(line.find(L'|'), line.size());
    std::wstring field = line.substr(0, end);
    line.erase(0, end + 1);
    return field;
}

// A line of a later version, of a kind that is not known here, is left out.
void take_line(InstallLog& log, std::wstring line) {
    const std::wstring state = take_field(line);
    const std::wstring kind = take_field(line);
    const auto* const name = std::find(std::begin(KIND_NAMES), std::end(KIND_NAMES), kind);
    if (name == std::end(KIND_NAMES)) return;
    const Change change = {static_cast<ChangeKind>(name - KIND_NAMES), take_field(line), take_field(line),
                           take_field(line), take_field(line)};
    (state == DONE ? log.done : log.in_progress).push_back(change);
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
    find_or_add(changes, {ChangeKind::file, path}).detail = file_fingerprint(path);
}

void add_value(std::vector<Change>& changes, const Change& change) {
    const MachineKey key = machine_key(change.name);
    find_or_add(changes, change).put = text_form(read_value(key.key.get(), change.detail));
}

}  // namespace

uint32_t install_log_read(InstallLog& log) {
    log = {};
    OwnedKey key;
    const uint32_t error = open_key(LOG_KEY, KEY_READ, key);
    if (error == ERROR_FILE_NOT_FOUND) return 0;
    if (error != 0) return error;
    for (const std::wstring& line : read_lines(key.get(), CHANGES)) take_line(log, line);
    return 0;
}

uint32_t install_log_write(const InstallLog& log) {
    if (log.done.empty() && log.in_progress.empty()) {
        const uint32_t error = RegDeleteKeyW(HKEY_LOCAL_MACHINE, LOG_KEY);
        return error == ERROR_FILE_NOT_FOUND ? 0 : error;
    }
    OwnedKey key;
    if (const uint32_t error = create_key(LOG_KEY, key)) return error;
    std::vector<std::wstring> lines;
    add_lines(lines, DONE, log.done);
    add_lines(lines, BEGUN, log.in_progress);
    return write_lines(key.get(), CHANGES, lines);
}

void install_log_commit(InstallLog& log) {
    for (const Change& change : log.in_progress) {
        if (change.kind == ChangeKind::started || change.kind == ChangeKind::stopped) continue;
        if (change.kind == ChangeKind::replaced) add_file(log.done, change.detail);
        if (change.kind == ChangeKind::replaced || change.kind == ChangeKind::file) {
            add_file(log.done, change.name);
        } else if (change.kind == ChangeKind::value) {
            add_value(log.done, change);
        } else {
            find_or_add(log.done, change);
        }
    }
    log.in_progress.clear();
}
