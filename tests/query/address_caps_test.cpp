// The capabilities of a line's single address: fixed values, written whatever is asked.
#include <cstddef>

#include "caps_answer.h"
#include "line_fixture.h"

using namespace harness;

namespace {

constexpr size_t kFixedSize = 228;  // LINEADDRESSCAPS as TAPI 2.0 has it

using AddressAnswer = Answer<LINEADDRESSCAPS>;

static_assert(offsetof(LINEADDRESSCAPS, dwAddressFeatures) + sizeof(DWORD) <= kFixedSize);

class AddressCaps : public ProviderFixture {
  protected:
    LONG ask(DWORD device, DWORD address, AddressAnswer& answer) {
        return tsp.TSPI_lineGetAddressCaps(device, address, kTspiVersion, 0x30001, &answer.caps);
    }
};

// What the answer is, field by field; the others keep their rubbish.
AddressAnswer expected_for(DWORD device) {
    AddressAnswer answer;
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

}  // namespace

TEST_F(AddressCaps, AreTheSameForEveryLine) {
    for (DWORD device : {DWORD{kDeviceIdBase}, DWORD{kDeviceIdBase + 1}, DWORD{0}, DWORD{0xFFFFFFFF}}) {
        AddressAnswer answer;
        EXPECT_EQ(ask(device, 0, answer), 0);
        EXPECT_EQ(differences(expected_for(device), answer), Lines{});
    }
}

TEST_F(AddressCaps, AreTracedWithTheCallersVersions) {
    AddressAnswer answer;
    EXPECT_EQ(ask(kDeviceIdBase, 0, answer), 0);
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] dwDeviceID(0x7): TSPI_lineGetAddressCaps(addressID(0), "
                                                 "TSPVersion(0x20000), ExtVersion(0x30001)",
                                                 "[17] TSPI_lineGetAddressCaps(0) Good",
                                             }));
}

TEST_F(AddressCaps, AreWrittenForAnotherAddressToo) {
    AddressAnswer answer;
    EXPECT_EQ(ask(kDeviceIdBase, 1, answer), failed(LINEERR_INVALADDRESSID));
    EXPECT_EQ(differences(expected_for(kDeviceIdBase), answer), Lines{});
    EXPECT_TRUE(reads(traces(), {
                                    "[16] dwDeviceID(0x7): TSPI_lineGetAddressCaps(addressID(1), TSPVersion(0x20000), "
                                    "ExtVersion(0x30001)",
                                    "[17] TSPI_lineGetAddressCaps(-2147483631) Failed",
                                }));
}

TEST_F(AddressCaps, DoNotDependOnTheRoomThatThereIsSaidToBe) {
    AddressAnswer answer;
    answer.caps.dwTotalSize = 12;
    AddressAnswer expected = expected_for(kDeviceIdBase);
    expected.caps.dwTotalSize = 12;
    EXPECT_EQ(ask(kDeviceIdBase, 0, answer), 0);
    EXPECT_EQ(differences(expected, answer), Lines{});
}

TEST_F(AddressCaps, CatchAFaultInTheCallersRecord) {
    EXPECT_TRUE(reports_an_exception("TSPI_lineGetAddressCaps", [this] {
        return tsp.TSPI_lineGetAddressCaps(kDeviceIdBase, 0, kTspiVersion, 0, nullptr);
    }));
}
