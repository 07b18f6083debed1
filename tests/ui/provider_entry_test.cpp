// What the installation and configuration functions have in common: their traces, and the bracket around the driver
// library, in a process that has initialised the provider and in one that has not.
#include <cstring>

#include "ui_fixture.h"

using namespace harness;

namespace {

// One of the functions, called so that it succeeds.
struct Function {
    std::string name;
    int entry_level;
    std::string entry;        // its entry trace
    bool closes_always;       // also the bracket that TSPI_providerInit has left open
    std::string inside = "";  // the internal function that it consists of
    std::function<LONG(const ProviderExports&)> call;

    // Everything that it traces, the internal function's success included.
    Lines traces() const {
        Lines expected = {text("[%d] ", entry_level) + entry};
        if (!inside.empty()) expected.push_back("[8] " + inside);
        if (!inside.empty()) expected.push_back("[9] " + inside + "(0)");
        expected.push_back(text("[%d] ", entry_level + 1) + name + "(0) Good");
        return expected;
    }
};

constexpr int kTuispi = 12, kTspi = 14;
constexpr bool kClosesAlways = true, kClosesItsOwn = false;

const std::vector<Function>& functions() {
    static wchar_t path[260];
    static DWORD id = 0;
    const std::string arguments = ": hwndOwner(4660), dwPermanentProviderID(3)";
    static const std::vector<Function> all = {
        {"TSPI_providerInstall", kTspi, "TSPI_providerInstall" + arguments, kClosesAlways, "",
         [](auto& tsp) { return tsp.TSPI_providerInstall(kOwner, kProviderId); }},
        {"TSPI_providerRemove", kTspi, "TSPI_providerRemove" + arguments, kClosesAlways, "",
         [](auto& tsp) { return tsp.TSPI_providerRemove(kOwner, kProviderId); }},
        {"TSPI_providerConfig", kTspi, "TSPI_providerConfig" + arguments, kClosesItsOwn, "",
         [](auto& tsp) { return tsp.TSPI_providerConfig(kOwner, kProviderId); }},
        {"TSPI_providerUIIdentify", kTspi, "TSPI_providerUIIdentify", kClosesItsOwn, "",
         [](auto& tsp) { return tsp.TSPI_providerUIIdentify(path); }},
        {"TSPI_providerGenericDialogData", kTspi,
         "TSPI_providerGenericDialogData: dwObjectID(5), dwObjectType(2), dwSize(4)", kClosesItsOwn, "",
         [](auto& tsp) { return tsp.TSPI_providerGenericDialogData(5, 2, &id, sizeof(id)); }},
        {"TUISPI_providerInstall", kTuispi, "TUISPI_providerInstall", kClosesItsOwn, "ProviderInstall",
         [](auto& tsp) { return tsp.TUISPI_providerInstall(unused_callback, kOwner, kProviderId); }},
        {"TUISPI_providerRemove", kTuispi, "TUISPI_providerRemove", kClosesAlways, "",
         [](auto& tsp) { return tsp.TUISPI_providerRemove(unused_callback, kOwner, kProviderId); }},
        {"TUISPI_providerConfig", kTuispi, "TUISPI_providerConfig", kClosesItsOwn, "",
         [](auto& tsp) { return tsp.TUISPI_providerConfig(unused_callback, kOwner, kProviderId); }},
        {"TUISPI_lineConfigDialog", kTuispi, "TUISPI_lineConfigDialog", kClosesItsOwn, "display_prop_sheet",
         [](auto& tsp) { return tsp.TUISPI_lineConfigDialog(unused_callback, kDeviceIdBase, kOwner, L"tapi/line"); }},
    };
    return all;
}

class ProviderEntry : public UiFixture {
  protected:
    LONG run(const Function& function) {
        new_chapter();
        return function.call(tsp);
    }
};

const char* const kPathTrace = "[4] TSPI_providerUIIdentify lpszUIDLLName: <*>";

// The traces but for the path, which has tests of its own, and the opening and closing of the library.
View frame() {
    return story().all_levels().without({kPathTrace});
}

// How many slots of thread-local storage the process has left.
size_t free_thread_storage() {
    std::vector<DWORD> taken;
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc()) taken.push_back(slot);
    for (DWORD slot : taken) TlsFree(slot);
    return taken.size();
}

// Everything that a function does by itself, from opening the library to closing it.
Lines bracketed(const Function& function) {
    return joined({{"DornInitialize()"}, function.traces(), {"DornShutdown()"}});
}

}  // namespace

// ---- the bracket --------------------------------------------------------------------------------------------------

