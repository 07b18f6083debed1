// The provider's memory: its records are counted, now and then one cannot be had, and a line's record that was freed is
// kept and watched.
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>

#include "board.h"
#include "objects.h"
#include "text.h"

namespace chaos {

using harness::fake;
using harness::Fakes;
using harness::text;

namespace {

// By their sizes the provider's own records are told from what its C++ runtime and ACE allocate.
struct RecordKind {
    const char* name;
    size_t smallest, largest;
};
constexpr RecordKind RECORD_KINDS[] = {
    {"drop request or reset argument", 16, 16},
    {"fax argument", 112, 112},
    {"call request", 200, 232},
    {"line record", 3500, 3900},
};
constexpr size_t LINE_RECORD = 3;

size_t kind_of(size_t size) {
    size_t kind = 0;
    while (kind < std::size(RECORD_KINDS) && (size < RECORD_KINDS[kind].smallest || size > RECORD_KINDS[kind].largest))
        ++kind;
    return kind;
}

std::map<void*, size_t> records;  // each with its kind

// Freed records of lines.
constexpr uint8_t FREED = 0xDD;
constexpr size_t KEPT_RECORDS = 64;
struct FreedRecord {
    uint8_t* bytes;
    size_t size;
};
std::deque<FreedRecord> freed;

void check_freed(const FreedRecord& record) {
    for (size_t i = 0; i < record.size; ++i)
        if (record.bytes[i] != FREED) give_up(text("byte %zu of a line's record was written after it was freed", i));
}

void keep_freed(void* block) {
    const size_t size = RECORD_KINDS[LINE_RECORD].smallest;
    std::memset(block, FREED, size);
    freed.push_back({static_cast<uint8_t*>(block), size});
    if (freed.size() <= KEPT_RECORDS) return;
    check_freed(freed.front());
    std::free(freed.front().bytes);
    freed.pop_front();
}

// ACE allocates before the driver library is initialised, and frees after its shutdown.
bool is_record(size_t size) {
    return has_turn() && initialisations() > 0 && kind_of(size) < std::size(RECORD_KINDS);
}

// Which has no other way left, when it cannot stop the worker of a call, than to go on without.
constexpr char CLOSE_OF_A_LINE[] = "TSPI_lineClose";

bool runs_short(size_t size) {
    return is_record(size) && current_task().what != CLOSE_OF_A_LINE && chance().below(1000) < shortages.of_memory;
}

void* count(void* block, size_t size) {
    if (block && is_record(size)) records[block] = kind_of(size);
    return block;
}

// What is to be done with the block instead of freeing it has been done.
bool is_kept(void* block) {
    const auto record = has_turn() ? records.find(block) : records.end();
    if (record == records.end()) return false;
    const bool is_line = record->second == LINE_RECORD;
    records.erase(record);
    if (is_line) keep_freed(block);
    return is_line;
}

void* allocate(size_t size) {
    return runs_short(size) ? nullptr : count(std::malloc(size), size);
}

void free_block(void* block) {
    if (!is_kept(block)) std::free(block);
}

HGLOBAL WINAPI allocate_global(UINT flags, SIZE_T size) {
    return runs_short(size) ? nullptr : count(GlobalAlloc(flags, size), size);
}

HGLOBAL WINAPI free_global(HGLOBAL block) {
    is_kept(block);
    return GlobalFree(block);
}

}  // namespace

std::string live_records() {
    size_t counted[std::size(RECORD_KINDS)] = {};
    for (const auto& [block, kind] : records) ++counted[kind];
    std::string live;
    for (size_t kind = 0; kind < std::size(RECORD_KINDS); ++kind)
        live += text("  %zu times a %s\n", counted[kind], RECORD_KINDS[kind].name);
    return live;
}

size_t live_record_count() {
    return records.size();
}

void check_freed_records() {
    for (const FreedRecord& record : freed) check_freed(record);
}

bool is_from_a_freed_record(const void* pointer) {
    uint64_t pattern;
    std::memset(&pattern, FREED, sizeof pattern);
    return reinterpret_cast<uint64_t>(pointer) == pattern;
}

Fakes memory_fakes() {
    return {fake("malloc", allocate), fake("free", free_block), fake("GlobalAlloc", allocate_global),
            fake("GlobalFree", free_global)};
}

}  // namespace chaos
