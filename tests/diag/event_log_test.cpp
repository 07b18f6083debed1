// The Windows event log, seen through the entry points that write to it: an entry without strings when the host service
// is down, one with a number when the event of the resets cannot be created.
#include "harness.h"

using namespace harness;

namespace {

class EventLog : public ProviderFixture {
  protected:
    // Writes an entry without strings.
    LONG report_host_service_down() {
        windows.services.state[L"calder"] = SERVICE_STOPPED;
        return enumerate();
    }

    // Writes an entry with the number of a Windows error.
    LONG report_error(DWORD error) {
        windows.objects.events[1] = {fails, error};
        enumerate();
        new_chapter();
        return initialise();
    }
};

View of_reporting() {
    return all_of(TRACE | EVENT_LOG)
        .all_levels()
        .only({"[<*>] report_event<*>", "[4] intNumCharscopied<*>", "[4] TempMsg<*>", "[4] StringArray<*>",
               "<*>event log(<*>"});
}

View of_the_source() {
    return windows_calls().only({"RegisterEventSourceW<*>", "DeregisterEventSource<*>"});
}

const char* const kRegistered = "RegisterEventSourceW(null, \"Halvorsund Telephony Service Provider\")";

}  // namespace

TEST_F(EventLog, TakesAnEntryWithoutStrings) {
    report_host_service_down();
    const Lines expected = {
        "[8] report_event",
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC000000E, num_strings= 0x0, "
        "pszStrings= 0x0000000000000000 ",
        "[4] report_event (ERROR): pszStrings= NULL",
        "event log(category=1, 0xC000000E, \"\")",
        "[9] report_event(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
    EXPECT_TRUE(reads(of_the_source(), {kRegistered, "DeregisterEventSource()"}));
    EXPECT_EQ(windows.event_log.open_sources, 0);
}

TEST_F(EventLog, TakesAnEntryWithANumberInHexadecimal) {
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "[8] report_event",
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC0000007, num_strings= 0x1, "
        "pszStrings= 0x<*> ",
        "[4] report_event (ERROR): 5AA ",
        "event log(category=3, 0xC0000007, \"\", \"5AA\")",
        "[9] report_event(0)",
        "[9] report_event_num(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
    EXPECT_TRUE(reads(of_the_source(), {kRegistered, "DeregisterEventSource()"}));
}

TEST_F(EventLog, ShowsTheLargestNumberWithEightDigits) {
    report_error(0xFFFFFFFF);
    EXPECT_TRUE(reads(event_log(), {"event log(category=3, 0xC0000007, \"\", \"FFFFFFFF\")"}));
}

TEST_F(EventLog, ShowsZeroWithOneDigit) {
    report_error(0);
    EXPECT_TRUE(reads(event_log(), {"event log(category=3, 0xC0000007, \"\", \"0\")"}));
}

TEST_F(EventLog, GetsNothingWhenItsSourceCannotBeOpened) {
    windows.event_log.source_opens = false;
    report_host_service_down();
    EXPECT_TRUE(reads(of_reporting(), {"[8] report_event", "[9] report_event(-2)"}));
    EXPECT_TRUE(reads(of_the_source(), {kRegistered}));
}

TEST_F(EventLog, HasItsSourceClosedAlsoWhenItRefusesTheEntry) {
    windows.event_log.takes_entries = false;
    report_host_service_down();
    EXPECT_TRUE(
        reads_in_order(of_reporting(), {"refused event log(category=1, 0xC000000E, \"\")", "[9] report_event(-1)"}));
    EXPECT_TRUE(reads(of_the_source(), {kRegistered, "DeregisterEventSource()"}));
}

TEST_F(EventLog, FailureIsTracedForAnEntryWithANumber) {
    windows.event_log.source_opens = false;
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",     "[8] report_event",
        "[9] report_event(-2)",     "[4] report_event_num called report_event with error #2",
        "[9] report_event_num(-3)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}

TEST_F(EventLog, FailureDoesNotChangeTheResultOfTheEntryPoint) {
    windows.event_log.source_opens = false;
    EXPECT_EQ(report_error(1450), failed(LINEERR_RESOURCEUNAVAIL));
}

// ---- a number that cannot be formatted ----------------------------------------------------------------------------

namespace {

int __cdecl formatting_fails(wchar_t*, size_t, const wchar_t*, ...) {
    return -1;
}

}  // namespace

TEST_F(EventLog, TakesAnEntryWithoutItsNumberWhenThatCannotBeFormatted) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_fails)));
    report_error(1450);
    EXPECT_TRUE(reads_in_order(
        of_reporting(), {"[8] report_event_num", "[4] report_event-num _sntprintf#1",
                         "event log(category=3, 0xC0000007, \"\")", "[9] report_event(0)", "[9] report_event_num(0)"}));
    EXPECT_TRUE(reads(event_log(), {"event log(category=3, 0xC0000007, \"\")"}));
}

TEST_F(EventLog, FailureIsTracedForAnEntryWithoutItsNumber) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_fails)));
    windows.event_log.source_opens = false;
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "[4] report_event-num _sntprintf#1",
        "[8] report_event",
        "[9] report_event(-2)",
        "[4] report_event_num called report_event with error #1",
        "[9] report_event_num(-2)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}