TEST_F(ProviderEntry, TracesBetweenOpeningAndClosingTheLibrary) {
    for (const Function& function : functions()) {
        EXPECT_EQ(run(function), 0) << function.name;
        EXPECT_TRUE(reads(frame(), bracketed(function)));
        EXPECT_EQ(driver.initialisations, 0);
    }
}

TEST_F(ProviderEntry, OpensAndClosesTheLibraryEachTimeAnew) {
    for (const Function& function : functions()) {
        run(function);
        EXPECT_EQ(run(function), 0) << function.name;
        EXPECT_TRUE(reads(frame(), bracketed(function)));
        EXPECT_EQ(driver.initialisations, 0);
    }
}

TEST_F(ProviderEntry, SetsTheTraceUpAnewInEveryBracketButTheLogOnlyOnce) {
    const View set_up = all_of(DRIVER | DRIVER_LOG).only({"Dorn<*>", "QorvLogInit(<*>", "QorvLogFilterNew(<*>"});
    run(functions()[0]);
    EXPECT_TRUE(reads(set_up, {"DornInitialize()", "QorvLogInit(<*>", "QorvLogFilterNew(<*>", "DornShutdown()"}));
    for (const Function& function : functions()) {
        run(function);
        EXPECT_TRUE(reads(set_up, {"DornInitialize()", "QorvLogFilterNew(<*>", "DornShutdown()"})) << function.name;
    }
}

// A process has about a thousand of these, for all its modules; who asks often enough must not use them up.
TEST_F(ProviderEntry, GivesBackTheThreadStorageThatTheLibraryHasUsed) {
    for (const Function& function : functions()) run(function);
    const size_t free_before = free_thread_storage();
    for (const Function& function : functions()) run(function);
    EXPECT_EQ(free_thread_storage(), free_before);
}

TEST_F(ProviderEntry, ClosesTheLibraryAlsoWhenNobodyWantsItsTraces) {
    driver.uninteresting_levels = {4, 8, 9, 12, 13, 14, 15};
    for (const Function& function : functions()) {
        EXPECT_EQ(run(function), 0) << function.name;
        EXPECT_TRUE(reads(frame(), {"DornInitialize()", "DornShutdown()"}));
    }
}

TEST_F(ProviderEntry, LeavesTheLibraryOpenThatTheInitialisationHasOpened) {
    start_provider();
    for (const Function& function : functions()) {
        if (function.closes_always) continue;
        for (int time = 0; time < 2; ++time) {
            EXPECT_EQ(run(function), 0) << function.name;
            EXPECT_TRUE(reads(frame(), function.traces()));
            EXPECT_EQ(driver.initialisations, 1);
        }
    }
}

TEST_F(ProviderEntry, ClosesTheLibraryOfTheInitialisationOnInstallationAndRemoval) {
    for (const Function& function : functions()) {
        if (!function.closes_always) continue;
        start_provider();
        EXPECT_EQ(run(function), 0) << function.name;
        EXPECT_TRUE(reads(frame(), joined({function.traces(), {"DornShutdown()"}})));
        EXPECT_EQ(driver.initialisations, 0);

        EXPECT_EQ(run(function), 0) << function.name;
        EXPECT_TRUE(reads(frame(), bracketed(function)));
        EXPECT_EQ(shut_down(), 0);
    }
}

TEST_F(ProviderEntry, LeavesTheShutdownALibraryOfItsOwnAfterARemoval) {
    start_provider();
    EXPECT_EQ(tsp.TSPI_providerRemove(kOwner, kProviderId), 0);
    new_chapter();
    EXPECT_EQ(shut_down(), 0);
    EXPECT_TRUE(reads(driver_calls(), {"DornInitialize()", "DornShutdown()"}));
    EXPECT_EQ(driver.initialisations, 0);
}

TEST_F(ProviderEntry, LeavesALineOpenDuringARemovalOfTheLibrary) {
    start_provider();
    open_waiting_line(0);
    EXPECT_EQ(tsp.TUISPI_providerRemove(unused_callback, kOwner, kProviderId), 0);
    EXPECT_TRUE(reads(driver_calls(), {"DornShutdown()"}));
    EXPECT_EQ(driver.attached(), 1u);
}

// ---- the entry traces ---------------------------------------------------------------------------------------------

