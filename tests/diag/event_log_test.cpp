// The Windows event log, seen through the entry points that write to it: an entry without strings when the host service
// is down, one with a number when the event of the resets cannot be created.
#include <algorithm>

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
    return all_of(TRACE | EVENT_LOG | WINDOWS | NOTE)
        .all_levels()
        .only({"[<*>] report_event<*>", "[4] intNumCharscopied<*>", "[4] TempMsg<*>", "[4] StringArray<*>",
               "<*>event log(<*>", "RegisterEventSourceW<*>", "DeregisterEventSource<*>", "LoadStringW<*>",
               "_snwprintf<*>"});
}

const char* const kRegistered = "RegisterEventSourceW(null, \"Halvorsund Telephony Service Provider\")";

}  // namespace

TEST_F(EventLog, TakesAnEntryWithoutStrings) {
    report_host_service_down();
    const Lines expected = {
        "[8] report_event",
        kRegistered,
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC000000E, num_strings= 0x0, "
        "pszStrings= 0x0000000000000000 ",
        "[4] report_event (ERROR): pszStrings= NULL",
        "event log(category=1, 0xC000000E, \"\")",
        "DeregisterEventSource()",
        "[9] report_event(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
    EXPECT_EQ(windows.event_log.open_sources, 0);
}

TEST_F(EventLog, TakesAnEntryWithANumberInHexadecimal) {
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "[8] report_event",
        kRegistered,
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC0000007, num_strings= 0x1, "
        "pszStrings= 0x<*> ",
        "[4] report_event (ERROR): 5AA ",
        "event log(category=3, 0xC0000007, \"\", \"5AA\")",
        "DeregisterEventSource()",
        "[9] report_event(0)",
        "[9] report_event_num(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
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
    EXPECT_TRUE(reads(of_reporting(), {"[8] report_event", kRegistered, "[9] report_event(-2)"}));
}

TEST_F(EventLog, HasItsSourceClosedAlsoWhenItRefusesTheEntry) {
    windows.event_log.takes_entries = false;
    report_host_service_down();
    const Lines expected = {
        "[8] report_event",
        kRegistered,
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC000000E, num_strings= 0x0, pszStrings= 0x0000000000000000 ",
        "[4] report_event (ERROR): pszStrings= NULL",
        "refused event log(category=1, 0xC000000E, \"\")",
        "DeregisterEventSource()",
        "[9] report_event(-1)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}

TEST_F(EventLog, FailureIsTracedForAnEntryWithANumber) {
    windows.event_log.source_opens = false;
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "[8] report_event",
        kRegistered,
        "[9] report_event(-2)",
        "[4] report_event_num called report_event with error #2",
        "[9] report_event_num(-3)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}

TEST_F(EventLog, FailureDoesNotChangeTheResultOfTheEntryPoint) {
    windows.event_log.source_opens = false;
    EXPECT_EQ(report_error(1450), failed(LINEERR_RESOURCEUNAVAIL));
}

// ---- the first insertion ------------------------------------------------------------------------------------------

namespace {

// A module that has a string under every number.
int WINAPI load_string(HINSTANCE from, UINT id, LPWSTR buffer, int size) {
    note("LoadStringW(" + name_of(from) + text(", 0x%X, %d)", id, size));
    lstrcpyW(buffer, L"a string");
    return 8;
}

}  // namespace

TEST_F(EventLog, HasTheModulesStringOfTheEntrysIdInFront) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("LoadStringW", reinterpret_cast<void*>(load_string)));
    name_pointer(module, "MODULE");
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "[8] report_event",
        kRegistered,
        "LoadStringW(MODULE, 0xC0000007, 256)",
        "[4] intNumCharscopied =8",
        "[4] TempMsg =a string",
        "[4] StringArray[0] =a string",
        "[4] report_event (ERROR): dwIdEvent= 0xC0000007, num_strings= 0x1, pszStrings= 0x<*> ",
        "[4] report_event (ERROR): 5AA ",
        "event log(category=3, 0xC0000007, \"a string\", \"5AA\")",
        "DeregisterEventSource()",
        "[9] report_event(0)",
        "[9] report_event_num(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}

// ---- a number that cannot be formatted ----------------------------------------------------------------------------

namespace {

int __cdecl formatting_fails(wchar_t*, size_t size, const wchar_t* format, ...) {
    note(text("_snwprintf(%zu, ", size) + quoted(format) + ")");
    return -1;
}

// As the C runtime does with a text that just fits: no terminator behind it.
int __cdecl formatting_fills_the_buffer(wchar_t* buffer, size_t size, const wchar_t*, ...) {
    std::fill(buffer, buffer + size, L'F');
    return static_cast<int>(size);
}

}  // namespace

TEST_F(EventLog, TakesANumberThatFillsItsBuffer) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_fills_the_buffer)));
    report_error(1450);
    EXPECT_TRUE(reads(event_log(), {"event log(category=3, 0xC0000007, \"\", \"" + std::string(127, 'F') + "\")"}));
}

TEST_F(EventLog, TakesAnEntryWithoutItsNumberWhenThatCannotBeFormatted) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_fails)));
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "_snwprintf(127, \"%X\")",
        "[4] report_event-num _sntprintf#1",
        "[8] report_event",
        kRegistered,
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= 0xC0000007, num_strings= 0x0, pszStrings= 0x0000000000000000 ",
        "[4] report_event (ERROR): pszStrings= NULL",
        "event log(category=3, 0xC0000007, \"\")",
        "DeregisterEventSource()",
        "[9] report_event(0)",
        "[9] report_event_num(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}

TEST_F(EventLog, FailureIsTracedForAnEntryWithoutItsNumber) {
    Replacements more(module);
    ASSERT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(formatting_fails)));
    windows.event_log.source_opens = false;
    report_error(1450);
    const Lines expected = {
        "[8] report_event_num",
        "_snwprintf(127, \"%X\")",
        "[4] report_event-num _sntprintf#1",
        "[8] report_event",
        kRegistered,
        "[9] report_event(-2)",
        "[4] report_event_num called report_event with error #1",
        "[9] report_event_num(-2)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}
