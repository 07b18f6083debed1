// TSPI_providerEnumDevices: how many lines the boards offer, and which channel each line is.
#include <algorithm>

#include "start_up.h"

using namespace harness;

namespace {

void CALLBACK line_created(HTAPILINE, HTAPICALL, DWORD, DWORD_PTR, DWORD_PTR, DWORD_PTR) {}

class Enumeration : public ProviderFixture {
  protected:
    // Whether the address is kept somewhere among the variables of the provider's module.
    bool module_holds(LINEEVENT procedure) const {
        auto* base = reinterpret_cast<uint8_t*>(module);
        auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
        auto* headers = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
        auto* section = IMAGE_FIRST_SECTION(headers);
        for (WORD i = 0; i < headers->FileHeader.NumberOfSections; ++i, ++section) {
            if (!(section->Characteristics & IMAGE_SCN_MEM_WRITE)) continue;
            auto* begin = reinterpret_cast<void**>(base + section->VirtualAddress);
            auto* end = begin + section->Misc.VirtualSize / sizeof(void*);
            if (std::find(begin, end, reinterpret_cast<void*>(procedure)) != end) return true;
        }
        return false;
    }
};

View without_module_questions() {
    return everything().without({"DornModuleInfo(<*>)"});
}

const Lines kEntry = {"DornInitialize()", "[14] TSPI_providerEnumDevices: dwPermanentProviderID(3)"};
// The library is not closed, and nothing is said of a result.
const Lines kException = {kPanicFile, "[1] TSPI_providerEnumDevices: Exception"};

Lines module_questions(unsigned first, unsigned last) {
    Lines asked;
    for (unsigned module = first; module <= last; ++module) asked.push_back(text("DornModuleInfo(%u)", module));
    return asked;
}

View module_questions_asked() {
    return driver_calls().only({"DornModuleInfo(<*>)"});
}

}  // namespace

TEST_F(Enumeration, CountsTheChannelsOfThePresentModules) {
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 2u);
    const Lines expected = joined({
        kEntry,
        kHostServiceRuns,
        {
            "[4] Found Module 2 with 2 ordinals",
            "[4] 0) located on Module 2 [4 to 6]",
            "[4] 1) located on Module 2 [4 to 6]",
            "[4] 2 lines available",
            "[4] assigned lpfnLineCreateProc",
            "[15] TSPI_providerEnumDevices(0) Good",
            "DornShutdown()",
        },
    });
    EXPECT_TRUE(reads(without_module_questions(), expected));
}

TEST_F(Enumeration, AsksForEveryModuleBeforeItTellsTheCount) {
    EXPECT_EQ(enumerate(), 0);
    Lines expected = module_questions(2, 126);
    expected.insert(expected.begin() + 1, "[4] Found Module 2 with 2 ordinals");
    expected.push_back("[4] 2 lines available");
    EXPECT_TRUE(reads(story().only({"DornModuleInfo(<*>)", "[4] Found<*>", "[4] <*> lines available"}), expected));
}

TEST_F(Enumeration, LeavesThePhoneCountAsItWasGiven) {
    phone_count = 99;
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(phone_count, 99u);
}

TEST_F(Enumeration, WithNoModuleSucceedsWithNoLines) {
    driver.modules.clear();
    line_count = 99;
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 0u);
    EXPECT_TRUE(holds(traces(), "[4] 0 lines available"));
    EXPECT_TRUE(holds_no(traces(), "[4] Found<*>"));
}

TEST_F(Enumeration, AsksForModules2To126) {
    enumerate();
    EXPECT_TRUE(reads(module_questions_asked(), module_questions(2, 126)));
}

TEST_F(Enumeration, AsksForModules2To254WhenTheDriverKnowsMore) {
    set_exported_packet_version(1);
    driver.modules = {{254, 40, 1}};
    enumerate();
    EXPECT_EQ(line_count, 1u);
    EXPECT_TRUE(reads(module_questions_asked(), module_questions(2, 254)));
}

TEST_F(Enumeration, PassesOverAModuleWithAStatus) {
    driver.modules = {{2, 4, 2, KX_STATUS_ERROR}, {3, 8, 1}};
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 1u);
    EXPECT_TRUE(reads(traces().only({"[4] Found<*>", "<*>located on<*>"}),
                      {"[4] Found Module 3 with 1 ordinals", "[4] 0) located on Module 3 [8 to 9]"}));
}

TEST_F(Enumeration, PassesOverAModuleThatLacksAnyPresenceWord) {
    driver.modules = {
        {2, 4, 1, 0, {0, 1, 1}}, {3, 5, 1, 0, {1, 0, 1}}, {4, 6, 1, 0, {1, 1, 0}}, {5, 7, 1, 0, {9, 9, 9}}};
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 1u);
    EXPECT_TRUE(reads(traces().only({"[4] Found<*>"}), {"[4] Found Module 5 with 1 ordinals"}));
}

TEST_F(Enumeration, JudgesAModuleByItsRecordAndNotByTheResult) {
    driver.on.DornModuleInfo = [](void* null, DornModuleInfoRecord* record) {
        ScriptedDriver::usual().DornModuleInfo(null, record);
        return -1;
    };
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 2u);
}

