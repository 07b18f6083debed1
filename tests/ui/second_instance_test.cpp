// The installation refuses a second instance: TAPI's list of providers is asked for one with the same file name.
#include "ui_fixture.h"

using namespace harness;

namespace {

const char* const kGood = "(0) Good";
const char* const kRefused = "(-2147483562) Failed";
const char* const kNoMemory = "(-2147483580) Failed";

const Lines kFound = {"LoadLibraryW(\"tapi32.dll\")", "GetProcAddress(tapi32.dll, \"lineGetProviderListW\")"};
const Lines kUnload = {"FreeLibrary(tapi32.dll)"};

// The list is asked for in a block of a size, the n-th of the call.
Lines asked(DWORD size, int block) {
    return {text("LocalAlloc(0x40, %lu) -> BLOCK%d", size, block),
            text("lineGetProviderListW(0x20000, %lu bytes)", size)};
}
Lines freed(int block) {
    return {text("LocalFree(BLOCK%d)", block)};
}

// The bytes of a list: its fixed part and, for each file, an entry and the name with its end.
DWORD list_size(const std::vector<std::wstring>& files) {
    DWORD size = 24;
    for (const std::wstring& file : files) size += 12 + 2 * static_cast<DWORD>(file.size() + 1);
    return size;
}

class SecondInstance : public UiFixture {
  protected:
    LONG install_beside(const std::vector<std::wstring>& files) {
        windows.providers.files = files;
        return install();
    }
    // The allocation of this number fails, from 1, of those that LocalAlloc makes.
    static void fail_allocation(int number) {
        windows.memory.fails = [number, made = 0](const Allocation& one) mutable {
            return std::string(one.function) == "LocalAlloc" && ++made == number;
        };
    }
};

}  // namespace

// ---- the comparison -----------------------------------------------------------------------------------------------

TEST_F(SecondInstance, MayBeInstalledWhenThereIsNoProvider) {
    EXPECT_EQ(install_beside({}), 0);
    EXPECT_TRUE(reads(everything(), whole_installation(joined({kFound, asked(24, 1), freed(1), kUnload}), "0", kGood)));
}

TEST_F(SecondInstance, MayBeInstalledBesideOthers) {
    const std::vector<std::wstring> others = {L"unimdm.tsp", L"kmddsp.tsp", L"ndptsp.tsp"};
    EXPECT_EQ(install_beside(others), 0);
    const Lines inside = joined({kFound, asked(24, 1), freed(1), asked(list_size(others), 2), freed(2), kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "0", kGood)));
}

