// Ten thousand calls of every query with arguments that nobody in his senses would pass: the process lives, nothing is
// written behind the caller's record, and every result is one that the query may give.
#include <cstring>
#include <random>
#include <set>

#include "caps_answer.h"

using namespace harness;

namespace {

constexpr uint32_t kSeed = 20260117;
constexpr int kCalls = 10000, kTracedCalls = 1000, kChapter = 100;

// The arguments of one call. Where they cannot be used as they are, the query may fault, and only then.
class Attack {
  public:
    Attack(HDRVLINE line, HDRVLINE closed, const std::vector<uint8_t>& line_memory)
        : line_(line), closed_(closed), line_memory_(line_memory), rubbish_(0x8000) {
        for (uint8_t& byte : rubbish_) byte = static_cast<uint8_t>(random_());
    }

    void prepare(bool trusts_handles, bool needs_pointers) {
        may_fault = false;
        std::memcpy(page_.begin(), rubbish_.data() + below(0x7000), LonePage::kSize);
        choose_record(needs_pointers);
        choose_handle(trusts_handles);
        std::memcpy(before_, page_.begin(), sizeof(before_));
    }

    // Nothing of the page but the record's own bytes has changed; the size is what a query writes into a record
    // whatever that says of its size, or 0.
    bool has_kept_to_the_record(size_t written) const {
        size_t begin = LonePage::kSize, end = LonePage::kSize;
        if (record_in_page_) {
            begin = static_cast<size_t>(record_ - page_.begin());
            end = std::min(LonePage::kSize, begin + (written ? written : total_size_));
        }
        return std::memcmp(before_, page_.begin(), begin) == 0 &&
               std::memcmp(before_ + end, page_.begin() + end, LonePage::kSize - end) == 0;
    }

    // Makes the record one of zeros now and then, as far as it can be written.
    void sometimes_clear(size_t size) {
        if (!record_in_page_ || below(4) != 0) return;
        std::memset(record_, 0, std::min(size, static_cast<size_t>(page_.end() - record_)));
        std::memcpy(before_, page_.begin(), sizeof(before_));
    }

    template <class Record>
    Record* record() const {
        return reinterpret_cast<Record*>(record_);
    }
    HDRVLINE line() const { return handle_; }
    HDRVCALL call() const { return reinterpret_cast<HDRVCALL>(handle_); }

    uint32_t number() { return random_(); }
    uint32_t below(uint32_t limit) { return random_() % limit; }
    // One of these, or any other number.
    DWORD one_of(const std::vector<DWORD>& usual) {
        uint32_t chosen = below(static_cast<uint32_t>(usual.size()) + 1);
        return chosen < usual.size() ? usual[chosen] : number();
    }
    const wchar_t* device_class() {
        static const wchar_t* const known[] = {L"tapi/line", L"TAPI/LINE", L"tapi/lin", L"", L"comm/datamodem%s%n"};
        switch (below(8)) {
            case 0:
                may_fault = true;
                return below(2) ? nullptr : reinterpret_cast<const wchar_t*>(page_.end());
            case 1:  // ends nowhere before the page does
                may_fault = true;
                std::memset(text_page_.begin(), 't', LonePage::kSize);
                return text_page_.last<wchar_t>(2 * below(64) + below(2));
            default:
                return known[below(5)];
        }
    }

    bool may_fault = false;

  private:
    void choose_record(bool needs_pointer) {
        const uint32_t kind = needs_pointer ? 0 : below(10);
        record_in_page_ = kind < 8;
        if (kind < 5) {
            place(page_.begin() + 1024 + below(8), below(8) ? below(800) : below(16));
        } else if (kind < 8) {
            // At the end of what can be read. Half of these claim to be larger.
            const uint32_t room = below(600);
            may_fault = true;
            place(page_.end() - room, below(2) ? room : one_of({room + 1, 252, 324, 4096, 0xFFFFFFFF}));
        } else {
            may_fault = true;
            void* const nowhere[] = {nullptr, page_.end(), reinterpret_cast<void*>(0x10),
                                     reinterpret_cast<void*>(0xFFFF800000000000)};
            record_ = static_cast<uint8_t*>(nowhere[below(4)]);
        }
    }
    void place(uint8_t* record, DWORD total) {
        record_ = record;
        total_size_ = total;
        const DWORD sizes[] = {total, number(),
                               one_of({below(16), 12, total, total - 1, total + 1, below(total | 1), 0xFFFFFFF0})};
        const size_t room = static_cast<size_t>(page_.end() - record);
        std::memcpy(record, sizes, std::min(room, sizeof(sizes)));
        // Party flags decide what is traced of a call's record.
        if (room >= 324 && below(2)) record[128] = record[144] = static_cast<uint8_t>(below(16));
    }

