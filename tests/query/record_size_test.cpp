// Records of every size: whatever TAPI says about a record, nothing behind it is written, nor read.
#include <cstring>

#include "caps_answer.h"

using namespace harness;

namespace {

// The beginning of every record of variable size.
struct Sizes {
    DWORD dwTotalSize, dwNeededSize, dwUsedSize;
};

// What a record of this total size says about its use.
struct Use {
    const char* name;
    DWORD (*of)(DWORD total, DWORD fixed_size);
};

const Use kHonest = {"AsTapiSaysIt", [](DWORD total, DWORD fixed_size) { return std::min(total, fixed_size); }};
const Use kOnlyTheSizes = {"OnlyTheSizes", [](DWORD, DWORD) { return DWORD{12}; }};
const Use kPartOfTheSizes = {"PartOfTheSizes", [](DWORD, DWORD) { return DWORD{8}; }};
const Use kNothing = {"Nothing", [](DWORD, DWORD) { return DWORD{0}; }};
const Use kOneMoreThanThereIs = {"OneMoreThanThereIs", [](DWORD total, DWORD) { return total + 1; }};
const Use kFarMoreThanThereIs = {"FarMoreThanThereIs", [](DWORD total, DWORD) { return total + 100000; }};
const Use kNearlyAllOfMemory = {"NearlyAllOfMemory", [](DWORD, DWORD) { return DWORD{0xFFFFFFF0}; }};

void PrintTo(const Use& use, std::ostream* out) {
    *out << use.name;
}

class RecordSize : public QueryFixture, public testing::WithParamInterface<Use> {
  protected:
    void SetUp() override {
        QueryFixture::SetUp();
        offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
    }

    using Query = std::function<LONG(void* record)>;

    // Asks with records of all sizes from the three size fields to some more than is needed: once with rubbish behind
    // the record, which has to stay, and once with the end of all memory behind it. What is needed besides the bytes
    // in use is the same for every record.
    void ask_with_all_sizes(const Query& query, DWORD fixed_size, DWORD behind_the_used, bool needs_used = true) {
        for (DWORD total = sizeof(Sizes); total <= fixed_size + behind_the_used + 8 && !HasFailure(); ++total) {
            SCOPED_TRACE(text("a record of %lu bytes", total));
            const DWORD used = GetParam().of(total, fixed_size);
            const DWORD needed = (needs_used ? used : fixed_size) + behind_the_used;
            ask(query, page_.begin() + 256, {total, 0xCCCCCCCC, used}, needed);
            ask(query, page_.end() - total, {total, 0xCCCCCCCC, used}, needed);
        }
    }
    // With a record that is written to a fixed size, whatever it says.
    void ask_with_a_fixed_part(const Query& query, size_t written) {
        for (DWORD total : {0ul, 12ul, DWORD(written) - 1, DWORD(written), 0xFFFFFFFFul}) {
            SCOPED_TRACE(text("a record that claims %lu bytes", total));
            const Sizes sizes = {total, 0xCCCCCCCC, GetParam().of(total, static_cast<DWORD>(written))};
            EXPECT_EQ(answer_of(query, page_.begin() + 256, sizes), 0);
            EXPECT_TRUE(is_untouched_behind(page_.begin() + 256 + written));
            EXPECT_EQ(answer_of(query, page_.end() - written, sizes), 0);
            EXPECT_TRUE(is_untouched_before(page_.end() - written));
        }
    }

