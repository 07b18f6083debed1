// Which Windows the provider takes the machine for, seen through its start.
#include <algorithm>

#include "harness.h"

using namespace harness;

namespace {

class VersionCheck : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        enumerate();
        new_chapter();
    }

    // What happens the first time that the version is asked for.
    Lines of_the_first_time() {
        Lines seen = lines(all_of(TRACE | WINDOWS).levels({4, 8, 9}));
        auto begin = std::find(seen.begin(), seen.end(), "[8] os_recognition");
        auto end = std::find_if(begin, seen.end(),
                                [](const std::string& line) { return matches("[4] <*>OS_VERSION_XP <*>", line); });
        return {begin, end};
    }
};

struct Version {
    DWORD major, minor, platform;
    const char* text;  // null = nothing is traced
    int result;
};

std::ostream& operator<<(std::ostream& out, const Version& one) {
    return out << one.major << "." << one.minor
               << (one.platform == VER_PLATFORM_WIN32_NT ? "" : " of another platform");
}

class VersionOfWindows : public VersionCheck, public testing::WithParamInterface<Version> {};

}  // namespace

TEST_P(VersionOfWindows, IsRecognised) {
    windows.version = {GetParam().major, GetParam().minor, GetParam().platform};
    initialise();
    Lines expected = {"[8] os_recognition", "GetVersionExW(284 bytes)"};
    if (GetParam().text) expected.push_back(std::string("[4] ") + GetParam().text);
    expected.push_back(text("[9] os_recognition(%d)", GetParam().result));
    EXPECT_EQ(of_the_first_time(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    EachOne, VersionOfWindows,
    testing::Values(Version{4, 10, 1, nullptr, -1}, Version{6, 1, 1, nullptr, -1},
                    Version{3, 51, 2, "Microsoft Windows NT ", -1}, Version{4, 0, 2, "Microsoft Windows NT ", -1},
                    Version{5, 0, 2, "Microsoft Windows 2000 ", 2}, Version{5, 1, 2, "Microsoft Windows XP ", 3},
                    Version{5, 2, 2, "Microsoft Windows NET SERVER ", 4}, Version{5, 3, 2, "Future Version ", 5},
                    Version{6, 0, 2, "Future Version ", 5}, Version{6, 1, 2, "Future Version ", 5},
                    Version{10, 0, 2, "Future Version ", 5}));

TEST_F(VersionCheck, AsksAgainWithTheBasicRecord) {
    windows.version.failures = 1;
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[8] os_recognition",       "GetVersionExW(284 bytes)", "[4] Trying...GetVersionEx(2)",
        "GetVersionExW(276 bytes)", "[4] Future Version ",      "[9] os_recognition(5)",
    };
    EXPECT_EQ(of_the_first_time(), expected);
}

TEST_F(VersionCheck, GivesUpAfterTheSecondFailureWithoutAnExitTrace) {
    windows.version.failures = 2;
    EXPECT_EQ(initialise(), 0);
    EXPECT_EQ(of_the_first_time(), (Lines{"[8] os_recognition", "GetVersionExW(284 bytes)",
                                          "[4] Trying...GetVersionEx(2)", "GetVersionExW(276 bytes)"}));
    EXPECT_TRUE(holds(traces(), "[4] not OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE"));
}