    void choose_handle(bool trusted) {
        uint32_t kind = below(12);
        // A handle that is trusted is a line; what it says of its lock and its channel would be used.
        if (trusted && kind > 9) kind = 9;
        handle_ = line_;
        if (kind < 6) return;
        may_fault = may_fault || kind > 6;
        switch (kind) {
            case 6:
                handle_ = nullptr;
                break;
            case 7:
                handle_ = reinterpret_cast<HDRVLINE>(uintptr_t{1} << below(12));
                break;
            case 8:
                handle_ = reinterpret_cast<HDRVLINE>(below(2) ? page_.end() : page_.end() - 8);
                break;
            case 9:
                other_line_ = line_memory_;
                if (below(2)) std::memcpy(other_line_.data(), rubbish_.data() + below(0x4000), other_line_.size());
                handle_ = reinterpret_cast<HDRVLINE>(other_line_.data());
                break;
            case 10:
                handle_ = below(2) ? closed_ : reinterpret_cast<HDRVLINE>(reinterpret_cast<uintptr_t>(line_) + 1);
                break;
            default:
                handle_ = reinterpret_cast<HDRVLINE>(page_.begin() + 1024 + below(800));
                break;
        }
    }

    std::mt19937 random_{kSeed};
    HDRVLINE line_, closed_;
    std::vector<uint8_t> line_memory_, other_line_, rubbish_;
    LonePage page_, text_page_;
    uint8_t before_[LonePage::kSize] = {};
    uint8_t* record_ = nullptr;
    DWORD total_size_ = 0;
    bool record_in_page_ = false;
    HDRVLINE handle_ = nullptr;
};

struct Query {
    const char* name;
    std::set<DWORD> results;  // besides success
    size_t written;           // into a record, whatever it says of its size
    std::function<LONG(const ProviderExports& tsp, Attack& with)> ask;
    bool trusts_handles = false;
    bool needs_pointers = false;
};

void PrintTo(const Query& query, std::ostream* out) {
    *out << query.name;
}

constexpr DWORD kFault = LINEERR_OPERATIONFAILED;
// A query that takes no record changes none.
constexpr size_t kBySize = 0;

class HostileQuery : public QueryFixture, public testing::WithParamInterface<Query> {
  protected:
    void SetUp() override {
        QueryFixture::SetUp();
        closed = open_waiting_line(1);
        close_line(1);
        offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
        active_calls();
    }

    testing::AssertionResult survives_one(Attack& attack) {
        attack.prepare(GetParam().trusts_handles, GetParam().needs_pointers);
        const DWORD result = static_cast<DWORD>(GetParam().ask(tsp, attack));
        seen.insert(result);
        if (result != 0 && GetParam().results.count(result) == 0)
            return testing::AssertionFailure() << text("the result is 0x%lX", result);
        if (result == kFault && !attack.may_fault)
            return testing::AssertionFailure() << "a fault with arguments that can all be used";
        if (!attack.has_kept_to_the_record(GetParam().written))
            return testing::AssertionFailure() << "written behind the record";
        return testing::AssertionSuccess();
    }

    HDRVLINE closed = nullptr;
    std::set<DWORD> seen;
};

}  // namespace

TEST_P(HostileQuery, IsAnsweredTenThousandTimes) {
    const std::vector<uint8_t> before = line_memory();
    Attack attack(line(0), closed, before);
    for (int i = 0; i < kCalls; ++i) {
        if (i % kChapter == 0) new_chapter();
        // Traces take most of the time.
        if (i == kTracedCalls)
            for (int level = 2; level < 18; ++level) driver.uninteresting_levels.insert(level);
        ASSERT_TRUE(survives_one(attack)) << "call " << i << " of seed " << kSeed;
    }
    driver.uninteresting_levels.clear();

    // Every result has been seen, so that no check was left out for want of a call that reaches it.
    std::set<DWORD> possible = GetParam().results;
    possible.insert(0);
    EXPECT_EQ(seen, possible);
    EXPECT_EQ(line_memory(), before);
    EXPECT_TRUE(lock_is_free());
    EXPECT_EQ(active_calls(), 1u);
    EXPECT_EQ(device_caps(0).dwMaxRate, 2400u);
    // A wild handle reaches the driver as a wild channel.
    if (GetParam().trusts_handles) forget_problems();
}

