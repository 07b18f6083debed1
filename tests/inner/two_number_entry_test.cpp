// An entry of the event log with two numbers.
#include "inner_fixture.h"

using namespace harness;

namespace {

class TwoNumberEntry : public InnerFixture {
  protected:
    int32_t report() { return report_event_num2(1, 0xC000000B, 10, 0xFFFFFFFF); }
};

// Of the numbers that are formatted, the one with this index, from 0, cannot be.
int failing_number;
int formatted_numbers;

int __cdecl format_all_but_one(wchar_t* text, size_t, const wchar_t*, ...) {
    text[0] = L'5';
    text[1] = L'\0';
    return formatted_numbers++ == failing_number ? -1 : 1;
}

class UnformattedNumber : public TwoNumberEntry {
  protected:
    int32_t report_without(int number) {
        Replacements more(module);
        EXPECT_TRUE(more.replace("_snwprintf", reinterpret_cast<void*>(format_all_but_one)));
        failing_number = number;
        formatted_numbers = 0;
        return report();
    }
};

View of_reporting() {
    return all_of(TRACE | EVENT_LOG).all_levels().only({"[<*>] report_event<*>", "<*>event log(<*>"});
}

Lines without_numbers(const char* reason) {
    return {
        "[8] report_event_num2",
        reason,
        "[8] report_event",
        "[4] report_event (ERROR): dwIdEvent= 0xC000000B, num_strings= 0x0, pszStrings= 0x0000000000000000 ",
        "[4] report_event (ERROR): pszStrings= NULL",
        "event log(category=1, 0xC000000B, \"\")",
        "[9] report_event(0)",
        "[9] report_event_num2(0)",
    };
}

}  // namespace

TEST_F(TwoNumberEntry, ShowsBothInHexadecimal) {
    EXPECT_EQ(report(), 0);
    const Lines expected = {
        "[8] report_event_num2",
        "[8] report_event",
        "[4] report_event (ERROR): dwIdEvent= 0xC000000B, num_strings= 0x2, pszStrings= 0x<*> ",
        "[4] report_event (ERROR): A FFFFFFFF",
        "event log(category=1, 0xC000000B, \"\", \"A\", \"FFFFFFFF\")",
        "[9] report_event(0)",
        "[9] report_event_num2(0)",
    };
    EXPECT_TRUE(reads(of_reporting(), expected));
}

TEST_F(TwoNumberEntry, FailsWhenTheLogTakesNoEntry) {
    windows.event_log.takes_entries = false;
    EXPECT_EQ(report(), -3);
    EXPECT_TRUE(reads_in_order(of_reporting(),
                               {"[9] report_event(-1)", "[4] report_event_num2 called report_event with error #3",
                                "[9] report_event_num2(-3)"}));
}

TEST_F(UnformattedNumber, LeavesBothOutWhenItIsTheFirst) {
    EXPECT_EQ(report_without(0), 0);
    EXPECT_EQ(formatted_numbers, 1);
    EXPECT_TRUE(reads(of_reporting(), without_numbers("[4] report_event-num2 _sntprintf#1")));
}

TEST_F(UnformattedNumber, LeavesBothOutWhenItIsTheSecond) {
    EXPECT_EQ(report_without(1), 0);
    EXPECT_TRUE(reads(of_reporting(), without_numbers("[4] report_event-num2 _sntprintf#2")));
}

TEST_F(UnformattedNumber, FailsWhenNotEvenTheRestCanBeWritten) {
    windows.event_log.source_opens = false;
    EXPECT_EQ(report_without(0), -1);
    EXPECT_TRUE(reads_in_order(of_reporting(),
                               {"[4] report_event-num2 _sntprintf#1", "[9] report_event(-2)",
                                "[4] report_event_num2 called report_event with error", "[9] report_event_num2(-1)"}));
    new_chapter();
    EXPECT_EQ(report_without(1), -2);
    EXPECT_TRUE(reads_in_order(
        of_reporting(), {"[4] report_event-num2 _sntprintf#2", "[9] report_event(-2)",
                         "[4] report_event_num2 called report_event with error #2", "[9] report_event_num2(-2)"}));
}
