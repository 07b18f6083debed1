// The trace: its set-up with the driver library's log, what is asked and handed over for a line, and what a failing log
// does to the provider.
#include <cstdarg>
#include <cstdio>
#include <functional>

#include "harness.h"

using namespace harness;

namespace {

class Trace : public ProviderFixture {
  protected:
    // An entry point that traces its entry and its exit and does nothing else, at levels 16 and 17.
    LONG trace_twice() {
        DWORD addresses = 0;
        return tsp.TSPI_lineGetNumAddressIDs(nullptr, &addresses);
    }
};

const char* const kEntry = "[16] TSPI_lineGetNumAddressIDs";
const char* const kExit = "[17] TSPI_lineGetNumAddressIDs(0) Good";

// The C runtime's, with a note of the space that they are given.
int __cdecl noted_vsnprintf(char* buffer, size_t size, const char* format, va_list arguments) {
    note(text("_vsnprintf(%zu, ", size) + quoted(format) + ")");
    return _vsnprintf(buffer, size, format, arguments);
}

int __cdecl noted_snprintf(char* buffer, size_t size, const char* format, ...) {
    note(text("_snprintf(%zu, ", size) + quoted(format) + ")");
    va_list arguments;
    va_start(arguments, format);
    const int length = _vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

View log_set_up() {
    return all_of(DRIVER_LOG);
}

}  // namespace

TEST_F(Trace, RegistersItsLevelsWithTheLibrarysLog) {
    EXPECT_EQ(trace_twice(), 0);
    const Lines expected = {
        "QorvLogInitialized()",
        "QorvLogInit(\"MSF_TSP\", null, 0, 1)",
        "QorvLogFilterNew(\"MSF_TSP\", \"MSF_TSP\", 1, 0, 0, 0)",
        "QorvLogFilterAddSetting(FILTER, 1, \"FILTER_PANIC\", 1)",
        "QorvLogFilterAddSetting(FILTER, 2, \"FILTER_ERROR\", 1)",
        "QorvLogFilterAddSetting(FILTER, 3, \"FILTER_WARNING\", 1)",
        "QorvLogFilterAddSetting(FILTER, 4, \"FILTER_INFO\", 0)",
        "QorvLogFilterAddSetting(FILTER, 5, \"FILTER_UNPROCESSED_EVENT\", 1)",
        "QorvLogFilterAddSetting(FILTER, 8, \"FILTER_FUNCTION_ENTER\", 0)",
        "QorvLogFilterAddSetting(FILTER, 9, \"FILTER_FUNCTION_EXIT\", 0)",
        "QorvLogFilterAddSetting(FILTER, 10, \"FILTER_STATUS\", 0)",
        "QorvLogFilterAddSetting(FILTER, 11, \"FILTER_STATE_CHANGE\", 0)",
        "QorvLogFilterAddSetting(FILTER, 12, \"FILTER_TUISPI_LINE_FUNCTION_ENTER\", 1)",
        "QorvLogFilterAddSetting(FILTER, 13, \"FILTER_TUISPI_LINE_FUNCTION_EXIT\", 1)",
        "QorvLogFilterAddSetting(FILTER, 14, \"FILTER_TSPI_PROVIDER_FUNCTION_ENTER\", 1)",
        "QorvLogFilterAddSetting(FILTER, 15, \"FILTER_TSPI_PROVIDER_FUNCTION_EXIT\", 1)",
        "QorvLogFilterAddSetting(FILTER, 16, \"FILTER_TSPI_LINE_FUNCTION_ENTER\", 1)",
        "QorvLogFilterAddSetting(FILTER, 17, \"FILTER_TSPI_LINE_FUNCTION_EXIT\", 1)",
        "QorvLogAddFilter(FILTER)",
        "QorvLogFilterDelete(FILTER)",
    };
    EXPECT_TRUE(reads(log_set_up(), expected));
    EXPECT_TRUE(reads(traces(), {kEntry, kExit}));
}

TEST_F(Trace, TellsTheLibraryWhichInterfaceItWasBuiltAgainst) {
    trace_twice();
    EXPECT_EQ(exported_interface_version().compiled, 0x403070u);
    EXPECT_EQ(exported_interface_version().bld_comp, 6704u);
    EXPECT_EQ(exported_interface_version().auto_comp, 76u);
}

TEST_F(Trace, TellsTheInterfaceBeforeItUsesTheLog) {
    InterfaceVersion told = {};
    driver.on.QorvLogInitialized = [&] { return told = exported_interface_version(), 0; };
    trace_twice();
    EXPECT_EQ(told.compiled, 0x403070u);
    EXPECT_EQ(told.bld_comp, 6704u);
    EXPECT_EQ(told.auto_comp, 76u);
}

TEST_F(Trace, IsSetUpOnlyOnce) {
    trace_twice();
    trace_twice();
    EXPECT_EQ(count(log_set_up(), "QorvLogFilterNew(<*>"), 1u);
    EXPECT_EQ(count(log_set_up(), "QorvLogInitialized()"), 1u);
}

TEST_F(Trace, IsSetUpOnlyOnceByTwoThreadsAtOnce) {
    driver.gate("QorvLogFilterNew").close();
    Call one([this] { return trace_twice(); });
    EXPECT_TRUE(driver.gate("QorvLogFilterNew").holds_somebody());
    Call other([this] { return trace_twice(); });
    EXPECT_FALSE(other.returns_within(50));
    driver.gate("QorvLogFilterNew").open();
    EXPECT_EQ(one.result(), 0);
    EXPECT_EQ(other.result(), 0);
    EXPECT_EQ(count(log_set_up(), "QorvLogFilterNew(<*>"), 1u);
}

namespace {

using Enter = void(WINAPI*)(LPCRITICAL_SECTION);
Enter enter_lock;

// Notes the locks that are variables of the provider's module.
void WINAPI noted_enter(LPCRITICAL_SECTION lock) {
    HMODULE owner = nullptr;
    constexpr DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (GetModuleHandleExA(flags, reinterpret_cast<LPCSTR>(lock), &owner)) note("a lock");
    enter_lock(lock);
}

}  // namespace

TEST_F(Trace, TakesNoLockOnceItIsSetUp) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("EnterCriticalSection", enter_lock, noted_enter));
    trace_twice();
    trace_twice();
    EXPECT_TRUE(reads(all_of(TRACE | NOTE), {"a lock", kEntry, kExit, kEntry, kExit}));
}

