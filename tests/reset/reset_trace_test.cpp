// A reset and the look-up of a ring count from their entry to their exit: every trace, everything that is asked of the
// driver and every call of Windows, in one order.
#include <algorithm>
#include <atomic>
#include <memory>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

// Everything that happened. The log's own questions are left out, and so are what is written to the panic file and the
// lines of the line lock.
View everything() {
    return all_of(TRACE | DRIVER | DRIVER_QUERY | WINDOWS | EVENT)
        .all_levels()
        .without({"QorvLogIsInterested(<*>", "fopen(<*>", "[<*>lock_line<*>"});
}

// The lines from the first that matches one pattern to the next that matches the other.
Lines section(const View& view, const std::string& first, const std::string& last) {
    const Lines all = lines(view);
    const auto matching = [](const std::string& pattern) {
        return [&pattern](const std::string& line) { return matches(pattern, line); };
    };
    const auto begin = std::find_if(all.begin(), all.end(), matching(first));
    const auto end = std::find_if(begin, all.end(), matching(last));
    return {begin, end == all.end() ? end : end + 1};
}

const std::string kParameters = "\"HKLM\\SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters\"";
const std::string kOpenConfiguration = "RegOpenKeyExW(" + kParameters + ", 0x20019)";
const std::string kCloseConfiguration = "RegCloseKey(" + kParameters + ")";

// How the path of the call configuration is read, with this result.
Lines path_read(const std::string& result) {
    return {"[8] get_value_sz", "RegQueryValueExW(" + kParameters + ", \"kxcall\")",
            "[9] get_value_sz(" + result + ")"};
}
const Lines kLoaded =
    joined({{kOpenConfiguration},
            path_read("0"),
            {"[4] mmbyte using kxcall<C:\\boards\\kxcall.cfg>", "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")"}});
const Lines kFailed = {"DornErrorMessage(CHAN4)", "[2] LumLineReset: error text of CHAN4: status AB."};
const Lines kKeyMissing = {kOpenConfiguration, "[2] Exiting:LumLineResetReg unable to locate kxcall.cfg(-1)"};

// A whole reset of channel 4: the report handler is kept aside while it lasts.
Lines whole_reset(const std::string& line, const Lines& inside, const std::string& result) {
    const std::string slot = "DornLineIncomingCmdFuncAccess(CHAN4)";
    return joined({{"[8] " + line + "LumLineResetReg", "DornLineUnitGet(CHAN4)", slot},
                   inside,
                   {slot, "[9] " + line + "LumLineResetReg(" + result + ")"}});
}

}  // namespace

// ---- at start-up ----------------------------------------------------------------------------------------------------

namespace {

// The lock over the count of resets is the one critical section that TSPI_providerInit makes for itself; it makes it
// last.
CRITICAL_SECTION* reset_lock = nullptr;

void WINAPI initialise_section(CRITICAL_SECTION* section) {
    InitializeCriticalSection(section);
    reset_lock = section;
}
// Whether the next thread to leave the lock is held behind it.
std::atomic<bool> next_is_held{false};
Gate behind_the_lock;

void WINAPI enter_section(CRITICAL_SECTION* section) {
    EnterCriticalSection(section);
    if (section == reset_lock) journal_windows("EnterCriticalSection(RESET_LOCK)");
}
void WINAPI leave_section(CRITICAL_SECTION* section) {
    if (section == reset_lock) journal_windows("LeaveCriticalSection(RESET_LOCK)");
    LeaveCriticalSection(section);
    if (section == reset_lock && next_is_held.exchange(false)) behind_the_lock.pass();
}

// The provider is started with one line, index 0, channel 4, unit 14; the event of its resets is EVENT1.
class StartUpResetTrace : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        driver.modules = {{2, 4, 1}};
        ASSERT_EQ(enumerate(), 0);
        sections_ = std::make_unique<Replacements>(module);
        reset_lock = nullptr;
        next_is_held = false;
        sections_->replace("InitializeCriticalSection", reinterpret_cast<void*>(initialise_section));
        sections_->replace("EnterCriticalSection", reinterpret_cast<void*>(enter_section));
        sections_->replace("LeaveCriticalSection", reinterpret_cast<void*>(leave_section));
        new_chapter();
    }
    void TearDown() override {
        sections_.reset();
        ProviderFixture::TearDown();
    }

    // Starts the provider, and compares everything that the reset thread does, until it ends.
    testing::AssertionResult start_up_reads(const Lines& expected) {
        EXPECT_EQ(initialise(), 0);
        EXPECT_TRUE(windows.all_threads_end(kPatience));
        const auto detached = entries(driver_calls().only({"DornSessionDetach(CHAN4)"}));
        if (detached.size() != 1) return testing::AssertionFailure() << detached.size() << " threads have detached";
        return reads(everything().on_thread(detached.at(0).thread), expected);
    }

  private:
    std::unique_ptr<Replacements> sections_;
};

