// The capabilities of a line.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "caps_answer.h"
#include "line_fixture.h"

using namespace harness;

namespace {

constexpr DWORD kFixedSize = 252;  // LINEDEVCAPS as TAPI 2.0 has it
constexpr DWORD kInfoSize = 94;    // the provider's name
constexpr DWORD kNameSize = 38;    // "Halvorsund Line #1"
constexpr DWORD kNeededSize = kFixedSize + kInfoSize + kNameSize;

struct DeviceAnswer : Answer<LINEDEVCAPS> {
    explicit DeviceAnswer(DWORD total, DWORD used = kFixedSize) {
        caps.dwTotalSize = total;
        caps.dwUsedSize = used;
    }
    std::string text_at(DWORD offset) const { return narrow(reinterpret_cast<const wchar_t*>(bytes + offset)); }
    std::string name() const { return text_at(caps.dwLineNameOffset); }
};

static_assert(offsetof(LINEDEVCAPS, dwLineFeatures) + sizeof(DWORD) <= kFixedSize);

class DeviceCaps : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
    }
    LONG ask(DWORD index, LINEDEVCAPS* caps) {
        return tsp.TSPI_lineGetDevCaps(kDeviceIdBase + index, kTspiVersion, 0x30001, caps);
    }
    LONG ask(DWORD index, DeviceAnswer& answer) { return ask(index, &answer.caps); }
};

// Every field of the fixed part that is not zero.
void put_fixed_fields(LINEDEVCAPS& caps, DWORD rate, DWORD permanent_id) {
    caps.dwNeededSize = kNeededSize;
    caps.dwStringFormat = 3;
    caps.dwPermanentLineID = permanent_id;
    caps.dwAddressModes = 1;
    caps.dwNumAddresses = 1;
    caps.dwBearerModes = 1;
    caps.dwMaxRate = rate;
    caps.dwMediaModes = 0x20;
    caps.dwRingModes = 1;
    caps.dwMaxNumActiveCalls = 1;
    caps.dwDevCapFlags = 0x120;
    caps.dwLineFeatures = 8;
    caps.dwLineStates = 0x802;
}

// The fixed part of an answer without the texts.
DeviceAnswer expected_without_texts(DWORD total) {
    DeviceAnswer answer(total);
    std::memset(answer.bytes, 0, kFixedSize);
    put_fixed_fields(answer.caps, 2400, (kProviderId << 16) | 4);
    answer.caps.dwTotalSize = total;
    answer.caps.dwUsedSize = kFixedSize;
    return answer;
}

}  // namespace

TEST_F(DeviceCaps, HaveTheFixedPartAndTwoTextsBehindIt) {
    DeviceAnswer expected = expected_without_texts(1024);
    expected.caps.dwProviderInfoSize = kInfoSize;
    expected.caps.dwProviderInfoOffset = kFixedSize;
    expected.caps.dwLineNameSize = kNameSize;
    expected.caps.dwLineNameOffset = kFixedSize + kInfoSize;
    expected.caps.dwUsedSize = kNeededSize;
    std::memcpy(expected.bytes + kFixedSize, L"Vantreli Halvorsund Telephony Service Provider", kInfoSize);
    std::memcpy(expected.bytes + kFixedSize + kInfoSize, L"Halvorsund Line #1", kNameSize);
    DeviceAnswer answer(1024);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(differences<LINEDEVCAPS>(expected, answer), Lines{});
    EXPECT_TRUE(reads(traces().all_levels(),
                      {
                          "[16] dwDeviceID(7): TSPI_lineGetDevCaps(TSPIVersion(0x20000),ExtVersion(0x30001))",
                          "[4] Query Caps for <Halvorsund Line #1>",
                          "[17] TSPI_lineGetDevCaps(0) Good",
                      }));
}

TEST_F(DeviceCaps, FitExactly) {
    DeviceAnswer answer(kNeededSize);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(answer.caps.dwUsedSize, kNeededSize);
    EXPECT_EQ(answer.name(), "Halvorsund Line #1");
    EXPECT_TRUE(answer.untouched_from(kNeededSize));
}

TEST_F(DeviceCaps, LeaveBothTextsOutWhenOneByteIsMissing) {
    DeviceAnswer answer(kNeededSize - 1);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(differences<LINEDEVCAPS>(expected_without_texts(kNeededSize - 1), answer), Lines{});
    EXPECT_TRUE(reads(traces(), {
                                    "[16] dwDeviceID(7): TSPI_lineGetDevCaps(TSPIVersion(0x20000),ExtVersion(0x30001))",
                                    "[4] Query Caps for <Halvorsund Line #1>",
                                    "[4] (lpLineDevCaps->dwTotalSize >= lpLineDevCaps->dwNeededSize)",
                                    "[17] TSPI_lineGetDevCaps(0) Good",
                                }));
}

