// Opening a line that cannot be opened: what is reported, and that everything is undone, newest first.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class LineOpenFailure : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
    }

    LONG open() { return tsp.TSPI_lineOpen(kDeviceIdBase, tapi.line_handle(0), &opened, kTspiVersion, tapi_event); }

    // Opens the line with an exception on the way; the exception must be seen and nothing may be left.
    void open_with_exception() {
        EXPECT_TRUE(reports_an_exception("TSPI_lineOpen", [this] { return open(); }));
        expect_nothing_left();
    }

    void expect_nothing_left() {
        EXPECT_EQ(driver.attached(), 0u);
        for (const auto& [handle, name] : windows.objects.open) EXPECT_EQ(name, "MAPPING");
        EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
        EXPECT_EQ(opened, nullptr);
    }

    HDRVLINE opened = nullptr;
};

// How the record of a line is recognised among the allocations.
bool is_line_record(const Allocation& allocation) {
    return allocation.size > 3400 && allocation.size < 8000;
}

// The story without the frame that every opening has.
View of_the_failure(const View& view) {
    return view.without({"[16] <*>", "[17] TSPI_lineGetDevCaps(0) Good", "[4] Query Caps<*>",
                         "[4] (lpLineDevCaps->dwTotalSize >= <*>", "[4] mmbyte using<*>", "[4] intNumCharscopied<*>",
                         "[4] TempMsg<*>", "[4] StringArray<*>", "[4] report_event (ERROR)<*>"});
}

}  // namespace

TEST_F(LineOpenFailure, RefusesAChannelThatIsMarkedBad) {
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(initialise(), 0);
    new_chapter();
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(story(), {
                                   "[16] dwDeviceID(7): TSPI_lineOpen(TSPIVersion(0x20000))",
                                   "[4] Open err, channel previously marked bad, chan= 0  dwDeviceID= 7  "
                                   "gdwLineDeviceIDBase= 7",
                                   "[4] Open err, channel marked bad, val= -5",
                                   "[17] TSPI_lineOpen(-2147483573) Failed",
                               }));
    EXPECT_TRUE(reads(event_log(), {}));
}

TEST_F(LineOpenFailure, ReportsAChannelThatDoesNotAttach) {
    driver.channel(4).attaches = false;
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(of_the_failure(story()), {
                                                   "DornLineAttach(channel=4)",
                                                   "[4] Open err, attach failure, chan 4",
                                                   "event log(category=1, 0xC000000D, \"\", \"4\")",
                                                   "[17] TSPI_lineOpen(-2147483573) Failed",
                                               }));
    expect_nothing_left();
}

TEST_F(LineOpenFailure, WritesTheChannelsNumberInHexadecimal) {
    driver.modules = {{2, 26, 1}};
    EXPECT_EQ(enumerate(), 0);
    driver.channel(26).attaches = false;
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), "[4] Open err, attach failure, chan 26"));
    EXPECT_TRUE(reads(event_log(), {"event log(category=1, 0xC000000D, \"\", \"1A\")"}));
}

