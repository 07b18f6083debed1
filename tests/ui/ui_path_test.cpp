// Where the user-interface module is: the path that TSPI_providerUIIdentify writes into TAPI's 260 characters.
#include <algorithm>

#include "ui_fixture.h"

using namespace harness;

namespace {

constexpr size_t kLongest = 259;  // characters of a path, without its end
const std::wstring kAppended = L"\\system32\\qorvtsp.tsp";

// TAPI's buffer with guards behind it; every character is rubbish at first.
struct Buffer {
    static constexpr wchar_t kRubbish = 0xCCCC;
    wchar_t path[260];
    wchar_t guards[64];

    Buffer() {
        std::fill(std::begin(path), std::end(path), kRubbish);
        std::fill(std::begin(guards), std::end(guards), kRubbish);
    }
    std::wstring text() const { return {path, std::find(path, path + 260, L'\0')}; }
    bool ends_within() const { return std::count(path, path + 260, L'\0') > 0; }
    bool guards_are_untouched() const {
        return std::all_of(std::begin(guards), std::end(guards), [](wchar_t one) { return one == kRubbish; });
    }
};

class UiPath : public UiFixture {
  protected:
    // The path for this folder of Windows, after the checks that hold for every path.
    std::wstring path_for(const std::optional<std::wstring>& windir) {
        windows.windir = windir;
        new_chapter();
        Buffer buffer;
        EXPECT_EQ(tsp.TSPI_providerUIIdentify(buffer.path), 0);
        EXPECT_TRUE(buffer.ends_within());
        EXPECT_TRUE(buffer.guards_are_untouched());
        const Lines expected = {
            "DornInitialize()",
            "[14] TSPI_providerUIIdentify",
            "GetEnvironmentVariableW(\"windir\", 260)",
            "[4] TSPI_providerUIIdentify lpszUIDLLName: " + narrow(buffer.text().c_str()),
            "[15] TSPI_providerUIIdentify(0) Good",
            "DornShutdown()",
        };
        EXPECT_TRUE(reads(everything(), expected));
        return buffer.text();
    }
    static std::wstring folder(size_t length) { return L"C:\\" + std::wstring(length - 3, L'w'); }
};

}  // namespace

TEST_F(UiPath, LiesInTheSystemFolderOfWindows) {
    EXPECT_EQ(path_for(L"C:\\windows"), L"C:\\windows\\system32\\qorvtsp.tsp");
    EXPECT_EQ(path_for(L"D:\\WinNT"), L"D:\\WinNT\\system32\\qorvtsp.tsp");
}

TEST_F(UiPath, GetsItsBackslashAlsoBehindOneThatIsThere) {
    EXPECT_EQ(path_for(L"C:\\windows\\"), L"C:\\windows\\\\system32\\qorvtsp.tsp");
}

TEST_F(UiPath, IsJustTheAppendedPartsWhenThereIsNoFolderOfWindows) {
    EXPECT_EQ(path_for(std::nullopt), kAppended);
}

TEST_F(UiPath, IsJustTheAppendedPartsWhenTheFolderIsAnEmptyText) {
    EXPECT_EQ(path_for(L""), kAppended);
}

TEST_F(UiPath, MayFillTheBufferExactly) {
    const std::wstring windir = folder(kLongest - kAppended.size());
    EXPECT_EQ(path_for(windir), windir + kAppended);
    EXPECT_EQ(path_for(windir).size(), kLongest);
}

TEST_F(UiPath, LosesTheCharactersThatDoNotFit) {
    for (size_t lost : {size_t{1}, size_t{10}, size_t{11}, size_t{12}, kAppended.size() - 1}) {
        const std::wstring windir = folder(kLongest - kAppended.size() + lost);
        EXPECT_EQ(path_for(windir), windir + kAppended.substr(0, kAppended.size() - lost)) << lost;
    }
}

TEST_F(UiPath, IsTheBareFolderWhenThatFillsTheBuffer) {
    EXPECT_EQ(path_for(folder(258)), folder(258) + L"\\");
    EXPECT_EQ(path_for(folder(259)), folder(259));
}

// Windows does not tell such a value in a buffer of this size.
TEST_F(UiPath, IsJustTheAppendedPartsWhenTheFolderDoesNotFit) {
    for (size_t length : {260, 261, 1000, 32000}) EXPECT_EQ(path_for(folder(length)), kAppended) << length;
}

TEST_F(UiPath, OverwritesThePathThatIsThere) {
    Buffer buffer;
    std::fill_n(buffer.path, 259, L'x');
    buffer.path[259] = L'\0';
    EXPECT_EQ(tsp.TSPI_providerUIIdentify(buffer.path), 0);
    EXPECT_EQ(buffer.text(), L"C:\\windows" + kAppended);
}