TEST_F(DeviceCaps, WriteNoFieldOfALaterVersion) {
    DeviceAnswer answer(kFixedSize);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_TRUE(answer.untouched_from(kFixedSize));
}

TEST_F(DeviceCaps, ClearAsMuchAsTheCallerUses) {
    DeviceAnswer answer(1024, 300);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(answer.caps.dwNeededSize, 300 + kInfoSize + kNameSize);
    EXPECT_EQ(answer.caps.dwProviderInfoOffset, 300u);
    EXPECT_EQ(answer.caps.dwLineNameOffset, 300 + kInfoSize);
    EXPECT_EQ(answer.name(), "Halvorsund Line #1");
    for (size_t i = kFixedSize; i < 300; ++i) EXPECT_EQ(answer.bytes[i], 0) << i;
    EXPECT_TRUE(answer.untouched_from(300 + kInfoSize + kNameSize));
}

TEST_F(DeviceCaps, AddTheLineStatesToThoseThatAreThere) {
    DeviceAnswer answer(kFixedSize, 121);
    answer.caps.dwLineStates = 0x10;
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(answer.caps.dwLineStates, 0x812u);
    // What is neither cleared nor fixed stays as it is.
    EXPECT_EQ(answer.caps.dwSettableDevStatus, 0xCCCCCCCCu);
}

TEST_F(DeviceCaps, NumberTheLinesFromOne) {
    for (auto [index, name] : {std::pair<DWORD, const char*>{1, "Halvorsund Line #2"},
                               {9, "Halvorsund Line #10"},
                               {4046, "Halvorsund Line #4047"},
                               {4047, "Halvorsund Line #4048"}}) {
        DeviceAnswer answer(1024);
        EXPECT_EQ(ask(index, answer), 0);
        EXPECT_EQ(answer.name(), name);
        EXPECT_EQ(answer.caps.dwLineNameSize, (std::strlen(name) + 1) * sizeof(wchar_t));
    }
}

TEST_F(DeviceCaps, MakeThePermanentIdOfTheProvidersIdAndTheChannel) {
    EXPECT_EQ(device_caps(0).dwPermanentLineID, (kProviderId << 16) | 4);
    EXPECT_EQ(device_caps(1).dwPermanentLineID, (kProviderId << 16) | 5);
    // The upper half of a large provider ID is lost.
    EXPECT_EQ(tsp.TSPI_providerInit(kTspiVersion, 0x12345678, kDeviceIdBase, 0, 2, 0, tapi_completion, &options), 0);
    EXPECT_EQ(device_caps(1).dwPermanentLineID, 0x56780000u | 5);
}

TEST_F(DeviceCaps, ReadABadChannelsNumberBack) {
    driver.channel(5).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(device_caps(1).dwPermanentLineID, (kProviderId << 16) | 5);
}

TEST_F(DeviceCaps, TellTheRateThatTheChannelHasSinceItsReset) {
    EXPECT_EQ(device_caps(0).dwMaxRate, 2400u);
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(device_caps(0).dwMaxRate, 14400u);
}

// ---- devices outside the tables -------------------------------------------------------------------------------------

namespace {

struct Outside {
    DWORD index;
    const char* name;
};

void PrintTo(const Outside& outside, std::ostream* out) {
    *out << "index " << outside.index;
}

class DeviceOutside : public DeviceCaps, public testing::WithParamInterface<Outside> {
  protected:
    // The record is filled as for any line, but for what the tables would tell.
    static void expect_filled(const DeviceAnswer& answer) {
        EXPECT_EQ(answer.name(), GetParam().name);
        EXPECT_EQ(answer.caps.dwMaxRate, 0u);
        EXPECT_EQ(answer.caps.dwPermanentLineID, kProviderId << 16);
        EXPECT_EQ(answer.caps.dwLineFeatures, 8u);
        EXPECT_EQ(answer.caps.dwMediaModes, 0x20u);
        EXPECT_EQ(answer.text_at(answer.caps.dwProviderInfoOffset), "Vantreli Halvorsund Telephony Service Provider");
    }
};

}  // namespace