TEST_F(Enumeration, NumbersLinesDenselyInModuleOrder) {
    driver.modules = {{2, 20, 1}, {10, 4, 2}, {77, 9, 1}};
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 4u);
    const Lines expected = {
        "[4] Found Module 2 with 1 ordinals",    "[4] 0) located on Module 2 [20 to 21]",
        "[4] Found Module A with 2 ordinals",    "[4] 1) located on Module A [4 to 6]",
        "[4] 2) located on Module A [4 to 6]",   "[4] Found Module 4D with 1 ordinals",
        "[4] 3) located on Module 4D [9 to 10]",
    };
    EXPECT_TRUE(reads(traces().only({"[4] Found<*>", "<*>located on<*>"}), expected));
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(driver_calls().only({"DornLineAttach(<*>)"}),
                      {"DornLineAttach(channel=20)", "DornLineAttach(channel=4)", "DornLineAttach(channel=5)",
                       "DornLineAttach(channel=9)"}));
}

TEST_F(Enumeration, RewritesTheLineTableFromItsBeginningWhenDoneAgain) {
    EXPECT_EQ(enumerate(), 0);
    driver.modules = {{6, 30, 2}};
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 2u);
    new_chapter();
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(reads(driver_calls().only({"DornLineAttach(<*>)"}),
                      {"DornLineAttach(channel=30)", "DornLineAttach(channel=31)"}));
}

TEST_F(Enumeration, MakesBadChannelsUsableAgain) {
    driver.channel(4).attaches = false;
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    driver.channel(4).attaches = true;
    start_provider();
    EXPECT_NE(open_line(0), nullptr);
}

TEST_F(Enumeration, CountsMoreChannelsThanTheTablesHold) {
    driver.uninteresting_levels = {4};
    driver.modules = {{2, 0, 4048}, {3, 4048, 952}};
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(line_count, 5000u);
}

TEST_F(Enumeration, FillsTheTablesToTheirLastEntryAndNoFurther) {
    driver.uninteresting_levels = {4, 8, 9};
    driver.modules = {{2, 0, 4049}};
    driver.on.DornLineAttach = [](DornAttachRecord*) -> DornLine* { return nullptr; };
    EXPECT_EQ(enumerate(), 0);
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_EQ(device_caps(4047).dwPermanentLineID, (kProviderId << 16) + 4047);
    EXPECT_EQ(device_caps(4047).dwMaxRate, 14400u);
    EXPECT_EQ(device_caps(4048).dwPermanentLineID, kProviderId << 16);
    EXPECT_EQ(device_caps(4048).dwMaxRate, 0u);
}

TEST_F(Enumeration, LeavesTheLibraryOpenWhenItWasOpenBefore) {
    start_provider();
    EXPECT_EQ(enumerate(), 0);
    EXPECT_TRUE(reads(driver_calls(), module_questions(2, 126)));
    EXPECT_EQ(driver.initialisations, 1);
}

TEST_F(Enumeration, LeavesTheLibraryOpenAfterAFailureWhenItWasOpenBefore) {
    start_provider();
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_TRUE(reads(driver_calls(), {}));
    EXPECT_EQ(driver.initialisations, 1);
}

TEST_F(Enumeration, KeepsTAPIsProcedureForNewLines) {
    const auto procedure = reinterpret_cast<LINEEVENT>(&line_created);
    EXPECT_FALSE(module_holds(procedure));
    EXPECT_EQ(tsp.TSPI_providerEnumDevices(kProviderId, &line_count, &phone_count, nullptr, procedure, nullptr), 0);
    EXPECT_TRUE(module_holds(procedure));
}

TEST_F(Enumeration, WithoutTheHostServiceFailsAndWritesAnEventLogEntry) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    line_count = 99;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(line_count, 0u);
    const Lines expected = joined({
        kEntry,
        kHostServiceStopped,
        event_log_entry("1", "0xC000000E"),
        {"[15] TSPI_providerEnumDevices(-2147483576) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(Enumeration, SaysSoWhenTheEventLogEntryCannotBeWritten) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    windows.event_log.source_opens = false;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = joined({
        kEntry,
        kHostServiceStopped,
        kNoEventLog,
        {"[4] tspi_PROVIDERENUMDEVICES called report_event with error",
         "[15] TSPI_providerEnumDevices(-2147483576) Failed", "DornShutdown()"},
    });
    EXPECT_TRUE(reads(everything(), expected));
}

TEST_F(Enumeration, TurnsAnExceptionOfTheDriverIntoAFailure) {
    driver.on.DornModuleInfo = [](void*, DornModuleInfoRecord*) -> int { throw 1; };
    SetLastError(0);
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads(everything(), joined({kEntry, kHostServiceRuns, {"DornModuleInfo(2)"}, kException})));
}

TEST_F(Enumeration, TurnsAFaultOfTheDriverIntoAFailure) {
    driver.on.DornModuleInfo = [](void*, DornModuleInfoRecord*) { return cause_access_violation(), 0; };
    SetLastError(0);
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(holds(traces(), "[1] TSPI_providerEnumDevices: Exception"));
}

TEST_F(Enumeration, TurnsAnExceptionWhileTheLibraryOpensIntoAFailure) {
    driver.on.DornInitialize = []() -> int { throw 1; };
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads(everything(), joined({{"DornInitialize()"}, kException})));
}
