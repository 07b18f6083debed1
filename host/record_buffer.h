// Memory for a record of TAPI's that ends in texts.
#pragma once

#include <string>
#include <vector>

#include "tapi20.h"
#include "text.h"

// Zeroed. Record has its TAPI 2.0 size, `fixed_size`, in front of the room for its texts.
template <typename Record>
class RecordBuffer {
  public:
    explicit RecordBuffer(DWORD fixed_size = 0, DWORD room = 0) { assign(fixed_size, fixed_size + room); }

    // Empty again, with so much room in all. The caller of a provider sets both sizes.
    void assign(DWORD fixed_size, DWORD total_size) {
        bytes_.assign(total_size < sizeof(Record) ? sizeof(Record) : total_size, 0);
        get()->dwTotalSize = total_size;
        get()->dwUsedSize = fixed_size;
    }

    Record* get() { return reinterpret_cast<Record*>(bytes_.data()); }
    Record* operator->() { return get(); }
    const Record* operator->() const { return reinterpret_cast<const Record*>(bytes_.data()); }

    // A UTF-16 text of the record as UTF-8; empty when it has none.
    std::string text(DWORD offset, DWORD size) const {
        const auto* text = reinterpret_cast<const wchar_t*>(bytes_.data() + offset);
        return size == 0 ? std::string() : utf8_of_wide(text, size / sizeof(wchar_t));
    }

  private:
    std::vector<unsigned char> bytes_;
};
