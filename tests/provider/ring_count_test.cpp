// How many rings the fax service wants on a line, looked up at every ring.
#include "harness.h"

using namespace harness;

namespace {

// A line whose permanent ID is 3 << 16 | 4.
class RingCount : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        windows.registry.key(kFaxDevices);
        start_provider();
        open_waiting_line(0);
    }

    static void add_device(const std::wstring& device, DWORD line, DWORD rings) {
        std::wstring place = kFaxDevices + L"\\" + device + L"\\Provider";
        windows.registry.set(place, L"TAPI Permanent Lineid", line);
        windows.registry.set(place, L"Rings", rings);
    }

    // Lets a first ring come, and reads how it was reported.
    std::string reported_count() {
        offer_call(0);
        return lines(events().only({"LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, <*>"})).at(0);
    }
};

constexpr DWORD kOurs = 196612, kOther = 77;
const char* const kNotFound = "[4] ****** FindNringsFromLineID: did not find it ";
const char* const kOneRing = "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x1)";

}  // namespace

TEST_F(RingCount, ComesFromTheFaxServicesDeviceWithTheLinesPermanentId) {
    add_device(L"0000000001", kOurs, 4);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x4)");
    EXPECT_TRUE(reads_in_order(
        traces().levels({4, 9}),
        {"[9] findNringsFromLineID(0)", "[4] RING_DET_THREAD: number of incoming rings = 1  NRINGS = 4"}));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(RingCount, IsOneWithoutTheFaxServicesKey) {
    windows.registry.remove(kFaxDevices);
    EXPECT_EQ(reported_count(), kOneRing);
    EXPECT_TRUE(reads_in_order(traces(), {"[4] ****** FindNringsFromLineID:  Can not open the registry", kNotFound,
                                          "[4] RING_DET_THREAD: number of incoming rings = 1  NRINGS = 1"}));
}

TEST_F(RingCount, IsOneWithoutAnyDevice) {
    EXPECT_EQ(reported_count(), kOneRing);
    EXPECT_TRUE(reads_in_order(traces(), {kNotFound}));
    EXPECT_TRUE(holds_no(traces(), "<*>Can not open the registry"));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(RingCount, PassesOverTheDevicesOfOtherLines) {
    add_device(L"0000000001", kOther, 9);
    add_device(L"0000000002", kOurs, 3);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x3)");
    EXPECT_TRUE(holds(traces(), "[4] The Line ID 77 is not match with the Permanent LineID 196612"));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(RingCount, IsDecidedByTheFirstMatchingDevice) {
    add_device(L"B", kOurs, 5);
    add_device(L"A", kOurs, 6);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x5)");
    EXPECT_TRUE(holds_no(windows_calls(), "RegOpenKeyExW(\"<*>\\A<*>"));
}

TEST_F(RingCount, PassesOverAMatchingDeviceWithoutARingCount) {
    windows.registry.set(kFaxDevices + L"\\A\\Provider", L"TAPI Permanent Lineid", kOurs);
    add_device(L"B", kOurs, 2);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x2)");
    EXPECT_TRUE(holds(traces(), "[4] Can not find Rings registry key"));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(RingCount, PassesOverADeviceWithoutALineId) {
    windows.registry.set(kFaxDevices + L"\\A\\Provider", L"Rings", DWORD{8});
    add_device(L"B", kOurs, 2);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x2)");
    EXPECT_TRUE(holds_no(traces(), "<*>is not match<*>"));
}

TEST_F(RingCount, PassesOverADeviceWithoutASubkey) {
    windows.registry.key(kFaxDevices + L"\\A");
    add_device(L"B", kOurs, 2);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x2)");
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(RingCount, LooksOnlyAtADevicesFirstSubkey) {
    windows.registry.key(kFaxDevices + L"\\A\\First");
    windows.registry.set(kFaxDevices + L"\\A\\Second", L"TAPI Permanent Lineid", kOurs);
    windows.registry.set(kFaxDevices + L"\\A\\Second", L"Rings", DWORD{8});
    EXPECT_EQ(reported_count(), kOneRing);
    EXPECT_TRUE(holds(traces(), kNotFound));
}

TEST_F(RingCount, PassesOverADeviceThatCannotBeOpened) {
    add_device(L"A", kOurs, 8);
    add_device(L"B", kOurs, 2);
    windows.registry.key(kFaxDevices + L"\\A").open_error = ERROR_ACCESS_DENIED;
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x2)");
    EXPECT_TRUE(holds_no(traces(), "[4] Cannot open key <*>"));
}

TEST_F(RingCount, SaysWhichSubkeyCannotBeOpened) {
    add_device(L"A", kOurs, 8);
    windows.registry.key(kFaxDevices + L"\\A\\Provider").open_error = ERROR_ACCESS_DENIED;
    EXPECT_EQ(reported_count(), kOneRing);
    EXPECT_TRUE(holds(traces(), "[4] Cannot open key SOFTWARE\\Microsoft\\Fax\\Devices\\A\\Provider"));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(RingCount, MayBeZero) {
    add_device(L"A", kOurs, 0);
    EXPECT_EQ(reported_count(), "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x0)");
}

TEST_F(RingCount, OpensTheKeysForReadingOnly) {
    add_device(L"A", kOurs, 2);
    reported_count();
    const Lines expected = {
        "RegOpenKeyExW(\"HKLM\\SOFTWARE\\Microsoft\\Fax\\Devices\", 0x20019)",
        "RegOpenKeyExW(\"HKLM\\SOFTWARE\\Microsoft\\Fax\\Devices\\A\", 0x20019)",
        "RegOpenKeyExW(\"HKLM\\SOFTWARE\\Microsoft\\Fax\\Devices\\A\\Provider\", 0x1)",
    };
    EXPECT_TRUE(reads(windows_calls().only({"RegOpenKeyExW(<*>"}), expected));
}