TEST_F(SecondInstance, IsRefusedWhenTheFirstIsThere) {
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    const Lines inside =
        joined({kFound, asked(24, 1), freed(1), asked(list_size({L"qorvtsp.tsp"}), 2), freed(2), kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483562", kRefused)));
}

TEST_F(SecondInstance, IsRefusedInAnyLetterCase) {
    for (const wchar_t* ours : {L"QORVTSP.TSP", L"QorvTsp.tsp", L"qorvtsp.TSP"})
        EXPECT_EQ(install_beside({ours}), failed(LINEERR_NOMULTIPLEINSTANCE)) << narrow(ours);
}

TEST_F(SecondInstance, IsRefusedWhereverTheFirstStandsInTheList) {
    EXPECT_EQ(install_beside({L"qorvtsp.tsp", L"b.tsp", L"c.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    EXPECT_EQ(install_beside({L"unimdm.tsp", L"qorvtsp.tsp", L"c.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    EXPECT_EQ(install_beside({L"a.tsp", L"remotesp.tsp", L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
}

TEST_F(SecondInstance, IsRefusedWhenTheFirstIsRecordedBehindAFolder) {
    for (const wchar_t* ours : {L"dir\\qorvtsp.tsp", L"Dir\\QORVTSP.tsp", L"\\qorvtsp.tsp", L"X:\\qorvtsp.tsp"})
        EXPECT_EQ(install_beside({ours}), failed(LINEERR_NOMULTIPLEINSTANCE)) << narrow(ours);
}

// What counts is the part behind the first backslash.
TEST_F(SecondInstance, IsNotRecognisedBehindMoreThanOneFolder) {
    for (const wchar_t* ours : {L"X:\\dir\\qorvtsp.tsp", L"a\\b\\qorvtsp.tsp", L"\\\\qorvtsp.tsp",
                                L"C:\\windows\\system32\\qorvtsp.tsp", L"qorvtsp.tsp\\x"})
        EXPECT_EQ(install_beside({ours}), 0) << narrow(ours);
}

TEST_F(SecondInstance, IsNotRecognisedBehindASlash) {
    EXPECT_EQ(install_beside({L"dir/qorvtsp.tsp"}), 0);
}

TEST_F(SecondInstance, IsNotTakenForAnotherWithASimilarName) {
    for (const wchar_t* other : {L"myqorvtsp.tsp", L"qorvtsp.tsp2", L"qorvtsp", L"qorvtsp.ts", L"qorvtsp.tsp ",
                                 L"dir\\myqorvtsp.tsp", L"dir\\qorvtsp.tsp2", L"qorvtsp.dll", L""})
        EXPECT_EQ(install_beside({other}), 0) << narrow(other);
}

TEST_F(SecondInstance, IsFoundBehindOneThatIsNotRecognised) {
    EXPECT_EQ(install_beside({L"X:\\dir\\qorvtsp.tsp", L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
}

TEST_F(SecondInstance, IsLookedForAnewEachTime) {
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    EXPECT_EQ(install_beside({}), 0);
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
}

TEST_F(SecondInstance, IsRefusedAlsoWhereTheProviderRuns) {
    start_provider();
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    EXPECT_TRUE(reads(story(), {"[12] TUISPI_providerInstall", "[13] TUISPI_providerInstall(-2147483562) Failed"}));
    EXPECT_EQ(driver.initialisations, 1);
}

// ---- the list's size ----------------------------------------------------------------------------------------------

TEST_F(SecondInstance, IsLookedForInAListThatGrowsWhileItIsAskedFor) {
    windows.providers.growth = {0, 7, 4000};
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    const DWORD size = list_size({L"qorvtsp.tsp"});
    const Lines inside = joined({kFound, asked(24, 1), freed(1), asked(size, 2), freed(2), asked(size + 7, 3), freed(3),
                                 asked(size + 4000, 4), freed(4), kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483562", kRefused)));
}

TEST_F(SecondInstance, IsLookedForInAListThatShrinksWhileItIsAskedFor) {
    windows.providers.growth = {1000};
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMULTIPLEINSTANCE));
    const Lines inside =
        joined({kFound, asked(24, 1), freed(1), asked(list_size({L"qorvtsp.tsp"}) + 1000, 2), freed(2), kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483562", kRefused)));
}

TEST_F(SecondInstance, IsLookedForInALongList) {
    std::vector<std::wstring> files(500, L"another_provider_with_a_long_name.tsp");
    EXPECT_EQ(install_beside(files), 0);
    files.push_back(L"dir\\qorvtsp.tsp");
    EXPECT_EQ(install_beside(files), failed(LINEERR_NOMULTIPLEINSTANCE));
}

// ---- failures -----------------------------------------------------------------------------------------------------

TEST_F(SecondInstance, CannotBeLookedForWithoutTapi) {
    windows.modules[L"tapi32.dll"].load_error = ERROR_MOD_NOT_FOUND;
    EXPECT_EQ(install(), failed(LINEERR_OPERATIONFAILED));
    const Lines inside = {"LoadLibraryW(\"tapi32.dll\") failed", "[4] LoadLibrary(tapi32.dll) failed, err=7E"};
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483576", kFailed)));
}

TEST_F(SecondInstance, CannotBeLookedForWithoutTheListsFunction) {
    windows.modules[L"tapi32.dll"].export_error = ERROR_PROC_NOT_FOUND;
    EXPECT_EQ(install(), failed(LINEERR_OPERATIONFAILED));
    const Lines inside = {
        kFound[0],
        kFound[1] + " failed",
        "[4] GetProcAddr(lineGetProviderList) failed, err=7F",
        kUnload[0],
    };
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483576", kFailed)));
}

TEST_F(SecondInstance, ShowsTheErrorOfAFailureInCapitalHexDigits) {
    windows.modules[L"tapi32.dll"].load_error = 0xFEDCBA98;
    install();
    EXPECT_TRUE(holds(traces(), "[4] LoadLibrary(tapi32.dll) failed, err=FEDCBA98"));
    windows.modules[L"tapi32.dll"] = {0, 0xABCDE};
    install();
    EXPECT_TRUE(holds(traces(), "[4] GetProcAddr(lineGetProviderList) failed, err=ABCDE"));
}

TEST_F(SecondInstance, HandsOnWhatTheListsFunctionFailsWith) {
    const struct {
        LONG result;
        const char* shown;
    } failures[] = {
        {failed(LINEERR_NOMEM), "-2147483580"},
        {failed(LINEERR_INCOMPATIBLEAPIVERSION), "-2147483636"},
        {-1, "-1"},
        {17, "17"},
    };
    windows.providers.files = {L"qorvtsp.tsp"};
    for (const auto& failure : failures) {
        new_chapter();
        windows.memory.local_blocks_given = 0;
        windows.providers.failures = {failure.result};
        EXPECT_EQ(install(), failure.result);
        EXPECT_TRUE(reads(everything(), whole_installation(joined({kFound, asked(24, 1), freed(1), kUnload}),
                                                           failure.shown, text("(%s) Failed", failure.shown))));
    }
}

TEST_F(SecondInstance, HandsOnAFailureOfALaterQuestionToo) {
    windows.providers.failures = {0, failed(LINEERR_OPERATIONFAILED)};
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_OPERATIONFAILED));
    const Lines inside =
        joined({kFound, asked(24, 1), freed(1), asked(list_size({L"qorvtsp.tsp"}), 2), freed(2), kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483576", kFailed)));
}

TEST_F(SecondInstance, NeedsMemoryForTheFirstQuestion) {
    fail_allocation(1);
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMEM));
    const Lines inside = joined({kFound, {"LocalAlloc(0x40, 24) failed"}, kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483580", kNoMemory)));
}

TEST_F(SecondInstance, NeedsMemoryForTheWholeList) {
    fail_allocation(2);
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMEM));
    const Lines inside = joined(
        {kFound, asked(24, 1), freed(1), {text("LocalAlloc(0x40, %lu) failed", list_size({L"qorvtsp.tsp"}))}, kUnload});
    EXPECT_TRUE(reads(everything(), whole_installation(inside, "-2147483580", kNoMemory)));
}

TEST_F(SecondInstance, NeedsMemoryAgainForAListThatHasGrown) {
    windows.providers.growth = {0, 8};
    fail_allocation(3);
    EXPECT_EQ(install_beside({L"qorvtsp.tsp"}), failed(LINEERR_NOMEM));
    EXPECT_TRUE(reads_in_order(windows_calls(), {"LocalFree(BLOCK2)", "LocalAlloc(0x40, <*>) failed", kUnload[0]}));
}
