// A command block as the fax service sends it to TSPI_lineDevSpecific: 1088 bytes, written and read by their offsets.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// A value at an offset of a record, aligned or not.
template <class Value>
Value value_at(const uint8_t* bytes, size_t offset) {
    Value value;
    std::memcpy(&value, bytes + offset, sizeof(value));
    return value;
}
template <class Value>
Value value_at(const std::vector<uint8_t>& bytes, size_t offset) {
    return value_at<Value>(bytes.data(), offset);
}
template <class Value>
void put_value(void* bytes, size_t offset, const Value& value) {
    std::memcpy(static_cast<uint8_t*>(bytes) + offset, &value, sizeof(value));
}

enum Command : int32_t { TIFFOPEN = 1, TIFFCLOSE = 2, FAXSEND = 3, FAXRECEIVE = 4, ABORT = 5, GETSTATUS = 6 };

// What the block says for a transmission; a reception looks at the local identifier alone.
struct FaxTexts {
    std::string header = "";
    std::string local_id = "+1 555 0100";
    uint32_t add_header = 0;
};

class CommandBlock {
  public:
    // Every byte that is not given holds rubbish, so that nothing can be right by chance.
    explicit CommandBlock(int32_t command) {
        bytes_.fill(kRubbish);
        put(0, command);
        put<uint32_t>(8, 0);
    }

    static CommandBlock open(const std::string& path, const std::string& mode) {
        CommandBlock block(TIFFOPEN);
        block.put_text(32, path).put_text(292, mode);
        return block;
    }

    // Job command 4 marks the file as a received fax.
    static CommandBlock close(uint32_t job_command) {
        CommandBlock block(TIFFCLOSE);
        block.put(1084, job_command);
        return block;
    }

    static CommandBlock fax(Command command, const FaxTexts& texts) {
        CommandBlock block(command);
        block.put_text(32, texts.header).put_text(82, texts.local_id).put(132, texts.add_header);
        return block;
    }

    // The same command, completed by the named event of this key.
    CommandBlock by_event(uint64_t key) const {
        CommandBlock block = *this;
        return block.put<uint32_t>(8, 1).put(16, key);
    }

    uint32_t result() const { return value_at<uint32_t>(bytes_.data(), 4); }
    uint32_t device_id_base() const { return value_at<uint32_t>(bytes_.data(), 24); }

    uint8_t* data() { return bytes_.data(); }
    const uint8_t* data() const { return bytes_.data(); }
    static constexpr size_t size() { return kSize; }

    template <class Value>
    CommandBlock& put(size_t offset, const Value& value) {
        put_value(bytes_.data(), offset, value);
        return *this;
    }

    CommandBlock& put_text(size_t offset, const std::string& text) {
        std::memcpy(bytes_.data() + offset, text.c_str(), text.size() + 1);
        return *this;
    }

  private:
    static constexpr size_t kSize = 1088;
    static constexpr uint8_t kRubbish = 0xC3;
    std::array<uint8_t, kSize> bytes_;
};
