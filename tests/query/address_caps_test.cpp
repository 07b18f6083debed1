// The capabilities of a line's single address: fixed values, written whatever is asked.
#include <cstddef>
#include <cstring>

#include "harness.h"

using namespace harness;

namespace {

constexpr size_t kFixedSize = 228;  // LINEADDRESSCAPS as TAPI 2.0 has it
constexpr uint8_t kRubbish = 0xCC;

// The record with rubbish in it and behind it.
struct Answer {
    union {
        LINEADDRESSCAPS caps;
        uint8_t bytes[512];
    };
    Answer() { std::memset(bytes, kRubbish, sizeof(bytes)); }
};

static_assert(offsetof(LINEADDRESSCAPS, dwAddressFeatures) + sizeof(DWORD) <= kFixedSize);

class AddressCaps : public ProviderFixture {
  protected:
    LONG ask(DWORD device, DWORD address, Answer& answer) {
        return tsp.TSPI_lineGetAddressCaps(device, address, kTspiVersion, 0x30001, &answer.caps);
    }
};

// What the answer is, field by field; the others keep their rubbish.
Answer expected_for(DWORD device) {
    Answer answer;
    LINEADDRESSCAPS& caps = answer.caps;
    caps.dwNeededSize = caps.dwUsedSize = kFixedSize;
    caps.dwLineDeviceID = device;
    caps.dwAddressSharing = 1;
    caps.dwCallInfoStates = 0x30;
    caps.dwCallerIDFlags = 0xC;
    caps.dwCalledIDFlags = 8;
    caps.dwRedirectionIDFlags = caps.dwRedirectingIDFlags = 0x40;
    caps.dwCallStates = 0xC3FF;
    caps.dwDialToneModes = 0x20;
    caps.dwBusyModes = 3;
    caps.dwSpecialInfo = 0xF;
    caps.dwDisconnectModes = 0x7FFFF;
    caps.dwMaxNumActiveCalls = 1;
    caps.dwAddrCapFlags = 0x10020;
    caps.dwCallFeatures = 0x2000C5;
    caps.dwAddressFeatures = 2;
    return answer;
}

// Where two answers differ, as 32-bit fields.
Lines differences(const Answer& expected, const Answer& seen) {
    Lines result;
    for (size_t offset = 0; offset < sizeof(seen.bytes); offset += sizeof(DWORD))
        if (std::memcmp(expected.bytes + offset, seen.bytes + offset, sizeof(DWORD)) != 0)
            result.push_back(text("at %zu", offset));
    return result;
}

}  // namespace

TEST_F(AddressCaps, AreTheSameForEveryLine) {
    for (DWORD device : {DWORD{kDeviceIdBase}, DWORD{kDeviceIdBase + 1}, DWORD{0}, DWORD{0xFFFFFFFF}}) {
        Answer answer;
        EXPECT_EQ(ask(device, 0, answer), 0);
        EXPECT_EQ(differences(expected_for(device), answer), Lines{});
    }
}

TEST_F(AddressCaps, AreTracedWithTheCallersVersions) {
    Answer answer;
    EXPECT_EQ(ask(kDeviceIdBase, 0, answer), 0);
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] dwDeviceID(0x7): TSPI_lineGetAddressCaps(addressID(0), "
                                                 "TSPVersion(0x20000), ExtVersion(0x30001)",
                                                 "[17] TSPI_lineGetAddressCaps(0) Good",
                                             }));
}

TEST_F(AddressCaps, AreWrittenForAnotherAddressToo) {
    Answer answer;
    EXPECT_EQ(ask(kDeviceIdBase, 1, answer), failed(LINEERR_INVALADDRESSID));
    EXPECT_EQ(differences(expected_for(kDeviceIdBase), answer), Lines{});
    EXPECT_TRUE(reads(traces(), {
                                    "[16] dwDeviceID(0x7): TSPI_lineGetAddressCaps(addressID(1), TSPVersion(0x20000), "
                                    "ExtVersion(0x30001)",
                                    "[17] TSPI_lineGetAddressCaps(-2147483631) Failed",
                                }));
}

TEST_F(AddressCaps, DoNotDependOnTheRoomThatThereIsSaidToBe) {
    Answer answer;
    answer.caps.dwTotalSize = 12;
    Answer expected = expected_for(kDeviceIdBase);
    expected.caps.dwTotalSize = 12;
    EXPECT_EQ(ask(kDeviceIdBase, 0, answer), 0);
    EXPECT_EQ(differences(expected, answer), Lines{});
}

TEST_F(AddressCaps, CatchAFaultInTheCallersRecord) {
    SetLastError(0);
    EXPECT_EQ(tsp.TSPI_lineGetAddressCaps(kDeviceIdBase, 0, kTspiVersion, 0, nullptr), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(holds(traces(), "[1] TSPI_lineGetAddressCaps: Exception"));
}
