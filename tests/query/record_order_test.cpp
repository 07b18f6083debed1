// When a record is written: the log looks at it with every line that the query traces.
#include "caps_answer.h"

using namespace harness;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr DWORD kRubbish = 0xCCCCCCCC;  // a field that has not been written

// A query on LINE1, whose call has all its parties. The record's sizes are of use to it or are not.
struct Query {
    const char* name;
    DWORD used_size;
    LONG (*ask)(const ProviderExports& tsp, HDRVLINE line, void* record);
};

void PrintTo(const Query& query, std::ostream* out) {
    *out << query.name;
}

HDRVCALL call_of(HDRVLINE line) {
    return reinterpret_cast<HDRVCALL>(line);
}

const Query kDeviceCaps = {"DeviceCaps", 252, [](auto& tsp, HDRVLINE, void* record) {
                               return tsp.TSPI_lineGetDevCaps(kDeviceIdBase, kTspiVersion, 0,
                                                              static_cast<LINEDEVCAPS*>(record));
                           }};
const Query kCallInfo = {"CallInfo", 324, [](auto& tsp, HDRVLINE line, void* record) {
                             return tsp.TSPI_lineGetCallInfo(call_of(line), static_cast<LINECALLINFO*>(record));
                         }};
const Query kAddressStatus = {"AddressStatus", 0, [](auto& tsp, HDRVLINE line, void* record) {
                                  return tsp.TSPI_lineGetAddressStatus(line, 0,
                                                                       static_cast<LINEADDRESSSTATUS*>(record));
                              }};
const Query kLineStatus = {"LineStatus", 0, [](auto& tsp, HDRVLINE line, void* record) {
                               return tsp.TSPI_lineGetLineDevStatus(line, static_cast<LINEDEVSTATUS*>(record));
                           }};
const Query kCallStatus = {"CallStatus", 0, [](auto& tsp, HDRVLINE line, void* record) {
                               return tsp.TSPI_lineGetCallStatus(call_of(line), static_cast<LINECALLSTATUS*>(record));
                           }};
const std::vector<Query> kQueries = {
    kDeviceCaps,
    kCallInfo,
    kAddressStatus,
    kLineStatus,
    kCallStatus,
    {"ExtensionId", 0,
     [](auto& tsp, HDRVLINE, void* record) {
         return tsp.TSPI_lineGetExtensionID(kDeviceIdBase, kTspiVersion, static_cast<LINEEXTENSIONID*>(record));
     }},
    {"AddressCaps", 0,
     [](auto& tsp, HDRVLINE, void* record) {
         return tsp.TSPI_lineGetAddressCaps(kDeviceIdBase, 0, kTspiVersion, 0, static_cast<LINEADDRESSCAPS*>(record));
     }},
    {"NumAddressIds", 0,
     [](auto& tsp, HDRVLINE line, void* record) {
         return tsp.TSPI_lineGetNumAddressIDs(line, static_cast<DWORD*>(record));
     }},
    {"DeviceId", 0,
     [](auto& tsp, HDRVLINE line, void* record) {
         return tsp.TSPI_lineGetID(line, 0, nullptr, LINECALLSELECT_LINE, static_cast<VARSTRING*>(record), L"tapi/line",
                                   nullptr);
     }},
    {"CallAddress", 0,
     [](auto& tsp, HDRVLINE line, void* record) {
         return tsp.TSPI_lineGetCallAddressID(call_of(line), static_cast<DWORD*>(record));
     }},
};

class RecordOrder : public QueryFixture {
  protected:
    struct Seen {
        std::string line;
        Bytes record;
    };

    void SetUp() override {
        QueryFixture::SetUp();
        offer_call(0, {"5551234", "", "5550100", "SENDER", ""});
    }

    // Asks with a record of rubbish; what it holds at each line that this thread traces.
    std::vector<Seen> asked(const Query& query) {
        fill_for(query);
        std::vector<Seen> seen;
        driver.on.QorvLogLogMsg = [&, thread = GetCurrentThreadId()](uint32_t, int, const char* line, const char*,
                                                                     uint32_t) {
            if (GetCurrentThreadId() == thread) seen.push_back({line, contents()});
        };
        EXPECT_EQ(query.ask(tsp, line(0), &answer_), 0);
        driver.on.QorvLogLogMsg = ScriptedDriver::usual().QorvLogLogMsg;
        return seen;
    }
    void fill_for(const Query& query) {
        answer_ = Answer<LINEDEVCAPS>();
        answer_->dwTotalSize = sizeof(answer_.bytes);
        answer_->dwUsedSize = query.used_size;
    }
    Bytes contents() const { return {std::begin(answer_.bytes), std::end(answer_.bytes)}; }

