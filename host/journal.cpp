// The ordered output queue and its writer.
#include "journal.h"

#include <deque>
#include <utility>

#include "program.h"
#include "text.h"

namespace {

struct JournalQueue {
    SRWLOCK lock = SRWLOCK_INIT;
    std::deque<std::function<std::string()>> lines;
    HANDLE filled = nullptr;  // null while no journal runs
    bool ending = false;
};

JournalQueue gQueue;
const ULONGLONG gStartTick = GetTickCount64();

void print_made(const std::function<std::string()>& make_line) {
    const std::string line = make_line();
    if (!line.empty()) print_line(line);
}

void write_until_end(HANDLE filled) {
    bool ending = false;
    while (!ending) {
        WaitForSingleObject(filled, INFINITE);
        std::deque<std::function<std::string()>> lines;
        {
            const ScopedLock lock(gQueue.lock);
            lines.swap(gQueue.lines);
            ending = gQueue.ending;
        }
        for (const auto& make_line : lines) print_made(make_line);
    }
}

}  // namespace

Journal::Journal() : filled(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    {
        const ScopedLock lock(gQueue.lock);
        gQueue.filled = filled.get();
        gQueue.ending = false;
    }
    writer = thread_start([event = filled.get()] { write_until_end(event); });
}

Journal::~Journal() {
    {
        const ScopedLock lock(gQueue.lock);
        gQueue.filled = nullptr;
        gQueue.ending = true;
    }
    SetEvent(filled.get());
}

void journal_post(std::function<std::string()> make_line) {
    {
        const ScopedLock lock(gQueue.lock);
        if (gQueue.filled) {
            gQueue.lines.push_back(std::move(make_line));
            SetEvent(gQueue.filled);
            return;
        }
    }
    print_made(make_line);
}

void journal_line(std::string line) {
    journal_post([line = std::move(line)] { return line; });
}

double seconds_since_start(unsigned long long tick) {
    return static_cast<double>(tick - gStartTick) / 1000.0;
}

std::string time_text(unsigned long long tick) {
    return format("%8.3f", seconds_since_start(tick));
}