TEST_F(LineOpenFailure, DetachesAndReportsWhenThereIsNoMemoryForTheRecord) {
    windows.memory.fails = is_line_record;
    EXPECT_EQ(open(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(reads(of_the_failure(story()), {
                                                   "DornLineAttach(channel=4)",
                                                   "[4] Open err, allocation",
                                                   "DornSessionDetach(CHAN4)",
                                                   "event log(category=3, 0xC0000008, \"\")",
                                                   "[17] TSPI_lineOpen(-2147483580) Failed",
                                               }));
    expect_nothing_left();
}

TEST_F(LineOpenFailure, SaysWhenTheLackOfMemoryCannotBeReported) {
    windows.memory.fails = is_line_record;
    windows.event_log.source_opens = false;
    EXPECT_EQ(open(), failed(LINEERR_NOMEM));
    EXPECT_TRUE(reads_in_order(story(), {
                                            "DornSessionDetach(CHAN4)",
                                            "[4] tspi_lineopen called report_event with error",
                                            "[17] TSPI_lineOpen(-2147483580) Failed",
                                        }));
}

TEST_F(LineOpenFailure, DetachesAChannelThatCannotBeReset) {
    driver.channel(4).reset_result = -1;
    EXPECT_EQ(open(), failed(LINEERR_OPERATIONUNAVAIL));
    EXPECT_TRUE(reads(of_the_failure(story()), {
                                                   "DornLineAttach(channel=4)",
                                                   "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
                                                   "DornErrorMessage(CHAN4)",
                                                   "[2] LumLineReset: error text of CHAN4: status 0.",
                                                   "[1] Reset failure or no fw on LumChannel(14), dwDeviceID(0x7)",
                                                   "DornSessionDetach(CHAN4)",
                                                   "[17] TSPI_lineOpen(-2147483575) Failed",
                                               }));
    EXPECT_TRUE(reads(event_log(), {}));
    expect_nothing_left();
}

TEST_F(LineOpenFailure, DetachesAChannelWithoutACallConfiguration) {
    windows.registry.remove(kHostParameters);
    EXPECT_EQ(open(), failed(LINEERR_OPERATIONUNAVAIL));
    EXPECT_TRUE(reads_in_order(story(), {
                                            "[1] Reset failure or no fw on LumChannel(14), dwDeviceID(0x7)",
                                            "DornSessionDetach(CHAN4)",
                                        }));
    EXPECT_TRUE(holds_no(driver_calls(), "DornLineReset(<*>"));
    expect_nothing_left();
}

TEST_F(LineOpenFailure, DetachesAChannelWithoutCapability14) {
    driver.channel(4).capabilities.erase(14);
    EXPECT_EQ(open(), failed(LINEERR_OPERATIONUNAVAIL));
    EXPECT_TRUE(reads(of_the_failure(story()), {
                                                   "DornLineAttach(channel=4)",
                                                   "DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")",
                                                   "DornLineCapCheck(CHAN4, 14)",
                                                   "[1] Reset failure or no fw on LumChannel(14), dwDeviceID(0x7)",
                                                   "DornSessionDetach(CHAN4)",
                                                   "[17] TSPI_lineOpen(-2147483575) Failed",
                                               }));
    expect_nothing_left();
}

TEST_F(LineOpenFailure, LeavesTheLineFitForAnotherTry) {
    driver.channel(4).attaches = false;
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    driver.channel(4).attaches = true;
    EXPECT_NE(open_line(0), nullptr);
}

// ---- the lock and the events ----------------------------------------------------------------------------------------

TEST_F(LineOpenFailure, ReportsALockThatCannotBeCreated) {
    windows.objects.mutexes[1] = {fails, 0x5AA};
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads_in_order(story(), {
                                            "[4] TSPI_lineOpen() After CreateMutex() pLine->line_mutex= "
                                            "0x0000000000000000 ",
                                            "[4] pLine->line_mutex_CreatedInThreadId= 0x<*>",
                                            "[4] Halvorsund Line #1",
                                            "event log(category=3, 0xC0000006, \"\", \"5AA\")",
                                            "DornSessionDetach(CHAN4)",
                                            "[17] TSPI_lineOpen(-2147483573) Failed",
                                        }));
    EXPECT_TRUE(reads(windows_calls().only({"Create<*>"}), {"CreateMutex failed"}));
    expect_nothing_left();
}

TEST_F(LineOpenFailure, ForgetsALockThatExistsAlready) {
    windows.objects.mutexes[1] = {exists_already};
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads_in_order(story(), {
                                            "[4] TSPI_lineOpen mutex already exists, reporting error",
                                            "[4] TSPI_lineOpen() After CreateMutex() pLine->line_mutex= "
                                            "0x0000000000000000 ",
                                            "[4] Halvorsund Line #1",
                                            "event log(category=3, 0xC0000006, \"\", \"B7\")",
                                            "DornSessionDetach(CHAN4)",
                                        }));
    EXPECT_TRUE(holds_no(windows_calls(), "CloseHandle(MUTEX1)"));
}

class LineEventFailure : public LineOpenFailure, public testing::WithParamInterface<int> {
  protected:
    // Everything about the handles, up to the failure of event number n, and the undoing.
    static Lines handles_until(int failed_event, const std::string& entry, const std::string& of_creation) {
        Lines expected = {"CreateMutex -> MUTEX1"};
        for (int n = 1; n < failed_event; ++n) expected.push_back(text("CreateEvent -> EVENT%d", n + 1));
        expected.push_back(of_creation);
        expected.push_back(entry);
        for (int n = failed_event - 1; n >= 1; --n) expected.push_back(text("CloseHandle(EVENT%d)", n + 1));
        expected.push_back("CloseHandle(MUTEX1)");
        expected.push_back("DornSessionDetach(CHAN4)");
        return expected;
    }
    static View handles() {
        return all_of(WINDOWS | EVENT_LOG | DRIVER)
            .only({"Create<*>", "CloseHandle(<*>", "event log(<*>", "DornSessionDetach(<*>"});
    }
};

