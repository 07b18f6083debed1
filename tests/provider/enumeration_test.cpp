// TSPI_providerEnumDevices: how many lines the boards offer, and which channel each line is.
#include "harness.h"

using namespace harness;

namespace {

class Enumeration : public ProviderFixture {};

View without_module_questions() {
    return story().without({"DornModuleInfo(<*>)"});
}

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
    const Lines expected = {
        "DornInitialize()",
        "[14] TSPI_providerEnumDevices: dwPermanentProviderID(3)",
        "[4] Check if calder is running",
        "[4] calder is running.",
        "[4] Found Module 2 with 2 ordinals",
        "[4] 0) located on Module 2 [4 to 6]",
        "[4] 1) located on Module 2 [4 to 6]",
        "[4] 2 lines available",
        "[4] assigned lpfnLineCreateProc",
        "[15] TSPI_providerEnumDevices(0) Good",
        "DornShutdown()",
    };
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

TEST_F(Enumeration, LeavesTheLibraryOpenWhenItWasOpenBefore) {
    start_provider();
    EXPECT_EQ(enumerate(), 0);
    EXPECT_TRUE(holds_no(driver_calls(), "DornInitialize()"));
    EXPECT_TRUE(holds_no(driver_calls(), "DornShutdown()"));
    EXPECT_EQ(driver.initialisations, 1);
}

TEST_F(Enumeration, WithoutTheHostServiceFailsAndWritesAnEventLogEntry) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    line_count = 99;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(line_count, 0u);
    const Lines expected = {
        "DornInitialize()",
        "[14] TSPI_providerEnumDevices: dwPermanentProviderID(3)",
        "[4] Check if calder is running",
        "[4] calder is not running.",
        "[1] Calder Host Service is not running!",
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC000000E, num_strings= 0x0, "
        "pszStrings= 0x0000000000000000 ",
        "[4] report_event (ERROR): pszStrings= NULL",
        "event log(category=1, 0xC000000E, \"\")",
        "[15] TSPI_providerEnumDevices(-2147483576) Failed",
        "DornShutdown()",
    };
    EXPECT_TRUE(reads(story(), expected));
}

TEST_F(Enumeration, SaysSoWhenTheEventLogEntryCannotBeWritten) {
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    windows.event_log.takes_entries = false;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "refused event log(category=1, 0xC000000E, \"\")",
        "[4] tspi_PROVIDERENUMDEVICES called report_event with error",
        "[15] TSPI_providerEnumDevices(-2147483576) Failed",
    };
    EXPECT_TRUE(reads_in_order(story(), expected));
}

TEST_F(Enumeration, TurnsAnExceptionOfTheDriverIntoAFailure) {
    driver.on.DornModuleInfo = [](void*, DornModuleInfoRecord*) -> int { throw 1; };
    SetLastError(0);
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(reads_in_order(story(), {"DornModuleInfo(2)", "[1] TSPI_providerEnumDevices: Exception"}));
    EXPECT_TRUE(holds_no(traces(), "[15] <*>"));
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
    EXPECT_TRUE(reads(story(), {"DornInitialize()", "[1] TSPI_providerEnumDevices: Exception"}));
}
