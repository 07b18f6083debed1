// The path of the call configuration file, from the registry to the board.
#include "harness.h"

using namespace harness;

namespace {

class ResetConfiguration : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
    }

    // The reset that opening LINE1 makes when the registry has this value.
    void open_with(const std::wstring& path) {
        windows.registry.set(kHostParameters, L"kxcall", path);
        open_line(0);
    }

    // The same with a value that has no end.
    void open_without_an_end(const std::wstring& value) {
        windows.registry.set(kHostParameters, L"kxcall", value);
        windows.registry.key(kHostParameters).values[L"kxcall"].resize(value.size() * sizeof(wchar_t));
        open_line(0);
    }

    static void expect_path(const std::string& path) {
        EXPECT_TRUE(reads(driver_calls().only({"DornLineReset(<*>"}), {"DornLineReset(CHAN4, \"" + path + "\")"}));
        EXPECT_TRUE(holds(traces(), "[4] mmbyte using kxcall<" + path + ">"));
        EXPECT_EQ(windows.registry.open_keys, 0);
    }
};

}  // namespace

TEST_F(ResetConfiguration, IsReadAnewForEveryReset) {
    open_with(L"C:\\first.cfg");
    expect_path("C:\\first.cfg");
    EXPECT_EQ(close_line(0), 0);
    new_chapter();
    open_with(L"C:\\second.cfg");
    expect_path("C:\\second.cfg");
}

TEST_F(ResetConfiguration, MayBeAnEmptyPath) {
    open_with(L"");
    expect_path("");
}

TEST_F(ResetConfiguration, MayBeAPathOf129Characters) {
    open_with(std::wstring(129, L'p'));
    expect_path(std::string(129, 'p'));
}

TEST_F(ResetConfiguration, IsEmptyWhenThePathIsTooLong) {
    open_with(std::wstring(130, L'p'));
    expect_path("");
    EXPECT_TRUE(holds(traces().levels({9}), "[9] get_value_sz(1)"));
}

TEST_F(ResetConfiguration, NeedsNoEndInTheRegistry) {
    open_without_an_end(L"C:\\first.cfg");
    expect_path("C:\\first.cfg");
}

TEST_F(ResetConfiguration, EndsWithTheBufferThatItIsReadInto) {
    open_without_an_end(std::wstring(130, L'p'));
    expect_path(std::string(129, 'p'));
}

TEST_F(ResetConfiguration, TakesPercentSignsAsTheyAre) {
    open_with(L"C:\\100%s\\%d.cfg");
    expect_path("C:\\100%s\\%d.cfg");
}

TEST_F(ResetConfiguration, IsConvertedToTheMultibyteCodePage) {
    open_with(L"C:\\b\u00F6ards\\kxcall.cfg");
    expect_path(
        "C:\\b\xF6"
        "ards\\kxcall.cfg");
}

TEST_F(ResetConfiguration, MayHaveCharactersThatTheCodePageHasNot) {
    open_with(L"C:\\\u96FB\u8A71.cfg");
    EXPECT_EQ(count(driver_calls(), "DornLineReset(CHAN4, <*>"), 1u);
}