TEST_F(Trace, DoesNotInitialiseALogThatIsInitialised) {
    driver.log_initialised = true;
    trace_twice();
    EXPECT_TRUE(holds_no(log_set_up(), "QorvLogInit(<*>"));
    EXPECT_TRUE(holds(log_set_up(), "QorvLogAddFilter(FILTER)"));
}

TEST_F(Trace, RegistersItsFilterAgainAfterTheLibraryWasClosed) {
    enumerate();
    new_chapter();
    enumerate();
    EXPECT_EQ(count(log_set_up(), "QorvLogFilterNew(<*>"), 1u);
    EXPECT_TRUE(holds_no(log_set_up(), "QorvLogInit(<*>"));
}

TEST_F(Trace, GoesOnWithoutAFilter) {
    driver.makes_filters = false;
    driver.on.QorvLogLogMsg = [](uint32_t client, int, const char*, const char*, uint32_t) {
        driver.log_client = client;
    };
    trace_twice();
    EXPECT_TRUE(reads(log_set_up(), {"QorvLogInitialized()", "QorvLogInit(\"MSF_TSP\", null, 0, 1)",
                                     "QorvLogFilterNew(\"MSF_TSP\", \"MSF_TSP\", 1, 0, 0, 0)"}));
    EXPECT_TRUE(reads(traces(), {kEntry, kExit}));
    forget_problems();  // the first line comes under a client that no filter has told
}

TEST_F(Trace, UsesAKeyThatLiesInTheModule) {
    trace_twice();
    auto base = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(module));
    auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(module);
    auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(reinterpret_cast<uint8_t*>(module) + dos->e_lfanew);
    EXPECT_LT(driver.log_client - base, headers->OptionalHeader.SizeOfImage);
}

TEST_F(Trace, AsksTwiceBeforeALineIsWritten) {
    trace_twice();
    EXPECT_TRUE(reads(all_of(TRACE | DRIVER_QUERY), {"QorvLogIsInterested(16)", "QorvLogIsInterested(16)", kEntry,
                                                     "QorvLogIsInterested(17)", "QorvLogIsInterested(17)", kExit}));
}

TEST_F(Trace, FormatsNothingOfALineThatNobodyWants) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snprintf", reinterpret_cast<void*>(noted_snprintf)));
    ASSERT_TRUE(more.replace("_vsnprintf", reinterpret_cast<void*>(noted_vsnprintf)));
    driver.uninteresting_levels = {16, 17};
    trace_twice();
    EXPECT_TRUE(reads(all_of(TRACE | DRIVER_QUERY | NOTE), {"QorvLogIsInterested(16)", "QorvLogIsInterested(17)"}));
}

