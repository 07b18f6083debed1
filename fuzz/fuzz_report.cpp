#include <cstring>
#include <vector>

#include "board.h"
#include "dcs.h"
#include "fuzz.h"
#include "report.h"

namespace fuzz {

// The frame and the choices of the report that is being delivered.
static Input* current = nullptr;

static uint32_t any_number(Input& input) {
    uint32_t number = 0;
    for (int i = 0; i < 4; ++i) number = number << 8 | input.choose(256);
    return number;
}

static void check_value(const DornTaggedValue& value, const Input& frame) {
    switch (value.dwTag) {
        case softboard::TAG_FRAME:
            must(value.cbValue == frame.size() &&
                     (frame.size() == 0 || memcmp(value.pValue, frame.data(), frame.size()) == 0),
                 "a frame arrives as it was sent");
            break;
        case softboard::TAG_DIRECTION:
        case softboard::TAG_CONTINUING:
            must(value.cbValue == 4 && static_cast<uint32_t>(DornParseTaggedValueInt(&value)) <= 1,
                 "a number is one of those that it may be");
            break;
        default:
            must(false, "a report has the tags of a report");
    }
}

// Numbers of any size and any place within what is really there.
static void parse_anything(Input& input, const DornTaggedValue& given) {
    DornTaggedValue value = given;
    value.cbValue = input.choose(8);
    value.dwTag = any_number(input);
    if (value.cbValue > given.cbValue) value.pValue = nullptr;
    const int32_t number = DornParseTaggedValueInt(&value);
    const bool has_number = value.pValue != nullptr && (value.cbValue == 1 || value.cbValue == 2 || value.cbValue == 4);
    must(has_number || number == 0, "what is no number is 0");
    must(value.cbValue == 4 || (number >= 0 && number <= UINT16_MAX), "a short number has no sign");
}

static void handle(DornLine*, DornReport* report, uint32_t) {
    Input& input = *current;
    DornTaggedValue value{};
    size_t values = 0;
    for (; DornGetTaggedValues(report, &value) == 1; ++values) {
        check_value(value, input);
        parse_anything(input, value);
    }
    must(values == (report->dwSubCode == softboard::REPORT_FRAME ? 2 : 1), "every value is given once");

    // Cursors that were never given out, and reports that are none.
    for (unsigned tries = input.choose(4); tries != 0; --tries) {
        DornTaggedValue broken{any_number(input), any_number(input), any_number(input), any_number(input), report};
        const uint32_t cursor = broken.dwCursor;
        const bool found = DornGetTaggedValues(report, &broken) == 1;
        must(found == (cursor < values), "a cursor is followed while there are values");
        if (found) check_value(broken, input);
    }
    DornReport copy = *report;
    DornTaggedValue none{};
    must(DornGetTaggedValues(&copy, &none) == 0, "a copy of a report has no values");
    if (input.choose(8) == 0) throw std::bad_alloc();
}

static softboard::Report any_report(Input& input) {
    const bool flag = input.choose(2) != 0;
    if (input.choose(8) == 0) return softboard::end_of_page_report(flag);
    return softboard::frame_report(flag, input.data(), input.size());
}

void report(const uint8_t* data, size_t size) {
    Input input(data, size);
    current = &input;
    softboard::Channel channel;
    softboard::Line line;
    line.channel = &channel;
    line.handler = input.choose(16) == 0 ? nullptr : handle;
    softboard::Report report = any_report(input);
    softboard::deliver(line, report);

    const bool dcs = report.head.dwSubCode == softboard::REPORT_FRAME && softboard::is_dcs(input.data(), input.size());
    const uint8_t rate = line.dcs[softboard::DCS_RATE_AT];
    must(rate <= 7, "a rate has an index");
    must(!dcs || line.dcs[softboard::DCS_RATE_AT + 1] == input.data()[softboard::DCS_FIRST_BYTE], "the DCS is kept");
    DornTaggedValue value{};
    must(DornGetTaggedValues(&report.head, &value) == 0, "a report has values only while it is delivered");
}

}  // namespace fuzz