    // The record as the first line of this text has found it.
    template <class Record>
    static Answer<Record> found_by(const std::vector<Seen>& seen, const std::string& pattern) {
        Answer<Record> found;
        for (const Seen& one : seen)
            if (matches(pattern, one.line)) {
                std::memcpy(found.bytes, one.record.data(), one.record.size());
                return found;
            }
        ADD_FAILURE() << "not traced: " << pattern;
        return found;
    }

    Answer<LINEDEVCAPS> answer_;
};

class RecordOrderOf : public RecordOrder, public testing::WithParamInterface<Query> {};

}  // namespace

TEST_P(RecordOrderOf, IsFromTheEntryToTheExit) {
    fill_for(GetParam());
    const Bytes before = contents();
    const std::vector<Seen> seen = asked(GetParam());
    ASSERT_GE(seen.size(), 2u);
    EXPECT_EQ(seen.front().record, before);
    EXPECT_EQ(seen.back().record, contents());
    EXPECT_NE(contents(), before);
}

INSTANTIATE_TEST_SUITE_P(Each, RecordOrderOf, testing::ValuesIn(kQueries),
                         [](const testing::TestParamInfo<Query>& info) { return info.param.name; });

TEST_F(RecordOrder, HasTheCapabilitiesClearedAndTheirSizeKnownWhenTheNameIsTraced) {
    const auto found = found_by<LINEDEVCAPS>(asked(kDeviceCaps), "<*>Query Caps for <*>");
    EXPECT_EQ(found.caps.dwNeededSize, 252u + 94 + 38);
    EXPECT_EQ(found.caps.dwUsedSize, 252u);
    EXPECT_EQ(found.caps.dwProviderInfoSize, 0u);
    EXPECT_EQ(found.caps.dwNumAddresses, 0u);
}

TEST_F(RecordOrder, HasTheWholeOfACallsInformationWhenItIsTraced) {
    const auto found = found_by<LINECALLINFO>(asked(kCallInfo), "<*>DumpCallInfo");
    EXPECT_EQ(Bytes(std::begin(found.bytes), std::end(found.bytes)), contents());
}

TEST_F(RecordOrder, HasNothingOfTheCallBeforeTheLockIsTaken) {
    const auto found = found_by<LINECALLINFO>(asked(kCallInfo), "<*>: lock_line");
    EXPECT_EQ(found.caps.dwUsedSize, 324u);
    EXPECT_EQ(found.caps.dwMediaMode, 0u);
    EXPECT_EQ(found.caps.dwCalledIDFlags, 0u);
}

TEST_F(RecordOrder, HasNoFlagsOfTheCallAsLongAsTheLockIsHeld) {
    const auto found = found_by<LINECALLINFO>(asked(kCallInfo), "<*>: unlock_line");
    EXPECT_EQ(found.caps.dwMediaMode, 0x20u);
    EXPECT_EQ(found.caps.dwRate, 2400u);
    EXPECT_EQ(found.caps.dwCalledIDFlags, 0u);
    EXPECT_EQ(found.caps.dwNeededSize, 0u);
}

TEST_F(RecordOrder, HasTheNumberOfCallsCountedUnderTheLock) {
    EXPECT_EQ(found_by<LINEADDRESSSTATUS>(asked(kAddressStatus), "<*>: lock_line").caps.dwNumActiveCalls, kRubbish);
    const auto address = found_by<LINEADDRESSSTATUS>(asked(kAddressStatus), "<*>: unlock_line");
    EXPECT_EQ(address.caps.dwNumActiveCalls, 1u);
    EXPECT_EQ(address.caps.dwAddressFeatures, kRubbish);

    EXPECT_EQ(found_by<LINEDEVSTATUS>(asked(kLineStatus), "<*>: lock_line").caps.dwNumActiveCalls, kRubbish);
    const auto of_line = found_by<LINEDEVSTATUS>(asked(kLineStatus), "<*>: unlock_line");
    EXPECT_EQ(of_line.caps.dwNumActiveCalls, 1u);
    EXPECT_EQ(of_line.caps.dwDevStatusFlags, kRubbish);
}

TEST_F(RecordOrder, HasTheStateOfTheCallBeforeTheLockAndTheRestUnderIt) {
    const auto before = found_by<LINECALLSTATUS>(asked(kCallStatus), "<*>: lock_line");
    EXPECT_EQ(before.caps.dwCallState, static_cast<DWORD>(LINECALLSTATE_OFFERING));
    EXPECT_EQ(before.caps.dwCallStateMode, kRubbish);
    EXPECT_EQ(before.caps.dwCallFeatures, kRubbish);
    const auto under_it = found_by<LINECALLSTATUS>(asked(kCallStatus), "<*>: unlock_line");
    EXPECT_EQ(under_it.caps.dwCallStateMode, static_cast<DWORD>(LINEOFFERINGMODE_ACTIVE));
    EXPECT_EQ(under_it.caps.dwCallFeatures, 0xC5u);
}