// The record of a reset thread is no line of TAPI's.
const std::string kNoLine = "hdLine(0x<*>), htLine(0x0000000000000000), dwDeviceID(0x0), htCall(0x0000000000000000): ";
const Lines kCapabilities = {"DornLineCapCheck(CHAN4, 14)", "DornLineCapCheck(CHAN4, 41)",
                             "DornLineCapCheck(CHAN4, 20)"};
const Lines kBad = {"DornLineUnitGet(CHAN4)", "[1] Reset failure or no fw on chan 14!"};

Lines whole_thread(const Lines& inside) {
    return joined({{"[8] ResetChannelThread"},
                   inside,
                   {"DornSessionDetach(CHAN4)", "[9] ResetChannelThread", "EnterCriticalSection(RESET_LOCK)",
                    "LeaveCriticalSection(RESET_LOCK)", "SetEvent(EVENT1)"}});
}

}  // namespace

TEST_F(StartUpResetTrace, OfAChannelThatResets) {
    EXPECT_TRUE(start_up_reads(
        whole_thread(joined({whole_reset(kNoLine, joined({kLoaded, {kCloseConfiguration}}), "0"), kCapabilities}))));
}

TEST_F(StartUpResetTrace, OfAChannelWithoutFax) {
    driver.channel(4).capabilities = {};
    EXPECT_TRUE(start_up_reads(whole_thread(joined({
        whole_reset(kNoLine, joined({kLoaded, {kCloseConfiguration}}), "0"),
        {"DornLineCapCheck(CHAN4, 14)", "DornLineCapCheck(CHAN4, 20)", "DornLineUnitGet(CHAN4)",
         "[4] (Channel 14) doesn't support fax!"},
    }))));
}

TEST_F(StartUpResetTrace, OfAChannelThatDoesNotReset) {
    driver.channel(4).reset_result = -1;
    driver.channel(4).reset_status = 0xAB;
    EXPECT_TRUE(start_up_reads(
        whole_thread(joined({whole_reset(kNoLine, joined({kLoaded, kFailed, {kCloseConfiguration}}), "-1"), kBad}))));
}

TEST_F(StartUpResetTrace, WithoutACallConfiguration) {
    windows.registry.remove(kHostParameters);
    EXPECT_TRUE(start_up_reads(whole_thread(joined({whole_reset(kNoLine, kKeyMissing, "-1"), kBad}))));
}

TEST_F(StartUpResetTrace, WithoutThePathOfTheCallConfiguration) {
    windows.registry.key(kHostParameters).values.clear();
    const Lines loaded = joined({{kOpenConfiguration},
                                 path_read("1"),
                                 {"[4] mmbyte using kxcall<>", "DornLineReset(CHAN4, \"\")", kCloseConfiguration}});
    EXPECT_TRUE(start_up_reads(whole_thread(joined({whole_reset(kNoLine, loaded, "0"), kCapabilities}))));
}

TEST_F(StartUpResetTrace, WithoutMemoryForTheRecord) {
    windows.memory.fail_once_after("[8] ResetChannelThread", 3000, 6000);
    EXPECT_TRUE(start_up_reads(whole_thread({"[2] Couldn't allocate memory for pLine."})));
}

TEST_F(StartUpResetTrace, OfAUnitThatHasNoPlaceForItsHandler) {
    driver.channel(4).unit = 1024;
    EXPECT_TRUE(start_up_reads(whole_thread(joined({
        {"[8] " + kNoLine + "LumLineResetReg", "DornLineUnitGet(CHAN4)"},
        kLoaded,
        {kCloseConfiguration, "[9] " + kNoLine + "LumLineResetReg(0)"},
        kCapabilities,
    }))));
}

TEST_F(StartUpResetTrace, OfAnExceptionShowsThatTheHandlerIsPutBack) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    EXPECT_TRUE(start_up_reads(whole_thread(joined({
        {"[8] " + kNoLine + "LumLineResetReg", "DornLineUnitGet(CHAN4)", "DornLineIncomingCmdFuncAccess(CHAN4)"},
        kLoaded,
        {kCloseConfiguration, "DornLineIncomingCmdFuncAccess(CHAN4)", "[1] ResetChannelThread: Exception"},
    }))));
}

