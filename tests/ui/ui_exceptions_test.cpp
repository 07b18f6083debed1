// What the installation and configuration functions make of exceptions and faults.
#include "ui_fixture.h"

using namespace harness;

namespace {

class UiExceptions : public UiFixture {
  protected:
    // A call of each function, under its name.
    using Calls = std::vector<std::pair<std::string, std::function<LONG()>>>;
    Calls all_functions() {
        return {
            {"TSPI_providerInstall", [this] { return tsp.TSPI_providerInstall(kOwner, kProviderId); }},
            {"TSPI_providerRemove", [this] { return tsp.TSPI_providerRemove(kOwner, kProviderId); }},
            {"TSPI_providerConfig", [this] { return tsp.TSPI_providerConfig(kOwner, kProviderId); }},
            {"TSPI_providerUIIdentify", [this] { return tsp.TSPI_providerUIIdentify(path); }},
            {"TSPI_providerGenericDialogData", [this] { return dialog_data(&id); }},
            {"TUISPI_providerInstall", [this] { return install(); }},
            {"TUISPI_providerRemove",
             [this] { return tsp.TUISPI_providerRemove(unused_callback, kOwner, kProviderId); }},
            {"TUISPI_providerConfig",
             [this] { return tsp.TUISPI_providerConfig(unused_callback, kOwner, kProviderId); }},
            {"TUISPI_lineConfigDialog", [this] { return configure_line(); }},
        };
    }
    LONG dialog_data(void* parameters) { return tsp.TSPI_providerGenericDialogData(0, 0, parameters, sizeof(DWORD)); }

    // The call ends with the exception's result, and these are its traces.
    void expect_exception(const std::string& function, const std::function<LONG()>& call, const Lines& expected) {
        new_chapter();
        EXPECT_TRUE(reports_an_exception(function, call));
        EXPECT_TRUE(reads(traces().all_levels(), expected));
    }
    static std::string exception_in(const std::string& function) { return "[1] " + function + ": Exception"; }

    // The provider still does its work.
    void expect_alive() {
        windows.property_sheet = [](HWND) { return 0; };
        EXPECT_EQ(configure_line(), 0);
        EXPECT_EQ(install(), 0);
    }

    wchar_t path[260] = L"";
    DWORD id = 0;
};

// A page that nobody may read, or nobody may write.
struct Page {
    explicit Page(DWORD protection) : start(VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, protection)) {}
    ~Page() { VirtualFree(start, 0, MEM_RELEASE); }
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    void* start;
};

const Lines kSheetBegun = {"[12] TUISPI_lineConfigDialog", "[8] display_prop_sheet"};
const Lines kInstallationBegun = {"[12] TUISPI_providerInstall", "[8] ProviderInstall"};

}  // namespace

// ---- while the library opens and closes ---------------------------------------------------------------------------

TEST_F(UiExceptions, AreCaughtWhileTheLibraryOpens) {
    driver.on.DornInitialize = []() -> int { throw 1; };
    for (const auto& [name, call] : all_functions()) {
        new_chapter();
        EXPECT_TRUE(reports_an_exception(name, call));
        EXPECT_TRUE(reads(story().all_levels(), {"DornInitialize()", exception_in(name)}));
    }
}

TEST_F(UiExceptions, OfTheHardwareAreCaughtWhileTheLibraryOpens) {
    driver.on.DornInitialize = [] { return cause_access_violation(), 0; };
    for (const auto& [name, call] : all_functions()) {
        new_chapter();
        EXPECT_TRUE(reports_an_exception(name, call));
        EXPECT_TRUE(reads(story().all_levels(), {"DornInitialize()", exception_in(name)}));
    }
}

TEST_F(UiExceptions, AreCaughtWhileTheLibraryCloses) {
    for (const auto& [name, call] : all_functions()) {
        driver.on.DornShutdown = [] { throw 1; };
        EXPECT_TRUE(reports_an_exception(name, call));
        EXPECT_TRUE(reads_in_order(story(), {"[<*>] " + name + "(0) Good", "DornShutdown()", exception_in(name)}));
        driver.on.DornShutdown = ScriptedDriver::usual().DornShutdown;
        EXPECT_EQ(tsp.TSPI_providerRemove(kOwner, kProviderId), 0);
        EXPECT_EQ(driver.initialisations, 0) << name;
    }
}

// ---- bad pointers -------------------------------------------------------------------------------------------------

TEST_F(UiExceptions, OfABadPlaceForTheDialogDataAreCaught) {
    const Page unreadable(PAGE_NOACCESS), unwritable(PAGE_READONLY);
    const Lines expected = {
        "[14] TSPI_providerGenericDialogData: dwObjectID(0), dwObjectType(0), dwSize(4)",
        exception_in("TSPI_providerGenericDialogData"),
    };
    for (void* bad : {static_cast<void*>(nullptr), reinterpret_cast<void*>(0x10), unreadable.start, unwritable.start})
        expect_exception(
            "TSPI_providerGenericDialogData", [&] { return dialog_data(bad); }, expected);
    EXPECT_EQ(dialog_data(&id), 0);
    expect_alive();
}