TEST_F(ProviderEntry, ShowsAWindowHandleAsTheSignedNumberOfItsLow32Bits) {
    const struct {
        uint64_t handle;
        const char* shown;
    } windows_shown[] = {
        {0, "0"},
        {0x10042, "65602"},
        {0x7FFFFFFF, "2147483647"},
        {0x80000000, "-2147483648"},
        {0xFFFFFFFFFFFFFFFF, "-1"},
        {0x1FFFFFFFE, "-2"},
        {0xFFFFFFFF00000005, "5"},
    };
    for (const auto& one : windows_shown) {
        new_chapter();
        EXPECT_EQ(tsp.TSPI_providerInstall(window(one.handle), 3), 0);
        EXPECT_EQ(tsp.TSPI_providerRemove(window(one.handle), 3), 0);
        EXPECT_EQ(tsp.TSPI_providerConfig(window(one.handle), 3), 0);
        const std::string arguments = text(": hwndOwner(%s), dwPermanentProviderID(3)", one.shown);
        EXPECT_TRUE(reads(traces().levels({14}),
                          {"[14] TSPI_providerInstall" + arguments, "[14] TSPI_providerRemove" + arguments,
                           "[14] TSPI_providerConfig" + arguments}));
    }
}

TEST_F(ProviderEntry, ShowsTheProviderIdAsASignedNumber) {
    tsp.TSPI_providerInstall(nullptr, 0xFFFFFFFF);
    tsp.TSPI_providerRemove(nullptr, 0x80000000);
    tsp.TSPI_providerConfig(nullptr, 0);
    EXPECT_TRUE(
        reads(traces().levels({14}), {"[14] TSPI_providerInstall: hwndOwner(0), dwPermanentProviderID(-1)",
                                      "[14] TSPI_providerRemove: hwndOwner(0), dwPermanentProviderID(-2147483648)",
                                      "[14] TSPI_providerConfig: hwndOwner(0), dwPermanentProviderID(0)"}));
}

TEST_F(ProviderEntry, ShowsTheArgumentsOfDialogDataAsSignedNumbers) {
    DWORD id = 0;
    EXPECT_EQ(tsp.TSPI_providerGenericDialogData(0x1FFFFFFFE, 0x80000001, &id, 0xFFFFFFFF), 0);
    EXPECT_TRUE(
        reads(traces(), {"[14] TSPI_providerGenericDialogData: dwObjectID(-2), dwObjectType(-2147483647), dwSize(-1)",
                         "[15] TSPI_providerGenericDialogData(0) Good"}));
}

// ---- dialog data: the provider's ID -------------------------------------------------------------------------------

namespace {

// 32 bits with guards on both sides.
struct Guarded {
    uint8_t before[8];
    DWORD value;
    uint8_t behind[8];

    Guarded() { std::memset(static_cast<void*>(this), 0xCC, sizeof(*this)); }
    bool guards_are_untouched() const {
        const Guarded rubbish;
        return std::memcmp(before, rubbish.before, sizeof(before)) == 0 &&
               std::memcmp(behind, rubbish.behind, sizeof(behind)) == 0;
    }
};

}  // namespace

TEST_F(ProviderEntry, DialogDataIsZeroBeforeTheInitialisation) {
    Guarded data;
    EXPECT_EQ(tsp.TSPI_providerGenericDialogData(0, 0, &data.value, sizeof(data.value)), 0);
    EXPECT_EQ(data.value, 0u);
    EXPECT_TRUE(data.guards_are_untouched());
}

TEST_F(ProviderEntry, DialogDataIsTheProvidersIdInThirtyTwoBits) {
    start_provider();
    for (DWORD size : {4ul, 0ul, 1ul, 100ul}) {
        Guarded data;
        EXPECT_EQ(tsp.TSPI_providerGenericDialogData(1, 2, &data.value, size), 0);
        EXPECT_EQ(data.value, kProviderId) << size;
        EXPECT_TRUE(data.guards_are_untouched()) << size;
    }
}

// ---- when the answers are written ---------------------------------------------------------------------------------

TEST_F(ProviderEntry, WritesTheAnswersBetweenItsTraces) {
    start_provider();
    wchar_t path[260] = L"before";
    DWORD id = 77;
    Lines seen;
    driver.on.QorvLogLogMsg = [&](uint32_t, int level, const char*, const char*, uint32_t) {
        seen.push_back(text("[%d] %s, %lu", level, narrow(path).c_str(), id));
    };
    EXPECT_EQ(tsp.TSPI_providerUIIdentify(path), 0);
    EXPECT_EQ(tsp.TSPI_providerGenericDialogData(0, 0, &id, sizeof(id)), 0);
    driver.on.QorvLogLogMsg = ScriptedDriver::usual().QorvLogLogMsg;
    const std::string after = "C:\\windows\\system32\\qorvtsp.tsp, ";
    const Lines expected = {"[14] before, 77", "[4] " + after + "77", "[15] " + after + "77", "[14] " + after + "77",
                            "[15] " + after + "3"};
    EXPECT_EQ(seen, expected);
}
