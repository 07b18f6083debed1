// The configuration dialog of a line is the property sheet of the board's control-panel module.
#include "ui_fixture.h"

using namespace harness;

namespace {

const char* const kGood = "(0) Good";

Lines shown_for(const std::string& owner) {
    return {"LoadLibraryW(\"qorvconf.cpl\")", "GetProcAddress(qorvconf.cpl, \"do_prop_sheet\")",
            "do_prop_sheet(qorvconf.cpl, " + owner + ")", "FreeLibrary(qorvconf.cpl)"};
}

class PropertySheetDialog : public UiFixture {
  protected:
    void SetUp() override {
        UiFixture::SetUp();
        name_pointer(kOwner, "OWNER");
    }
};

}  // namespace

TEST_F(PropertySheetDialog, IsShownByTheControlPanelModuleForTheOwnerWindow) {
    EXPECT_EQ(configure_line(), 0);
    EXPECT_TRUE(reads(everything(), whole_configuration(shown_for("OWNER"), "0", kGood)));
}

TEST_F(PropertySheetDialog, IsShownAgainEachTime) {
    EXPECT_EQ(configure_line(), 0);
    new_chapter();
    EXPECT_EQ(configure_line(), 0);
    EXPECT_TRUE(reads(everything(), whole_configuration(shown_for("OWNER"), "0", kGood)));
}

TEST_F(PropertySheetDialog, GetsTheWholeOfTheWindowHandle) {
    configure_line(kDeviceIdBase, window(0xFEDCBA9880000001));
    EXPECT_TRUE(holds(windows_calls(), "do_prop_sheet(qorvconf.cpl, 0xFEDCBA9880000001)"));
    configure_line(kDeviceIdBase, nullptr);
    EXPECT_TRUE(holds(windows_calls(), "do_prop_sheet(qorvconf.cpl, 0)"));
}

TEST_F(PropertySheetDialog, IsTheSameForEveryLineAndClass) {
    for (DWORD device : {0ul, 1ul, 8ul, 4711ul, 0xFFFFFFFFul}) EXPECT_EQ(configure_line(device), 0) << device;
    for (const wchar_t* device_class : {L"", L"comm/datamodem", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(configure_line(kDeviceIdBase, kOwner, device_class), 0);
    EXPECT_EQ(count(windows_calls(), "do_prop_sheet(qorvconf.cpl, OWNER)"), 8u);
    EXPECT_EQ(count(traces(), "[13] TUISPI_lineConfigDialog(0) Good"), 8u);
}

TEST_F(PropertySheetDialog, DoesNotReadTheClass) {
    EXPECT_EQ(configure_line(kDeviceIdBase, kOwner, reinterpret_cast<const wchar_t*>(0x10)), 0);
}

TEST_F(PropertySheetDialog, IsGoodWithAnyAnswerThatIsNotNegative) {
    for (int32_t answer : {0, 1, 2, 0x7FFFFFFF}) {
        new_chapter();
        windows.property_sheet = [answer](HWND) { return answer; };
        EXPECT_EQ(configure_line(), 0) << answer;
        EXPECT_TRUE(reads(everything(), whole_configuration(shown_for("OWNER"), "0", kGood)));
    }
}

TEST_F(PropertySheetDialog, FailsWithANegativeAnswer) {
    for (int32_t answer : {-1, -2, static_cast<int32_t>(0x80000000)}) {
        new_chapter();
        windows.property_sheet = [answer](HWND) { return answer; };
        EXPECT_EQ(configure_line(), failed(LINEERR_OPERATIONFAILED)) << answer;
        EXPECT_TRUE(reads(everything(), whole_configuration(shown_for("OWNER"), "1", kFailed)));
    }
}

TEST_F(PropertySheetDialog, CannotBeShownWithoutTheModule) {
    windows.modules[L"qorvconf.cpl"].load_error = ERROR_MOD_NOT_FOUND;
    EXPECT_EQ(configure_line(), failed(LINEERR_OPERATIONFAILED));
    const Lines inside = {"LoadLibraryW(\"qorvconf.cpl\") failed", "[4] LoadLibrary(qorvconf.cpl) failed, err=126"};
    EXPECT_TRUE(reads(everything(), whole_configuration(inside, "1", kFailed)));
}

TEST_F(PropertySheetDialog, CannotBeShownByAModuleWithoutTheExport) {
    windows.modules[L"qorvconf.cpl"].export_error = ERROR_PROC_NOT_FOUND;
    EXPECT_EQ(configure_line(), failed(LINEERR_OPERATIONFAILED));
    const Lines inside = {
        "LoadLibraryW(\"qorvconf.cpl\")",
        "GetProcAddress(qorvconf.cpl, \"do_prop_sheet\") failed",
        "[4] GetProcAddr(do_prop_sheet) failed, err=127",
        "FreeLibrary(qorvconf.cpl)",
    };
    EXPECT_TRUE(reads(everything(), whole_configuration(inside, "1", kFailed)));
}

TEST_F(PropertySheetDialog, ShowsTheErrorOfAFailureAsASignedNumber) {
    windows.modules[L"qorvconf.cpl"].load_error = 0xFFFFFFFE;
    configure_line();
    EXPECT_TRUE(holds(traces(), "[4] LoadLibrary(qorvconf.cpl) failed, err=-2"));
    windows.modules[L"qorvconf.cpl"] = {0, 0x80000000};
    configure_line();
    EXPECT_TRUE(holds(traces(), "[4] GetProcAddr(do_prop_sheet) failed, err=-2147483648"));
}

TEST_F(PropertySheetDialog, NeedsNoLineAndLeavesAnOpenOneAlone) {
    start_provider();
    open_waiting_line(0);
    EXPECT_EQ(configure_line(), 0);
    EXPECT_TRUE(reads(story(), {"[12] TUISPI_lineConfigDialog", "[13] TUISPI_lineConfigDialog(0) Good"}));
    EXPECT_EQ(driver.initialisations, 1);
}

TEST_F(PropertySheetDialog, KeepsItsModuleForAsLongAsItIsShown) {
    int loaded_meanwhile = 0;
    windows.property_sheet = [&](HWND) {
        loaded_meanwhile = windows.modules[L"qorvconf.cpl"].loaded;
        return 0;
    };
    EXPECT_EQ(configure_line(), 0);
    EXPECT_EQ(loaded_meanwhile, 1);
}