TEST_F(StartUpResetTrace, OfAFaultShowsThatTheHandlerIsPutBack) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) { return cause_access_violation(), 0; };
    EXPECT_TRUE(start_up_reads(whole_thread(joined({
        {"[8] " + kNoLine + "LumLineResetReg", "DornLineUnitGet(CHAN4)", "DornLineIncomingCmdFuncAccess(CHAN4)"},
        kLoaded,
        {"DornLineIncomingCmdFuncAccess(CHAN4)", "[1] ResetChannelThread: Exception"},
    }))));
}

TEST_F(StartUpResetTrace, OfADetachThatThrows) {
    driver.on.DornSessionDetach = [](DornLine*, DornAttachRecord*) -> int { throw 1; };
    EXPECT_TRUE(start_up_reads(joined({
        {"[8] ResetChannelThread"},
        whole_reset(kNoLine, joined({kLoaded, {kCloseConfiguration}}), "0"),
        kCapabilities,
        {"DornSessionDetach(CHAN4)", "[1] ResetChannelThread: Exception", "[9] ResetChannelThread",
         "EnterCriticalSection(RESET_LOCK)", "LeaveCriticalSection(RESET_LOCK)", "SetEvent(EVENT1)"},
    })));
}

TEST_F(StartUpResetTrace, OfTheFirstOfTwoChannelsLeavesTheEventToTheLast) {
    driver.modules = {{2, 4, 2}};
    ASSERT_EQ(enumerate(), 0);
    driver.gate("DornLineReset").close();
    Call starting([this] { return initialise(); });
    EXPECT_TRUE(comes("DornLineReset(CHAN4, <*>"));
    EXPECT_TRUE(comes("DornLineReset(CHAN5, <*>"));
    EXPECT_TRUE(comes("WaitForSingleObject(EVENT1, INFINITE)"));
    const size_t left_before = count(everything(), "LeaveCriticalSection(RESET_LOCK)");
    driver.gate("DornLineReset").open_once();
    EXPECT_TRUE(comes("LeaveCriticalSection(RESET_LOCK)", left_before + 1));
    driver.gate("DornLineReset").open();
    EXPECT_EQ(starting.result(), 0);
    EXPECT_TRUE(windows.all_threads_end(kPatience));
    const View counting = everything().only({"<*>RESET_LOCK)", "SetEvent(<*>", "[9] ResetChannelThread"});
    const auto done = entries(driver_calls().only({"DornSessionDetach(<*>"}));
    ASSERT_EQ(done.size(), 2u);
    const Lines first = {"[9] ResetChannelThread", "EnterCriticalSection(RESET_LOCK)",
                         "LeaveCriticalSection(RESET_LOCK)"};
    EXPECT_TRUE(reads(counting.on_thread(done.at(0).thread), first));
    EXPECT_TRUE(reads(counting.on_thread(done.at(1).thread), joined({first, {"SetEvent(EVENT1)"}})));
}

TEST_F(StartUpResetTrace, HasCountedAResetBeforeItLeavesTheLock) {
    driver.modules = {{2, 4, 2}};
    ASSERT_EQ(enumerate(), 0);
    driver.gate("DornLineReset").close();
    behind_the_lock.close();
    Call starting([this] { return initialise(); });
    EXPECT_TRUE(comes("LeaveCriticalSection(RESET_LOCK)"));
    EXPECT_TRUE(comes("WaitForSingleObject(EVENT1, INFINITE)"));
    next_is_held = true;
    driver.gate("DornLineReset").open_once();
    EXPECT_TRUE(behind_the_lock.holds_somebody());
    driver.gate("DornLineReset").open();
    // The other one is the last, although the first has not gone on yet.
    EXPECT_TRUE(comes("SetEvent(EVENT1)"));
    EXPECT_EQ(starting.result(), 0);
    behind_the_lock.open();
    EXPECT_TRUE(windows.all_threads_end(kPatience));
    EXPECT_EQ(count(windows_calls(), "SetEvent(EVENT1)"), 1u);
}

