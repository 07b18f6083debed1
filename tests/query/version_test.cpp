// Versions, the extension, and the number of addresses: fixed answers, whatever line is asked about.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

struct Range {
    DWORD low, high;
    bool contains_version_2;
};

void PrintTo(const Range& range, std::ostream* out) {
    *out << text("0x%lX to 0x%lX", range.low, range.high);
}

class VersionRange : public ProviderFixture, public testing::WithParamInterface<Range> {
  protected:
    // Nothing is written on a refusal.
    static constexpr DWORD kUntouched = 0xCCCCCCCC;
    static DWORD expected_version() { return GetParam().contains_version_2 ? 0x00020000 : kUntouched; }
    static LONG expected_result(DWORD error) { return GetParam().contains_version_2 ? 0 : failed(error); }

    DWORD version = kUntouched;
};

class Version : public LineFixture {
  protected:
    LONG select(HDRVLINE asked, DWORD version) { return tsp.TSPI_lineSelectExtVersion(asked, version); }
};

}  // namespace

// ---- negotiation ----------------------------------------------------------------------------------------------------

TEST_P(VersionRange, DecidesAboutTheInterfaceVersion) {
    EXPECT_EQ(tsp.TSPI_lineNegotiateTSPIVersion(kDeviceIdBase, GetParam().low, GetParam().high, &version),
              expected_result(LINEERR_INCOMPATIBLEAPIVERSION));
    EXPECT_EQ(version, expected_version());
}

TEST_P(VersionRange, DecidesAboutTheExtensionVersion) {
    EXPECT_EQ(tsp.TSPI_lineNegotiateExtVersion(kDeviceIdBase, 0x99999, GetParam().low, GetParam().high, &version),
              expected_result(LINEERR_INCOMPATIBLEEXTVERSION));
    EXPECT_EQ(version, expected_version());
}

INSTANTIATE_TEST_SUITE_P(Contains, VersionRange,
                         testing::Values(Range{0x00020000, 0x00020000, true}, Range{0x00010003, 0x00030001, true},
                                         Range{0x00010004, 0x00020000, true}, Range{0x00020000, 0x00030000, true},
                                         Range{0, 0xFFFFFFFF, true}));
INSTANTIATE_TEST_SUITE_P(Misses, VersionRange,
                         testing::Values(Range{0x00020001, 0x00030000, false}, Range{0x00010003, 0x0001FFFF, false},
                                         Range{0x00020001, 0x0001FFFF, false}, Range{0, 0, false},
                                         Range{0xFFFFFFFF, 0xFFFFFFFF, false}));

TEST_F(Version, IsNegotiatedForAnyDeviceAndWithoutATrace) {
    DWORD version = 0;
    EXPECT_EQ(tsp.TSPI_lineNegotiateTSPIVersion(0xFFFFFFFF, 0, 0x00030000, &version), 0);
    EXPECT_EQ(tsp.TSPI_lineNegotiateExtVersion(0, 0, 0, 0x00030000, &version), 0);
    EXPECT_TRUE(reads(traces().all_levels(), {}));
}

TEST_F(Version, OfTheExtensionCanBeSelectedAndDeselected) {
    EXPECT_EQ(select(line(0), 0x00020000), 0);
    EXPECT_EQ(select(line(0), 0), 0);
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] " + kNoCall + "TSPI_lineSelectExtVersion",
                                                 "[17] " + kNoCall + "TSPI_lineSelectExtVersion(0) Good",
                                                 "[16] " + kNoCall + "TSPI_lineSelectExtVersion",
                                                 "[17] " + kNoCall + "TSPI_lineSelectExtVersion(0) Good",
                                             }));
}

TEST_F(Version, OfTheExtensionIsRefusedOtherwise) {
    for (DWORD version : {1ul, 0x00010003ul, 0x0001FFFFul, 0x00020001ul, 0xFFFFFFFFul})
        EXPECT_EQ(select(line(0), version), failed(LINEERR_INCOMPATIBLEEXTVERSION)) << version;
    EXPECT_TRUE(holds(traces(), "[17] " + kNoCall + "TSPI_lineSelectExtVersion(-2147483635) Failed"));
}

TEST_F(Version, OfTheExtensionNeedsNoHandle) {
    EXPECT_EQ(select(nullptr, 0x00020000), 0);
    EXPECT_EQ(select(nullptr, 7), failed(LINEERR_INCOMPATIBLEEXTVERSION));
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] TSPI_lineSelectExtVersion",
                                                 "[17] TSPI_lineSelectExtVersion(0) Good",
                                                 "[16] TSPI_lineSelectExtVersion",
                                                 "[17] TSPI_lineSelectExtVersion(-2147483635) Failed",
                                             }));
}

// ---- the extension's identity ---------------------------------------------------------------------------------------

TEST_F(Version, HasAnExtensionWithFourNumbers) {
    struct {
        LINEEXTENSIONID id;
        DWORD guard;
    } answer = {{}, 0xCCCCCCCC};
    EXPECT_EQ(tsp.TSPI_lineGetExtensionID(0xFFFFFFFF, kTspiVersion, &answer.id), 0);
    EXPECT_EQ(answer.id.dwExtensionID0, 0x580F6780u);
    EXPECT_EQ(answer.id.dwExtensionID1, 0x101D580Eu);
    EXPECT_EQ(answer.id.dwExtensionID2, 0x8000F880u);
    EXPECT_EQ(answer.id.dwExtensionID3, 0x4A3D13C8u);
    EXPECT_EQ(answer.guard, 0xCCCCCCCCu);
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] dwDeviceID(-1): TSPI_lineGetExtensionID(TSPIVersion(0x20000))",
                                                 "[17] TSPI_lineGetExtensionID(0) Good",
                                             }));
}

TEST_F(Version, CatchesAFaultInTheCallersRecord) {
    EXPECT_TRUE(reports_an_exception("TSPI_lineGetExtensionID", [this] {
        return tsp.TSPI_lineGetExtensionID(kDeviceIdBase, kTspiVersion, nullptr);
    }));
}

// ---- addresses ------------------------------------------------------------------------------------------------------

TEST_F(Version, HasOneAddressOnEveryLine) {
    DWORD addresses = 0;
    EXPECT_EQ(tsp.TSPI_lineGetNumAddressIDs(line(0), &addresses), 0);
    EXPECT_EQ(addresses, 1u);
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] " + kNoCall + "TSPI_lineGetNumAddressIDs",
                                                 "[17] " + kNoCall + "TSPI_lineGetNumAddressIDs(0) Good",
                                             }));
}

TEST_F(Version, HasOneAddressWithoutALine) {
    DWORD addresses = 0;
    EXPECT_EQ(tsp.TSPI_lineGetNumAddressIDs(nullptr, &addresses), 0);
    EXPECT_EQ(addresses, 1u);
    EXPECT_TRUE(
        reads(traces().all_levels(), {"[16] TSPI_lineGetNumAddressIDs", "[17] TSPI_lineGetNumAddressIDs(0) Good"}));
}

TEST_F(Version, CatchesAFaultInTheCallersNumberOfAddresses) {
    EXPECT_EQ(tsp.TSPI_lineGetNumAddressIDs(line(0), nullptr), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(holds(traces(), "[1] TSPI_lineGetNumAddressIDs: Exception"));
}
