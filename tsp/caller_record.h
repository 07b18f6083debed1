// A record of TAPI's that may be smaller than its fixed part. It is then filled in a copy, of which as much goes back
// as the caller has room for; nothing behind its dwTotalSize is touched.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

// Record begins with dwTotalSize, dwNeededSize and dwUsedSize, as all variable-sized records of TAPI 2.0 do.
template <class Record>
class CallerRecord {
  public:
    explicit CallerRecord(Record* caller)
        : caller_(caller), total_(caller->dwTotalSize), record_(total_ < sizeof(Record) ? &copy_ : caller) {
        if (record_ == &copy_) memcpy(&copy_, caller_, total_);
    }
    ~CallerRecord() {
        if (record_ == &copy_) memcpy(caller_, &copy_, total_);
    }
    CallerRecord(const CallerRecord&) = delete;
    CallerRecord& operator=(const CallerRecord&) = delete;

    Record* operator->() const { return record_; }
    Record* get() const { return record_; }

    // Clears what the caller says is in use, but for the sizes that say so.
    void clear() {
        const DWORD used = record_->dwUsedSize;
        memset(record_, 0, std::min(used, total_));
        record_->dwTotalSize = total_;
        record_->dwUsedSize = used;
    }

    // Asks for so many bytes behind those in use. Whether there is room for them.
    bool reserve(DWORD size) {
        record_->dwNeededSize = record_->dwUsedSize + size;
        // Sizes that do not fit into 32 bits are nonsense, and no room; neither is the place of the sizes themselves.
        return record_->dwNeededSize >= size && total_ >= record_->dwNeededSize && record_->dwUsedSize >= SIZES;
    }

    // Appends what there is room for: where it went and how long it is.
    void append(const void* data, DWORD size, DWORD Record::*size_field, DWORD Record::*offset_field) {
        memcpy(bytes() + record_->dwUsedSize, data, size);
        record_->*size_field = size;
        record_->*offset_field = record_->dwUsedSize;
        record_->dwUsedSize += size;
    }

  private:
    static constexpr DWORD SIZES = 3 * sizeof(DWORD);  // bytes of dwTotalSize, dwNeededSize and dwUsedSize

    uint8_t* bytes() const { return reinterpret_cast<uint8_t*>(record_); }

    Record* const caller_;
    const DWORD total_;
    Record copy_{};
    Record* const record_;
};