  private:
    LONG answer_of(const Query& query, uint8_t* record, const Sizes& sizes) {
        new_chapter();
        page_.fill();
        std::memcpy(record, &sizes, sizeof(sizes));
        return query(record);
    }
    void ask(const Query& query, uint8_t* record, const Sizes& sizes, DWORD needed) {
        EXPECT_EQ(answer_of(query, record, sizes), 0);
        EXPECT_TRUE(is_untouched_before(record));
        EXPECT_TRUE(is_untouched_behind(record + sizes.dwTotalSize));
        Sizes answered;
        std::memcpy(&answered, record, sizeof(answered));
        EXPECT_EQ(answered.dwTotalSize, sizes.dwTotalSize);
        EXPECT_EQ(answered.dwNeededSize, needed);
    }
    static bool is_rubbish(const uint8_t* from, const uint8_t* to) {
        return std::all_of(from, to, [](uint8_t byte) { return byte == Answer<Sizes>::kRubbish; });
    }
    bool is_untouched_before(const uint8_t* place) const { return is_rubbish(page_.begin(), place); }
    bool is_untouched_behind(const uint8_t* place) const { return is_rubbish(place, page_.end()); }

    LonePage page_;
};

class FixedPart : public RecordSize {};

constexpr DWORD kInfoSize = 94, kNameSize = 38;               // the texts of the device
constexpr DWORD kPartySizes = (8 + 8 + 7) * sizeof(wchar_t);  // those of the call

std::string name_of_use(const testing::TestParamInfo<Use>& info) {
    return info.param.name;
}

}  // namespace

TEST_P(RecordSize, IsKeptByTheCapabilitiesOfALine) {
    ask_with_all_sizes(
        [this](void* record) {
            return tsp.TSPI_lineGetDevCaps(kDeviceIdBase, kTspiVersion, 0, static_cast<LINEDEVCAPS*>(record));
        },
        252, kInfoSize + kNameSize);
}

TEST_P(RecordSize, IsKeptByTheInformationOfACall) {
    ask_with_all_sizes(
        [this](void* record) { return tsp.TSPI_lineGetCallInfo(call(0), static_cast<LINECALLINFO*>(record)); }, 324,
        kPartySizes);
}

TEST_P(RecordSize, IsKeptByTheIdentifierOfADevice) {
    ask_with_all_sizes(
        [this](void* record) {
            return tsp.TSPI_lineGetID(line(0), 0, nullptr, LINECALLSELECT_LINE, static_cast<VARSTRING*>(record),
                                      L"tapi/line", nullptr);
        },
        24, sizeof(DWORD), false);
}

INSTANTIATE_TEST_SUITE_P(Using, RecordSize,
                         testing::Values(kHonest, kOnlyTheSizes, kPartOfTheSizes, kNothing, kOneMoreThanThereIs,
                                         kFarMoreThanThereIs, kNearlyAllOfMemory),
                         name_of_use);

TEST_P(FixedPart, IsAllThatTheCapabilitiesOfAnAddressWrite) {
    ask_with_a_fixed_part(
        [this](void* record) {
            return tsp.TSPI_lineGetAddressCaps(kDeviceIdBase, 0, kTspiVersion, 0,
                                               static_cast<LINEADDRESSCAPS*>(record));
        },
        228);
}

TEST_P(FixedPart, IsAllThatTheStatusOfAnAddressWrites) {
    ask_with_a_fixed_part(
        [this](void* record) {
            return tsp.TSPI_lineGetAddressStatus(line(0), 0, static_cast<LINEADDRESSSTATUS*>(record));
        },
        64);
}

TEST_P(FixedPart, IsAllThatTheStatusOfALineWrites) {
    ask_with_a_fixed_part(
        [this](void* record) { return tsp.TSPI_lineGetLineDevStatus(line(0), static_cast<LINEDEVSTATUS*>(record)); },
        88);
}

TEST_P(FixedPart, IsAllThatTheStatusOfACallWrites) {
    ask_with_a_fixed_part(
        [this](void* record) { return tsp.TSPI_lineGetCallStatus(call(0), static_cast<LINECALLSTATUS*>(record)); }, 56);
}

INSTANTIATE_TEST_SUITE_P(Using, FixedPart, testing::Values(kHonest, kNothing, kNearlyAllOfMemory), name_of_use);