TEST_P(DeviceOutside, IsReportedInvalidAndFilledInAllTheSame) {
    DeviceAnswer answer(1024);
    const int index = static_cast<int>(GetParam().index), device = static_cast<int>(kDeviceIdBase + GetParam().index);
    EXPECT_EQ(ask(GetParam().index, answer), failed(LINEERR_INVALDEVICEHANDLE));
    expect_filled(answer);
    EXPECT_TRUE(reads(traces(), {
                                    text("[16] dwDeviceID(%d): TSPI_lineGetDevCaps(<*>", device),
                                    text("[1] Invalid device: dwDeviceId(%d), index(%d)", device, index),
                                    "[17] TSPI_lineGetDevCaps(-2147483612) Failed",
                                    text("[4] Query Caps for <%s>", GetParam().name),
                                    "[17] TSPI_lineGetDevCaps(-2147483612) Failed",
                                }));
}

INSTANTIATE_TEST_SUITE_P(BelowTheBase, DeviceOutside,
                         testing::Values(Outside{0xFFFFFFFF, "Halvorsund Line #0"},
                                         Outside{0xFFFFFFF9, "Halvorsund Line #-6"}));
INSTANTIATE_TEST_SUITE_P(AboveTheTables, DeviceOutside,
                         testing::Values(Outside{4049, "Halvorsund Line #4050"},
                                         Outside{0x7FFFFFFF, "Halvorsund Line #-2147483648"}));

TEST_F(DeviceCaps, TakeTheIndex4048ForALine) {
    DeviceAnswer answer(1024);
    EXPECT_EQ(ask(4048, answer), 0);
    EXPECT_EQ(answer.name(), "Halvorsund Line #4049");
    EXPECT_EQ(answer.caps.dwMaxRate, 0u);
    EXPECT_EQ(answer.caps.dwPermanentLineID, kProviderId << 16);
    EXPECT_TRUE(reads(traces().levels({1}), {}));
}

// ---- failures -------------------------------------------------------------------------------------------------------

TEST_F(DeviceCaps, CatchAFaultInTheCallersRecord) {
    EXPECT_TRUE(reports_an_exception("TSPI_lineGetDevCaps", [this] { return ask(0, nullptr); }));
    EXPECT_TRUE(holds_no(traces(), "[4] TSPI_lineGetDevCaps - Catch Error"));
}

namespace {

int __cdecl formatting_fails(wchar_t*, size_t, const wchar_t*, ...) {
    return -1;
}
int __cdecl formatting_throws(wchar_t*, size_t, const wchar_t*, ...) {
    throw 1;
}
// Fills the whole of the name and leaves it without an end.
size_t characters_allowed = 0;
int __cdecl formatting_leaves_no_end(wchar_t* name, size_t count, const wchar_t*, ...) {
    characters_allowed = count;
    std::fill_n(name, 32, L'x');
    return 31;
}

}  // namespace

TEST_F(DeviceCaps, HaveAnotherLineNameWhenItCannotBeFormatted) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_fails)));
    DeviceAnswer answer(1024);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(answer.name(), "Halvorsund Line ERROR");
    EXPECT_EQ(answer.caps.dwNeededSize, kFixedSize + kInfoSize + 44);
    EXPECT_TRUE(
        reads_in_order(traces(), {"[4] TSPI_lineGetDevCaps snwprintf", "[4] Query Caps for <Halvorsund Line ERROR>",
                                  "[17] TSPI_lineGetDevCaps(0) Good"}));
}

TEST_F(DeviceCaps, HaveALineNameOfAtMost31Characters) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_leaves_no_end)));
    DeviceAnswer answer(1024);
    EXPECT_EQ(ask(0, answer), 0);
    EXPECT_EQ(characters_allowed, 31u);
    EXPECT_EQ(answer.name(), std::string(31, 'x'));
    EXPECT_EQ(answer.caps.dwLineNameSize, 64u);
}

TEST_F(DeviceCaps, HaveNoFixedPartAfterAnExceptionOfTheFormatting) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_throws)));
    DeviceAnswer answer(1024);
    SetLastError(77);
    EXPECT_EQ(ask(0, answer), failed(LINEERR_OPERATIONFAILED));
    EXPECT_NE(GetLastError(), 1064u);
    EXPECT_EQ(answer.caps.dwNumAddresses, 0u);
    EXPECT_EQ(answer.caps.dwLineStates, 0u);
    EXPECT_EQ(answer.caps.dwTotalSize, 1024u);
    EXPECT_EQ(answer.caps.dwUsedSize, kFixedSize);
    EXPECT_TRUE(reads(traces(), {
                                    "[16] dwDeviceID(7): TSPI_lineGetDevCaps(TSPIVersion(0x20000),ExtVersion(0x30001))",
                                    "[4] TSPI_lineGetDevCaps - Catch Error",
                                    "[17] TSPI_lineGetDevCaps(-2147483576) Failed",
                                }));
}