TEST_F(Trace, FormatsALineWithinItsBuffer) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snprintf", reinterpret_cast<void*>(noted_snprintf)));
    ASSERT_TRUE(more.replace("_vsnprintf", reinterpret_cast<void*>(noted_vsnprintf)));
    driver.uninteresting_levels = {17};
    trace_twice();
    const size_t stamp = text("P-0x%06lX:T-0x%06lX: ", GetCurrentProcessId(), GetCurrentThreadId()).size();
    EXPECT_TRUE(reads(all_of(TRACE | NOTE), {
                                                "_snprintf(8192, \"P-0x%06X:T-0x%06X: \")",
                                                text("_vsnprintf(%zu, \"%%s\")", 8192 - stamp),
                                                kEntry,
                                            }));
}

TEST_F(Trace, FormatsAPanicLineAndTheNameOfItsFileWithinTheirBuffers) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snprintf", reinterpret_cast<void*>(noted_snprintf)));
    ASSERT_TRUE(more.replace("_vsnprintf", reinterpret_cast<void*>(noted_vsnprintf)));
    driver.on.DornInitialize = []() -> int { throw 1; };
    enumerate();
    EXPECT_TRUE(reads_in_order(all_of(TRACE | NOTE),
                               {"_snprintf(8192, \"P-0x%06X:T-0x%06X: \")", "_vsnprintf(<*>, \"%s: Exception\")",
                                "_snprintf(260, \"%s\\%s\")", "[1] TSPI_providerEnumDevices: Exception"}));
}

TEST_F(Trace, StampsEveryLineWithItsProcessAndThread) {
    std::vector<std::string> written;
    driver.on.QorvLogLogMsg = [&](uint32_t, int, const char* line, const char*, uint32_t) { written.push_back(line); };
    trace_twice();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[0],
              text("P-0x%06lX:T-0x%06lX: TSPI_lineGetNumAddressIDs", GetCurrentProcessId(), GetCurrentThreadId()));
}

TEST_F(Trace, NamesThePlaceOfEveryLine) {
    trace_twice();
    std::vector<Entry> written = entries(traces());
    ASSERT_EQ(written.size(), 2u);
    for (const Entry& line : written) {
        EXPECT_NE(line.source_file, "");
        EXPECT_GT(line.source_line, 0u);
    }
}

TEST_F(Trace, CutsALineThatIsTooLong) {
    std::string longest;
    driver.on.QorvLogLogMsg = [&](uint32_t, int, const char* line, const char*, uint32_t) {
        if (std::string(line).size() > longest.size()) longest = line;
    };
    for (uint32_t channel : {4u, 5u}) {
        driver.channel(channel).reset_result = -1;
        driver.channel(channel).error_text = std::string(10000, 'x');
    }
    enumerate();
    initialise();
    EXPECT_EQ(longest.size(), 8192u);
    EXPECT_TRUE(matches("P-0x<*>:T-0x<*>: LumLineReset: xxx<*>xxx", longest));
}

TEST_F(Trace, SetsNothingUpForAPanicLine) {
    driver.on.DornInitialize = []() -> int { throw 1; };
    enumerate();
    EXPECT_TRUE(reads(log_set_up(), {}));
    EXPECT_TRUE(reads(traces(), {"[1] TSPI_providerEnumDevices: Exception"}));
    EXPECT_EQ(count(all_of(DRIVER_QUERY), "QorvLogIsInterested(1)"), 1u);
}

TEST_F(Trace, DoesNotHandOverAPanicLineThatNobodyWants) {
    driver.uninteresting_levels = {1};
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    enumerate();
    EXPECT_TRUE(holds_no(traces(), "[1] <*>"));
    EXPECT_EQ(count(all_of(DRIVER_QUERY), "QorvLogIsInterested(1)"), 1u);
}

// ---- a log that fails ---------------------------------------------------------------------------------------------

namespace {

const char* const kComplaint = "OutputDebugStringW(\"!!!!Exception in logging TSP\")";

}  // namespace

TEST_F(Trace, SwallowsAnExceptionOfTheLog) {
    driver.on.QorvLogLogMsg = [](uint32_t, int, const char*, const char*, uint32_t) { throw 1; };
    EXPECT_EQ(trace_twice(), 0);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {kComplaint, kComplaint}));
}

TEST_F(Trace, SwallowsAFaultOfTheLog) {
    driver.on.QorvLogLogMsg = [](uint32_t, int, const char*, const char*, uint32_t) { cause_access_violation(); };
    EXPECT_EQ(trace_twice(), 0);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {kComplaint, kComplaint}));
}

