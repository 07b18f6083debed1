// The ring count of a line: how the fax service's values are read, and which keys are opened and closed for it.
#include "harness.h"

using namespace harness;

namespace {

constexpr DWORD kOurs = 196612;
const std::wstring kDevice = kFaxDevices + L"\\A", kData = kDevice + L"\\Provider";

class RingCountValues : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        windows.registry.set(kData, L"TAPI Permanent Lineid", kOurs);
        windows.registry.set(kData, L"Rings", DWORD{3});
        start_provider();
        open_waiting_line(0);
    }

    // The third parameter of LINEDEVSTATE_RINGING at the first ring.
    static std::string reported(const std::string& count) {
        return "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, " + count + ")";
    }
    void expect_count(const std::string& count) {
        offer_call(0);
        EXPECT_TRUE(reads(events().only({"<*>RINGING<*>"}), {reported(count)}));
        EXPECT_EQ(windows.registry.open_keys, 0);
    }

    static void give_bytes(const std::wstring& name, const std::vector<uint8_t>& bytes) {
        windows.registry.key(kData).values[name] = bytes;
    }
};

}  // namespace

TEST_F(RingCountValues, AreMultipliedByTheRingsThatHaveCome) {
    sleep_gate(6000).close();
    for (int ring = 1; ring <= 3; ++ring) {
        driver.ring(4);
        EXPECT_TRUE(comes(reported(text("0x%X", 3 * ring))));
        sleep_gate(6000).open_once();
    }
    EXPECT_TRUE(reads(traces().only({"<*>number of incoming rings<*>"}),
                      {"[4] RING_DET_THREAD: number of incoming rings = 1  NRINGS = 3",
                       "[4] RING_DET_THREAD: number of incoming rings = 2  NRINGS = 3",
                       "[4] RING_DET_THREAD: number of incoming rings = 3  NRINGS = 3"}));
}

TEST_F(RingCountValues, AreLookedUpAnewAtEveryRing) {
    sleep_gate(6000).close();
    driver.ring(4);
    EXPECT_TRUE(comes(reported("0x3")));
    windows.registry.set(kData, L"Rings", DWORD{5});
    driver.ring(4);
    sleep_gate(6000).open_once();
    EXPECT_TRUE(comes(reported("0xA")));
}

TEST_F(RingCountValues, MustHaveFourBytesForTheLine) {
    give_bytes(L"TAPI Permanent Lineid", {4, 0, 3, 0, 0, 0, 0, 0});
    expect_count("0x1");
    EXPECT_TRUE(holds_no(traces(), "<*>is not match<*>"));
}

TEST_F(RingCountValues, MustHaveFourBytesForTheRings) {
    give_bytes(L"Rings", {2, 0, 0, 0, 0, 0, 0, 0});
    expect_count("0x1");
    EXPECT_TRUE(holds(traces(), "[4] Can not find Rings registry key"));
    EXPECT_TRUE(holds(traces(), "[4] ****** FindNringsFromLineID: did not find it "));
}

TEST_F(RingCountValues, AreTracedAsSignedNumbersWhenTheLineIsAnother) {
    windows.registry.set(kData, L"TAPI Permanent Lineid", DWORD{0xFFFFFFFE});
    expect_count("0x1");
    EXPECT_TRUE(holds(traces(), "[4] The Line ID -2 is not match with the Permanent LineID 196612"));
}

TEST_F(RingCountValues, ComeFromADeviceWithALongName) {
    windows.registry.remove(kDevice);
    const std::wstring long_name(255, L'n');
    windows.registry.set(kFaxDevices + L"\\" + long_name + L"\\" + long_name, L"TAPI Permanent Lineid", kOurs);
    windows.registry.set(kFaxDevices + L"\\" + long_name + L"\\" + long_name, L"Rings", DWORD{4});
    expect_count("0x4");
}

TEST_F(RingCountValues, AreReadInThisOrder) {
    windows.registry.set(kFaxDevices + L"\\B\\Provider", L"TAPI Permanent Lineid", kOurs);
    windows.registry.key(kData).values.erase(L"Rings");
    offer_call(0);
    const std::string root = "\"HKLM\\SOFTWARE\\Microsoft\\Fax\\Devices", a = root + "\\A", b = root + "\\B";
    Lines looked_at;
    for (const std::string& device : {a, b})
        for (const std::string& line :
             {"RegEnumKeyExW(" + root + "\", " + (device == a ? "0)" : "1)"),
              "RegOpenKeyExW(" + device + "\", 0x20019)", "RegEnumKeyExW(" + device + "\", 0)",
              "RegOpenKeyExW(" + device + "\\Provider\", 0x1)",
              "RegQueryValueExW(" + device + "\\Provider\", \"TAPI Permanent Lineid\")",
              "RegQueryValueExW(" + device + "\\Provider\", \"Rings\")"})
            looked_at.push_back(line);
    looked_at.insert(looked_at.begin(), "RegOpenKeyExW(" + root + "\", 0x20019)");
    looked_at.push_back("RegEnumKeyExW(" + root + "\", 2)");
    EXPECT_TRUE(reads(windows_calls().only({"Reg<*>"}).without({"RegCloseKey(<*>"}), looked_at));
    EXPECT_EQ(windows.registry.open_keys, 0);
}