TEST_F(StartUpResetTrace, OfAFailureComesBeforeTheChannelIsMarkedBad) {
    driver.channel(4).reset_result = -1;
    LONG opened_meanwhile = 0;
    driver.on.QorvLogLogMsg = [&](uint32_t, int, const char* line, const char*, uint32_t) {
        if (!matches("<*>Reset failure or no fw on chan 14!", line)) return;
        HDRVLINE opened = nullptr;
        opened_meanwhile = tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, kTspiVersion, tapi_event);
    };
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(windows.all_threads_end(kPatience));
    // It was tried, and did not reset either.
    EXPECT_EQ(opened_meanwhile, failed(LINEERR_OPERATIONUNAVAIL));
    EXPECT_TRUE(holds_no(traces(), "[4] Open err, channel marked bad, <*>"));
}

// ---- with a line ----------------------------------------------------------------------------------------------------

namespace {

class LineResetTrace : public LineFixture {
  protected:
    // Everything that the reset does that closing the call makes, from entry to exit.
    Lines reset_of_the_close() {
        new_chapter();
        EXPECT_EQ(close_call(), 0);
        return section(on_this_thread(everything()), "[8] <*>LumLineResetReg", "[9] <*>LumLineResetReg(<*>");
    }
};

}  // namespace

TEST_F(LineResetTrace, OfACallNamesTheLineAndClearsTheCallFirst) {
    take_call(0);
    EXPECT_EQ(reset_of_the_close(),
              whole_reset(kCall, joined({{"DornLineTerminateCallISDN(CHAN4)"}, kLoaded, {kCloseConfiguration}}), "0"));
}

TEST_F(LineResetTrace, OfACallWhoseReleaseIsPendingWaitsForIt) {
    take_call(0);
    driver.on.DornLineTerminateCallISDN = [](DornLine*, DornLineResultRecord* record) {
        record->status = KX_STATUS_ALERT;
        record->sub_status = 1;
        return 0;
    };
    driver.on.DornCallWaitForRelease = [waits = std::make_shared<int>(0)](DornLine*, DornCallRecord* record) {
        record->status = ++*waits < 3 ? KX_STATUS_ALERT : KX_STATUS_OK;
        record->cause = 1;
        return 0;
    };
    EXPECT_EQ(reset_of_the_close(),
              whole_reset(kCall,
                          joined({{"DornLineTerminateCallISDN(CHAN4)", "DornCallWaitForRelease(CHAN4)",
                                   "DornCallWaitForRelease(CHAN4)", "DornCallWaitForRelease(CHAN4)"},
                                  kLoaded,
                                  {kCloseConfiguration}}),
                          "0"));
}

TEST_F(LineResetTrace, OfACallWithoutACallConfigurationLeavesTheChannelAlone) {
    take_call(0);
    windows.registry.remove(kHostParameters);
    EXPECT_EQ(reset_of_the_close(),
              whole_reset(kCall, joined({{"DornLineTerminateCallISDN(CHAN4)"}, kKeyMissing}), "-1"));
}

TEST_F(LineResetTrace, OfACallWhoseChannelDoesNotReset) {
    take_call(0);
    driver.channel(4).reset_result = -1;
    driver.channel(4).reset_status = 0xAB;
    EXPECT_EQ(
        reset_of_the_close(),
        whole_reset(kCall, joined({{"DornLineTerminateCallISDN(CHAN4)"}, kLoaded, kFailed, {kCloseConfiguration}}),
                    "-1"));
}

TEST_F(LineResetTrace, OfALineThatIsOpenedHasNoCallToClear) {
    EXPECT_EQ(close_line(0), 0);
    new_chapter();
    open_line(0);
    // The record does not know TAPI's handle yet.
    const std::string line =
        "hdLine(0xLINE1), htLine(0x0000000000000000), dwDeviceID(0x7), htCall(0x0000000000000000): ";
    EXPECT_EQ(section(on_this_thread(everything()), "[8] <*>LumLineResetReg", "[9] <*>LumLineResetReg(<*>"),
              whole_reset(line, joined({kLoaded, {kCloseConfiguration}}), "0"));
}

// ---- the ring count -------------------------------------------------------------------------------------------------