TEST_F(Trace, SwallowsAnExceptionOfTheSetUpAndTriesAgain) {
    driver.on.QorvLogFilterNew = [](const char*, const char*, uint32_t, uint32_t, uint32_t,
                                    uint32_t) -> QorvLogFilter* { throw 1; };
    EXPECT_EQ(trace_twice(), 0);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {kComplaint, kComplaint}));
    EXPECT_TRUE(reads(traces(), {}));
    driver.on.QorvLogFilterNew = ScriptedDriver::usual().QorvLogFilterNew;
    EXPECT_EQ(trace_twice(), 0);
    EXPECT_TRUE(reads(traces(), {kEntry, kExit}));
}

TEST_F(Trace, LetsOtherThreadsTraceAfterAFaultOfTheSetUp) {
    driver.on.QorvLogFilterNew = [](const char*, const char*, uint32_t, uint32_t, uint32_t, uint32_t) {
        return cause_access_violation(), static_cast<QorvLogFilter*>(nullptr);
    };
    EXPECT_EQ(trace_twice(), 0);
    driver.on.QorvLogFilterNew = ScriptedDriver::usual().QorvLogFilterNew;
    Call other([this] { return trace_twice(); });
    EXPECT_TRUE(other.returns_within());
    EXPECT_TRUE(reads(traces(), {kEntry, kExit}));
}

TEST_F(Trace, SwallowsAnExceptionOfTheQuestion) {
    driver.on.QorvLogIsInterested = [](uint32_t, int) -> int { throw 1; };
    EXPECT_EQ(trace_twice(), 0);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {kComplaint, kComplaint}));
}

TEST_F(Trace, SwallowsAFaultOfTheQuestion) {
    driver.on.QorvLogIsInterested = [](uint32_t, int) { return cause_access_violation(), 0; };
    EXPECT_EQ(trace_twice(), 0);
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {kComplaint, kComplaint}));
}

// ---- the bracket around the library -------------------------------------------------------------------------------

namespace {

// ACE begins and ends with Windows' sockets.
int WINAPI ace_begins(WORD, void*) {
    return note("ACE begins"), 0;
}

std::function<void()> on_ace_ends;
int WINAPI ace_ends() {
    note("ACE ends");
    if (on_ace_ends) on_ace_ends();
    return 0;
}

}  // namespace

TEST_F(Trace, LibraryOpensBehindACEAndClosesBeforeIt) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("WSAStartup", reinterpret_cast<void*>(ace_begins)));
    ASSERT_TRUE(more.replace("WSACleanup", reinterpret_cast<void*>(ace_ends)));
    enumerate();
    EXPECT_TRUE(reads(all_of(DRIVER | NOTE).without({"DornModuleInfo(<*>)"}),
                      {"ACE begins", "DornInitialize()", "DornShutdown()", "ACE ends"}));
}

TEST_F(Trace, IsSetUpUntilTheLibraryIsClosedAndNoLonger) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("WSAStartup", reinterpret_cast<void*>(ace_begins)));
    ASSERT_TRUE(more.replace("WSACleanup", reinterpret_cast<void*>(ace_ends)));
    driver.on.DornShutdown = [this] {
        ScriptedDriver::usual().DornShutdown();
        trace_twice();
    };
    on_ace_ends = [this] { trace_twice(); };
    enumerate();
    on_ace_ends = nullptr;
    EXPECT_TRUE(reads(all_of(DRIVER | DRIVER_LOG | NOTE).only({"QorvLogFilterNew(<*>", "DornShutdown()", "ACE ends"}),
                      {"QorvLogFilterNew(<*>", "DornShutdown()", "ACE ends", "QorvLogFilterNew(<*>"}));
}

TEST_F(Trace, LibraryIsNotClosedWhenTheTraceCouldNotBeSetUp) {
    driver.on.QorvLogFilterNew = [](const char*, const char*, uint32_t, uint32_t, uint32_t,
                                    uint32_t) -> QorvLogFilter* { throw 1; };
    EXPECT_EQ(enumerate(), 0);
    EXPECT_TRUE(reads(driver_calls().without({"DornModuleInfo(<*>)"}), {"DornInitialize()"}));
}

TEST_F(Trace, LibraryStaysOpenFromAGoodInitialisationToTheShutdown) {
    enumerate();
    EXPECT_EQ(driver.initialisations, 0);
    initialise();
    EXPECT_EQ(driver.initialisations, 1);
    shut_down();
    EXPECT_EQ(driver.initialisations, 0);
}