INSTANTIATE_TEST_SUITE_P(
    Each, HostileQuery,
    testing::Values(
        Query{"NegotiateTSPIVersion",
              {LINEERR_INCOMPATIBLEAPIVERSION},
              sizeof(DWORD),
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineNegotiateTSPIVersion(with.number(), with.one_of({0, 0x10003, 0x20000}),
                                                           with.one_of({0x20000, 0x30000}), with.record<DWORD>());
              },
              false,
              true},
        Query{"NegotiateExtVersion",
              {LINEERR_INCOMPATIBLEEXTVERSION},
              sizeof(DWORD),
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineNegotiateExtVersion(with.number(), with.number(),
                                                          with.one_of({0, 0x10003, 0x20000}),
                                                          with.one_of({0x20000, 0x30000}), with.record<DWORD>());
              },
              false,
              true},
        Query{"SelectExtVersion",
              {LINEERR_INCOMPATIBLEEXTVERSION, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineSelectExtVersion(with.line(), with.one_of({0, 0x20000}));
              }},
        Query{"GetExtensionID",
              {kFault},
              16,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetExtensionID(with.number(), with.number(), with.record<LINEEXTENSIONID>());
              }},
        Query{"GetDevCaps",
              {LINEERR_INVALDEVICEHANDLE, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetDevCaps(with.one_of({0, 6, 7, 8, 7 + 4047, 7 + 4048, 7 + 4049}), with.number(),
                                                 with.number(), with.record<LINEDEVCAPS>());
              }},
        Query{"GetAddressCaps",
              {LINEERR_INVALADDRESSID, kFault},
              228,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetAddressCaps(with.number(), with.one_of({0, 1}), with.number(), with.number(),
                                                     with.record<LINEADDRESSCAPS>());
              }},
        Query{"GetNumAddressIDs",
              {kFault},
              sizeof(DWORD),
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetNumAddressIDs(with.line(), with.record<DWORD>());
              }},
        Query{"GetID",
              {LINEERR_NODEVICE, LINEERR_INVALCALLHANDLE, LINEERR_INVALLINEHANDLE, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  const DWORD select = with.one_of({1, 2, 4});
                  const wchar_t* device_class = with.device_class();
                  return tsp.TSPI_lineGetID(with.line(), with.number(), with.call(), select, with.record<VARSTRING>(),
                                            device_class, nullptr);
              }},
        Query{"GetAddressStatus",
              {LINEERR_INVALLINEHANDLE, kFault},
              64,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetAddressStatus(with.line(), with.number(), with.record<LINEADDRESSSTATUS>());
              }},
        Query{"GetCallAddressID",
              {kFault},
              sizeof(DWORD),
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetCallAddressID(with.call(), with.record<DWORD>());
              }},
        Query{"GetCallStatus",
              {LINEERR_INVALCALLHANDLE, kFault},
              56,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetCallStatus(with.call(), with.record<LINECALLSTATUS>());
              }},
        Query{"GetLineDevStatus",
              {LINEERR_INVALLINEHANDLE, kFault},
              88,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetLineDevStatus(with.line(), with.record<LINEDEVSTATUS>());
              },
              true},
        Query{"GetCallInfo",
              {LINEERR_INVALCALLHANDLE, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineGetCallInfo(with.call(), with.record<LINECALLINFO>());
              }},
        Query{"SetDefaultMediaDetection",
              {LINEERR_INVALMEDIAMODE, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineSetDefaultMediaDetection(with.line(), with.one_of({0, 0x20}));
              }},
        Query{"SetMediaMode",
              {LINEERR_INVALMEDIAMODE, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineSetMediaMode(with.call(), with.one_of({0, 0x20}));
              }},
        Query{"SetStatusMessages",
              {kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_lineSetStatusMessages(with.line(), with.number(), with.number());
              }},
        Query{"ConditionalMediaDetection",
              {LINEERR_INVALMEDIAMODE, LINEERR_INVALLINEHANDLE, kFault},
              kBySize,
              [](const ProviderExports& tsp, Attack& with) {
                  with.sometimes_clear(64);
                  return tsp.TSPI_lineConditionalMediaDetection(with.line(), with.one_of({0, 0x20}),
                                                                with.record<LINECALLPARAMS>());
              },
              true},
        Query{"GenericDialogData",
              {kFault},
              sizeof(DWORD),
              [](const ProviderExports& tsp, Attack& with) {
                  return tsp.TSPI_providerGenericDialogData(with.number(), with.number(), with.record<void>(),
                                                            with.number());
              }}),
    [](const testing::TestParamInfo<Query>& info) { return info.param.name; });