namespace {

constexpr DWORD kOurs = 196612, kOther = 77;
const std::string kDevices = "HKLM\\SOFTWARE\\Microsoft\\Fax\\Devices";

class RingCountTrace : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        windows.registry.key(kFaxDevices);
        start_provider();
        open_waiting_line(0);
    }

    static std::wstring data_of(const std::wstring& device) { return kFaxDevices + L"\\" + device + L"\\Data"; }
    static void add_device(const std::wstring& device, DWORD line) {
        windows.registry.set(data_of(device), L"TAPI Permanent Lineid", line);
    }

    // Everything that looking it up does, from entry to exit.
    Lines looked_up() {
        offer_call(0);
        return section(everything(), "[8] findNringsFromLineID", "[9] findNringsFromLineID(<*>");
    }

    static std::string opened(const std::string& below, const char* access = "0x20019") {
        return "RegOpenKeyExW(\"" + kDevices + below + "\", " + access + ")";
    }
    static std::string enumerated(const std::string& below, int index) {
        return text("RegEnumKeyExW(\"%s\", %d)", (kDevices + below).c_str(), index);
    }
    static std::string asked(const std::string& below, const char* value) {
        return "RegQueryValueExW(\"" + kDevices + below + "\", \"" + value + "\")";
    }
    static std::string closed(const std::string& below) { return "RegCloseKey(\"" + kDevices + below + "\")"; }
    // The device of this index, from finding it to its first subkey.
    static Lines found(int index, const std::string& device) {
        return {enumerated("", index), opened("\\" + device), enumerated("\\" + device, 0),
                opened("\\" + device + "\\Data", "0x1"), asked("\\" + device + "\\Data", "TAPI Permanent Lineid")};
    }
    static Lines left(const std::string& device) { return {closed("\\" + device + "\\Data"), closed("\\" + device)}; }
};

const Lines kNotFound = {"[4] ****** FindNringsFromLineID: did not find it ", "[9] findNringsFromLineID(1)"};

}  // namespace

TEST_F(RingCountTrace, ThatIsThere) {
    add_device(L"A", kOurs);
    windows.registry.set(data_of(L"A"), L"Rings", DWORD{2});
    EXPECT_EQ(looked_up(), joined({
                               {"[8] findNringsFromLineID", opened("")},
                               found(0, "A"),
                               {asked("\\A\\Data", "Rings")},
                               left("A"),
                               {closed(""), "[9] findNringsFromLineID(0)"},
                           }));
}

TEST_F(RingCountTrace, ThatIsZeroIsFoundAllTheSame) {
    add_device(L"A", kOurs);
    windows.registry.set(data_of(L"A"), L"Rings", DWORD{0});
    add_device(L"B", kOurs);
    EXPECT_EQ(looked_up(), joined({
                               {"[8] findNringsFromLineID", opened("")},
                               found(0, "A"),
                               {asked("\\A\\Data", "Rings")},
                               left("A"),
                               {closed(""), "[9] findNringsFromLineID(0)"},
                           }));
}

TEST_F(RingCountTrace, WithoutTheDevices) {
    windows.registry.remove(kFaxDevices);
    EXPECT_EQ(
        looked_up(),
        joined({{"[8] findNringsFromLineID", opened(""), "[4] ****** FindNringsFromLineID:  Can not open the registry"},
                kNotFound}));
}

TEST_F(RingCountTrace, WithoutAnyDevice) {
    EXPECT_EQ(looked_up(),
              joined({{"[8] findNringsFromLineID", opened(""), enumerated("", 0), closed("")}, kNotFound}));
}

TEST_F(RingCountTrace, OfDevicesThatDoNotHaveIt) {
    add_device(L"A", kOurs);
    windows.registry.key(kFaxDevices + L"\\A").open_error = ERROR_ACCESS_DENIED;
    windows.registry.key(kFaxDevices + L"\\B");
    add_device(L"C", kOurs);
    windows.registry.key(data_of(L"C")).open_error = ERROR_ACCESS_DENIED;
    windows.registry.key(data_of(L"D"));
    add_device(L"E", kOther);
    add_device(L"F", kOurs);
    EXPECT_EQ(looked_up(), joined({
                               {"[8] findNringsFromLineID", opened("")},
                               {enumerated("", 0), opened("\\A")},
                               {enumerated("", 1), opened("\\B"), enumerated("\\B", 0), closed("\\B")},
                               {enumerated("", 2), opened("\\C"), enumerated("\\C", 0), opened("\\C\\Data", "0x1"),
                                "[4] Cannot open key SOFTWARE\\Microsoft\\Fax\\Devices\\C\\Data", closed("\\C")},
                               found(3, "D"),
                               left("D"),
                               found(4, "E"),
                               {"[4] The Line ID 77 is not match with the Permanent LineID 196612"},
                               left("E"),
                               found(5, "F"),
                               {asked("\\F\\Data", "Rings"), "[4] Can not find Rings registry key"},
                               left("F"),
                               {enumerated("", 6), closed("")},
                               kNotFound,
                           }));
}