TEST_F(UiExceptions, OfABadPlaceForThePathAreCaught) {
    const Page unreadable(PAGE_NOACCESS), unwritable(PAGE_READONLY);
    const Lines expected = {"[14] TSPI_providerUIIdentify", exception_in("TSPI_providerUIIdentify")};
    for (void* bad : {static_cast<void*>(nullptr), unreadable.start, unwritable.start})
        expect_exception(
            "TSPI_providerUIIdentify", [&] { return tsp.TSPI_providerUIIdentify(static_cast<LPWSTR>(bad)); }, expected);
    EXPECT_EQ(tsp.TSPI_providerUIIdentify(path), 0);
    expect_alive();
}

// ---- in the property sheet ----------------------------------------------------------------------------------------

TEST_F(UiExceptions, OfThePropertySheetAreCaught) {
    windows.property_sheet = [](HWND) -> int32_t { throw 1; };
    expect_exception(
        "TUISPI_lineConfigDialog", [this] { return configure_line(); },
        joined({kSheetBegun, {exception_in("TUISPI_lineConfigDialog")}}));
    expect_alive();
}

TEST_F(UiExceptions, OfTheHardwareInThePropertySheetAreCaught) {
    windows.property_sheet = [](HWND) { return cause_access_violation(), 0; };
    expect_exception(
        "TUISPI_lineConfigDialog", [this] { return configure_line(); },
        joined({kSheetBegun, {exception_in("TUISPI_lineConfigDialog")}}));
    forget_what_is_held();
    expect_alive();
}

TEST_F(UiExceptions, OfThePropertySheetLeaveARunningProviderAlone) {
    start_provider();
    open_waiting_line(0);
    windows.property_sheet = [](HWND) { return cause_access_violation(), 0; };
    expect_exception(
        "TUISPI_lineConfigDialog", [this] { return configure_line(); },
        joined({kSheetBegun, {exception_in("TUISPI_lineConfigDialog")}}));
    forget_what_is_held();
    EXPECT_EQ(driver.initialisations, 1);
    offer_call(0);
    EXPECT_TRUE(holds(events(), "LINE_NEWCALL(<*>"));
}

// ---- in TAPI's list and in Windows --------------------------------------------------------------------------------

TEST_F(UiExceptions, OfTheListOfProvidersAreCaught) {
    windows.providers.on_call = [] { throw 1; };
    expect_exception(
        "TUISPI_providerInstall", [this] { return install(); },
        joined({kInstallationBegun, {exception_in("TUISPI_providerInstall")}}));
    windows.providers.on_call = nullptr;
    expect_alive();
}

TEST_F(UiExceptions, OfTheHardwareInTheListOfProvidersAreCaught) {
    windows.providers.on_call = [] { cause_access_violation(); };
    expect_exception(
        "TUISPI_providerInstall", [this] { return install(); },
        joined({kInstallationBegun, {exception_in("TUISPI_providerInstall")}}));
    forget_what_is_held();
    windows.providers.on_call = nullptr;
    expect_alive();
}

TEST_F(UiExceptions, OfTheEnvironmentAreCaught) {
    const auto identify = [this] { return tsp.TSPI_providerUIIdentify(path); };
    const Lines expected = {"[14] TSPI_providerUIIdentify", exception_in("TSPI_providerUIIdentify")};
    windows.on_windir = [] { throw 1; };
    expect_exception("TSPI_providerUIIdentify", identify, expected);
    windows.on_windir = [] { cause_access_violation(); };
    expect_exception("TSPI_providerUIIdentify", identify, expected);
    windows.on_windir = nullptr;
    EXPECT_EQ(identify(), 0);
}

TEST_F(UiExceptions, OfAnAllocationAreCaught) {
    windows.memory.fails = [](const Allocation& one) -> bool {
        if (std::string(one.function) == "LocalAlloc") throw 1;
        return false;
    };
    expect_exception(
        "TUISPI_providerInstall", [this] { return install(); },
        joined({kInstallationBegun, {exception_in("TUISPI_providerInstall")}}));
    windows.memory.fails = nullptr;
    expect_alive();
}

// ---- the library after an exception -------------------------------------------------------------------------------

TEST_F(UiExceptions, LeaveTheLibraryOpenUntilOneClosesItInAnyCase) {
    EXPECT_TRUE(reports_an_exception("TSPI_providerGenericDialogData", [this] { return dialog_data(nullptr); }));
    EXPECT_EQ(driver.initialisations, 1);
    EXPECT_EQ(tsp.TSPI_providerConfig(kOwner, kProviderId), 0);
    EXPECT_EQ(driver.initialisations, 1);
    EXPECT_EQ(tsp.TSPI_providerInstall(kOwner, kProviderId), 0);
    EXPECT_EQ(driver.initialisations, 0);
    EXPECT_TRUE(reads(driver_calls(), {"DornInitialize()", "DornShutdown()"}));
}
