// A record that the provider fills in place: rubbish in it and behind it, so that nothing is right by chance and every
// byte that is written shows. And memory that ends where nobody may read.
#pragma once

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "harness.h"
#include "line_fixture.h"

template <class Record>
struct Answer {
    static constexpr uint8_t kRubbish = 0xCC;
    union {
        Record caps;
        uint8_t bytes[4096];
    };

    Answer() { std::memset(bytes, kRubbish, sizeof(bytes)); }

    Record* operator->() { return &caps; }

    bool untouched_from(size_t offset) const {
        for (size_t i = offset; i < sizeof(bytes); ++i)
            if (bytes[i] != kRubbish) return false;
        return true;
    }
};

// Where two answers differ, as 32-bit fields.
template <class Record>
harness::Lines differences(const Answer<Record>& expected, const Answer<Record>& seen) {
    harness::Lines result;
    for (size_t offset = 0; offset < sizeof(seen.bytes); offset += sizeof(uint32_t))
        if (std::memcmp(expected.bytes + offset, seen.bytes + offset, sizeof(uint32_t)) != 0)
            result.push_back(harness::text("at %zu", offset));
    return result;
}

// One page of rubbish between memory that can be neither read nor written.
class LonePage {
  public:
    static constexpr size_t kSize = 4096;

    LonePage() {
        // Wide enough behind the page for an offset that was read out of a text.
        constexpr size_t kBefore = 0x10000, kBehind = 0x1000000;
        reserved_ = static_cast<uint8_t*>(VirtualAlloc(nullptr, kBefore + kBehind, MEM_RESERVE, PAGE_NOACCESS));
        page_ = static_cast<uint8_t*>(VirtualAlloc(reserved_ + kBefore, kSize, MEM_COMMIT, PAGE_READWRITE));
        fill();
    }
    ~LonePage() { VirtualFree(reserved_, 0, MEM_RELEASE); }
    LonePage(const LonePage&) = delete;
    LonePage& operator=(const LonePage&) = delete;

    void fill() { std::memset(page_, Answer<DWORD>::kRubbish, kSize); }
    uint8_t* begin() const { return page_; }
    uint8_t* end() const { return page_ + kSize; }
    // The last bytes of the page.
    template <class Record>
    Record* last(size_t size) const {
        return reinterpret_cast<Record*>(end() - size);
    }

  private:
    uint8_t* reserved_;
    uint8_t* page_;
};

// All that a query does on the test's own thread; of the lock only that it is taken and given back.
inline harness::View query_story() {
    using namespace harness;
    return on_this_thread(all_of(TRACE | DRIVER | EVENT | COMPLETION | EVENT_LOG | WINDOWS).all_levels())
        .without({"[<*>lock_line<*>", "RegQuery<*>"});
}
inline const harness::Lines kOneHoldOfTheLock = {"WaitForSingleObject(LOCK, INFINITE)", "ReleaseMutex(LOCK)"};

// The beginning of the story of a query that checks its handle, which is LINE1.
inline harness::Lines valid_line(const std::string& line, const std::string& query) {
    return {"[16] " + line + query, "[8] " + line + "IsValidLine", "[9] " + line + "IsValidLine(1)"};
}
// The whole story of one that was given no handle and calls it invalid in these words.
inline harness::Lines no_valid_line(const std::string& query, const std::string& invalid, const std::string& exit) {
    return {"[16] " + query, "[8] IsValidLine", "[9] IsValidLine(0)", invalid, "[17] " + query + exit};
}

// Handles that are none.
inline HDRVLINE wild_line() {
    return reinterpret_cast<HDRVLINE>(0x10);
}
inline HDRVCALL wild_call() {
    return reinterpret_cast<HDRVCALL>(0x10);
}

// A line of its own for tests of queries.
class QueryFixture : public harness::LineFixture {
  protected:
    // What the provider keeps about LINE1, as bytes.
    std::vector<uint8_t> line_memory() const {
        auto* bytes = reinterpret_cast<const uint8_t*>(line(0));
        return {bytes, bytes + _msize(const_cast<uint8_t*>(bytes))};
    }
    // Where a text lies in it.
    char* text_of_line(const std::string& wanted) const {
        std::vector<uint8_t> memory = line_memory();
        auto found = std::search(memory.begin(), memory.end(), wanted.c_str(), wanted.c_str() + wanted.size() + 1);
        if (found == memory.end()) return nullptr;
        return const_cast<char*>(reinterpret_cast<const char*>(line(0))) + (found - memory.begin());
    }
    // The query changes nothing of the line and tells nobody about anything.
    testing::AssertionResult leaves_the_line_as_it_is(const std::function<void()>& query) {
        active_calls();  // the line remembers who took its lock last: from now on it is this thread
        std::vector<uint8_t> before = line_memory();
        harness::new_chapter();
        query();
        if (line_memory() != before) return testing::AssertionFailure() << "the line has changed";
        using namespace harness;
        return reads(all_of(EVENT | COMPLETION | EVENT_LOG), {});
    }

    // Whether another thread gets the line's lock.
    bool lock_is_free() {
        harness::Call asking([this] { return static_cast<LONG>(active_calls()); });
        return asking.returns_within();
    }
    // The fault is caught, the line's lock is free and the line can be asked.
    testing::AssertionResult survives(const std::string& query, const std::function<LONG()>& call) {
        testing::AssertionResult reported = harness::reports_an_exception(query, call);
        if (!reported) return reported;
        return lock_is_free() ? testing::AssertionSuccess() : testing::AssertionFailure() << "the lock is held";
    }
    // Does this when the query that follows is about to take the lock.
    static void before_the_lock_is_taken(const std::function<void()>& action) {
        harness::windows.objects.on_wait = [action, thread = GetCurrentThreadId()](HANDLE,
                                                                                   DWORD) -> std::optional<DWORD> {
            if (GetCurrentThreadId() != thread) return std::nullopt;
            const std::function<void()> now = action;
            harness::windows.objects.on_wait = nullptr;
            now();
            return std::nullopt;
        };
    }
};