TEST_P(LineEventFailure, IsReportedAndTheHandlesAreClosedNewestFirst) {
    int number = GetParam();
    windows.objects.events[number + 1] = {fails, 0x5AA};
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(handles(),
                      handles_until(number, "event log(category=3, 0xC0000007, \"\", \"5AA\")", "CreateEvent failed")));
    EXPECT_TRUE(holds_no(traces(), "<*>erroralreadyexists<*>"));
    EXPECT_TRUE(holds(traces(), "[17] TSPI_lineOpen(-2147483573) Failed"));
    expect_nothing_left();
}

TEST_P(LineEventFailure, ForgetsAnEventThatExistsAlready) {
    int number = GetParam();
    windows.objects.events[number + 1] = {exists_already};
    EXPECT_EQ(open(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(reads(handles(), handles_until(number, "event log(category=3, 0xC0000007, \"\", \"B7\")",
                                               text("CreateEvent -> EVENT%d", number + 1))));
    EXPECT_TRUE(reads_in_order(story(), {text("[4] TSPI_lineOpen - erroralreadyexists #%d", number),
                                         "event log(category=3, 0xC0000007, \"\", \"B7\")"}));
}

INSTANTIATE_TEST_SUITE_P(EachEvent, LineEventFailure, testing::Values(1, 2, 3));

// ---- exceptions -----------------------------------------------------------------------------------------------------

TEST_F(LineOpenFailure, CatchesAnExceptionOfTheAttach) {
    driver.on.DornLineAttach = [](DornAttachRecord*) -> DornLine* { throw 1; };
    open_with_exception();
    EXPECT_TRUE(holds_no(driver_calls(), "DornSessionDetach(<*>"));
}

TEST_F(LineOpenFailure, DetachesAfterAnExceptionOfTheReset) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    open_with_exception();
    EXPECT_TRUE(reads_in_order(story(), {"DornSessionDetach(CHAN4)", "[1] TSPI_lineOpen: Exception"}));
    EXPECT_TRUE(holds_no(traces(), "[1] TSPI_lineOpen: Exception 2"));
}

TEST_F(LineOpenFailure, DetachesAfterAFaultInTheReset) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) { return cause_access_violation(), 0; };
    open_with_exception();
}

TEST_F(LineOpenFailure, DetachesAfterAnExceptionOfTheCapabilityCheck) {
    driver.on.DornLineCapCheck = [](DornLine*, int) -> int { throw 1; };
    open_with_exception();
}

TEST_F(LineOpenFailure, TracesAnExceptionOfTheDetachOnItsOwn) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) -> int { throw 1; };
    driver.on.DornSessionDetach = [](DornLine* line, DornAttachRecord*) -> int {
        driver.detach(line);
        throw 2;
    };
    open_with_exception();
    EXPECT_TRUE(reads(traces().levels({1}), {"[1] TSPI_lineOpen: Exception 2", "[1] TSPI_lineOpen: Exception"}));
}

TEST_F(LineOpenFailure, ClosesTheHandlesAfterAnExceptionBehindThem) {
    driver.on.DornLineUnitGet = [](DornLine* line) -> uint32_t {
        if (windows.objects.events_created > 1) throw 1;
        return ScriptedDriver::usual().DornLineUnitGet(line);
    };
    EXPECT_TRUE(reports_an_exception("TSPI_lineOpen", [this] { return open(); }));
    EXPECT_EQ(driver.attached(), 0u);
    EXPECT_TRUE(holds_no(windows_calls(), "_beginthread(<*>"));
    EXPECT_TRUE(reads(windows_calls().only({"CloseHandle(<*>"}),
                      {"CloseHandle(EVENT4)", "CloseHandle(EVENT3)", "CloseHandle(EVENT2)", "CloseHandle(MUTEX1)"}));
}
