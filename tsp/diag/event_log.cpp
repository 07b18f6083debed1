// The Windows event log: what an administrator must see. The event source is opened and closed for every entry.
#include <windows.h>

#include <cstdio>
#include <memory>
#include <type_traits>

#include "diag/diag.h"
#include "provider.h"

namespace {

constexpr wchar_t EVENT_SOURCE[] = L"Halvorsund Telephony Service Provider";
constexpr size_t NUMBER_LENGTH = 127;
constexpr int MAX_STRINGS = 2;

struct CloseEventSource {
    void operator()(HANDLE source) const { DeregisterEventSource(source); }
};
using EventSource = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseEventSource>;

const wchar_t* text_or_empty(const wchar_t* text) {
    return text ? text : L"";
}

// First insertion: the string resource under the event's ID. The resource numbers are other ones, so that in practice
// it is empty; the message texts count on its place.
void load_first_insertion(uint32_t event_id, wchar_t (&text)[256]) {
    const int count = LoadStringW(globals.ghInstance, event_id, text, 256);
    TRACE(TRACE_INFO, "intNumCharscopied =%d", count);
    TRACE(TRACE_INFO, "TempMsg =%ls", text);
}

void trace_insertions(uint16_t num_strings, const wchar_t** strings) {
    if (!strings) {
        TRACE(TRACE_INFO, "report_event (ERROR): pszStrings= NULL");
        return;
    }
    TRACE(TRACE_INFO, "report_event (ERROR): %ls %ls", text_or_empty(strings[0]),
          num_strings == 2 ? text_or_empty(strings[1]) : L"");
}

int32_t exit_with(const char* name, int32_t result) {
    TRACE(TRACE_FUNCTION_EXIT, "%s(%d)", name, result);
    return result;
}

// Upper-case hexadecimal without prefix, the form in which administrators know channel and error numbers.
bool format_number(wchar_t (&text)[NUMBER_LENGTH + 1], uint32_t number) {
    const int length = _snwprintf(text, NUMBER_LENGTH, L"%X", static_cast<unsigned>(number));
    text[NUMBER_LENGTH] = L'\0';
    return length >= 0;
}

}  // namespace

int32_t report_event(uint16_t category, uint32_t event_id, uint16_t num_strings, const wchar_t** strings) {
    TRACE(TRACE_FUNCTION_ENTER, "report_event");
    EventSource source(RegisterEventSourceW(nullptr, EVENT_SOURCE));
    if (!source) return exit_with("report_event", -2);

    wchar_t first[256] = {};
    load_first_insertion(event_id, first);
    const wchar_t* insertions[1 + MAX_STRINGS] = {first};
    for (uint16_t i = 0; i < num_strings && i < MAX_STRINGS; ++i) insertions[1 + i] = strings[i];
    TRACE(TRACE_INFO, "StringArray[0] =%ls", insertions[0]);
    TRACE(TRACE_INFO, "report_event (ERROR): dwIdEvent= 0x%X, num_strings= 0x%X, pszStrings= 0x%p ", event_id,
          num_strings, strings);
    trace_insertions(num_strings, strings);

    const BOOL written = ReportEventW(source.get(), EVENTLOG_ERROR_TYPE, category, event_id, nullptr,
                                      static_cast<WORD>(num_strings + 1), 0, insertions, nullptr);
    source.reset();
    return exit_with("report_event", written ? 0 : -1);
}

int32_t report_event_num(uint16_t category, uint32_t event_id, uint32_t number) {
    TRACE(TRACE_FUNCTION_ENTER, "report_event_num");
    wchar_t text[NUMBER_LENGTH + 1] = {};
    if (!format_number(text, number)) {
        TRACE(TRACE_INFO, "report_event-num _sntprintf#1");
        if (report_event(category, event_id, 0, nullptr) != 0) {
            TRACE(TRACE_INFO, "report_event_num called report_event with error #1");
            return exit_with("report_event_num", -2);
        }
        return exit_with("report_event_num", 0);
    }
    const wchar_t* strings[] = {text};
    if (report_event(category, event_id, 1, strings) != 0) {
        TRACE(TRACE_INFO, "report_event_num called report_event with error #2");
        return exit_with("report_event_num", -3);
    }
    return exit_with("report_event_num", 0);
}

int32_t report_event_num2(uint16_t category, uint32_t event_id, uint32_t number1, uint32_t number2) {
    TRACE(TRACE_FUNCTION_ENTER, "report_event_num2");
    wchar_t first[NUMBER_LENGTH + 1] = {};
    wchar_t second[NUMBER_LENGTH + 1] = {};
    if (!format_number(first, number1)) {
        TRACE(TRACE_INFO, "report_event-num2 _sntprintf#1");
        if (report_event(category, event_id, 0, nullptr) != 0) {
            TRACE(TRACE_INFO, "report_event_num2 called report_event with error");
            return exit_with("report_event_num2", -1);
        }
        return exit_with("report_event_num2", 0);
    }
    if (!format_number(second, number2)) {
        TRACE(TRACE_INFO, "report_event-num2 _sntprintf#2");
        if (report_event(category, event_id, 0, nullptr) != 0) {
            TRACE(TRACE_INFO, "report_event_num2 called report_event with error #2");
            return exit_with("report_event_num2", -2);
        }
        return exit_with("report_event_num2", 0);
    }
    const wchar_t* strings[] = {first, second};
    if (report_event(category, event_id, 2, strings) != 0) {
        TRACE(TRACE_INFO, "report_event_num2 called report_event with error #3");
        return exit_with("report_event_num2", -3);
    }
    return exit_with("report_event_num2", 0);
}

void report_no_memory(const char* caller) {
    if (report_event(EVENT_SYSTEM_FAILURE, EVENT_NO_MEMORY, 0, nullptr) != 0)
        TRACE(TRACE_INFO, "%s called report_event with error", caller);
}
