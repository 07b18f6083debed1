// TIFF files and the log of the board. A file is a name and how many directories it has; the stamp goes nowhere.
#include <cstring>
#include <list>

#include "board_state.h"
#include "journal.h"
#include "objects.h"

namespace chaos {

namespace {

struct File {
    DornTiff head;
    uint32_t entries_left;
    bool is_open;
};
std::list<File> files;  // closed ones stay for a while: nobody may use their addresses again
size_t open_count = 0;
constexpr size_t KEPT_FILES = 1000;

File& file_of(const DornTiffRecord* record) {
    if (is_from_a_freed_record(record->hTiff)) give_up("a TIFF call with a file from a record that was freed");
    for (File& file : files)
        if (&file.head == record->hTiff && file.is_open) return file;
    give_up("a TIFF call on a file that is not open");
}

void drop_old_files() {
    while (files.size() > KEPT_FILES && !files.front().is_open) files.pop_front();
}

DornTiff* open_file(DornTiffRecord* record) {
    if (!std::memchr(record->szPath, 0, 260)) give_up("a path without an end reached the driver");
    if (goes_wrong()) return nullptr;
    drop_old_files();
    files.push_back({{}, chance().below(3), true});
    files.back().head.stream = &files.back();
    ++open_count;
    return &files.back().head;
}

int close_file(DornTiffRecord* record) {
    File& file = file_of(record);
    file.is_open = false;
    --open_count;
    return goes_wrong() ? -1 : 0;
}

int read_directories(DornTiffRecord* record) {
    File& file = file_of(record);
    if (goes_wrong() || file.entries_left == 0) return 0;
    const DornTiffEntry entries[] = {{254, 4, 1, 2}, {305, 2, 11, 100}, {305, 2, 12, 100}, {337, 2, 4, 0}};
    for (const DornTiffEntry& entry : entries)
        if (record->tagCallback(record->hTiff, &entry, record->qwCallerValue) != 0) return 1;
    return static_cast<int>(file.entries_left);
}

int file_step(DornTiffRecord* record) {
    file_of(record);
    return goes_wrong() ? -1 : 0;
}

int write_resolution(DornTiffRecord* record) {
    file_of(record);
    if (goes_wrong()) record->status = KX_STATUS_ERROR;
    record->dwXResolutionOffset = 12;
    record->dwYResolutionOffset = 20;
    return 0;
}

// Stands for the filter; only its address is used.
char filter_object;
bool log_is_up = false;

}  // namespace

size_t open_files() {
    return open_count;
}

void add_board_files(Handlers& board) {
    board.DornTiffOpen = open_file;
    board.DornTiffClose = close_file;
    board.DornTiffReadIFD = read_directories;
    board.DornTiffWriteImage = board.DornTiffWriteIFD = file_step;
    board.DornTiffWriteRes = write_resolution;
    board._mdll_fseek = [](void*, long, int) { return goes_wrong() ? -1 : 0; };
    board._mdll_ftell = [](void*) { return static_cast<long>(chance().below(1000)); };
    board._mdll_fwrite = [](const void*, size_t, size_t count, void*) { return goes_wrong() ? 0 : count; };
}

// Neither chance nor the turn is touched here: a run goes the same way whatever is logged.
void add_board_log(Handlers& board) {
    board.QorvLogInitialized = [] { return log_is_up ? 1 : 0; };
    board.QorvLogInit = [](const char*, const char*, uint32_t, uint32_t) { return log_is_up = true, 0; };
    board.QorvLogFilterNew = [](const char*, const char*, uint32_t, uint32_t, uint32_t, uint32_t) {
        return reinterpret_cast<QorvLogFilter*>(&filter_object);
    };
    board.QorvLogFilterAddSetting = [](QorvLogFilter*, int, const char*, int) {};
    board.QorvLogAddFilter = [](uint32_t, QorvLogFilter*) {};
    board.QorvLogFilterDelete = [](QorvLogFilter*) {};
    // Every line is made, so that one about a record that was freed shows.
    board.QorvLogIsInterested = [](uint32_t, int) { return 1; };
    board.QorvLogLogMsg = [](uint32_t, int level, const char* line, const char* file, uint32_t number) {
        if (has_turn() && std::strstr(line, FREED_POINTER)) give_up(std::string("a trace of a freed record: ") + line);
        if (!is_traced(level)) return;
        const char* text = std::strstr(line, ": ");
        harness::add_entry({harness::TRACE, text ? text + 2 : line, {}, level, file, number});
    };
}

}  // namespace chaos
