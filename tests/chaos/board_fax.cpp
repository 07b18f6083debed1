// Fax sessions of the board, and its reports during them.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "board_state.h"
#include "text.h"

namespace chaos {

using harness::text;

namespace {

struct Value {
    uint32_t tag;
    std::vector<uint8_t> bytes;
};

struct Report {
    DornReport head;
    std::vector<Value> values;
};

int next_value(DornReport* report, DornTaggedValue* value) {
    const std::vector<Value>& values = reinterpret_cast<Report*>(report)->values;
    if (value->dwCursor >= values.size()) return 0;
    const Value& next = values[value->dwCursor++];
    value->dwTag = next.tag;
    value->cbValue = static_cast<uint32_t>(next.bytes.size());
    value->pValue = next.bytes.data();
    return 1;
}

int32_t integer_of(const DornTaggedValue* value) {
    int32_t number = 0;
    std::memcpy(&number, value->pValue, std::min<size_t>(value->cbValue, sizeof number));
    return number;
}

// ---- reports ------------------------------------------------------------------------------------------------------

constexpr uint32_t SESSION_CLASS = 9, SESSION_TYPE = 8, FRAME = 5, PAGE_END = 6;
constexpr uint8_t MPS = 0x4E, EOP = 0x2E, DCS = 0x82, PPS = 0xBE;

Value frame_bytes(std::vector<uint8_t> bytes) {
    return {15, std::move(bytes)};
}

// Delivered on a thread of the driver's own, as soon as its turn comes.
void send_report(Channel& channel, uint32_t sub_code, std::vector<Value> values) {
    ++channel.reports_on_their_way;
    auto report = std::make_shared<Report>(Report{{SESSION_CLASS, SESSION_TYPE, sub_code}, std::move(values)});
    start_thread(text("a report of channel %u", channel.number), [&channel, report] {
        if (const DornIncomingCmdFunc handler = channel.handler)
            handler(channel.line, &report->head, channel.number + UNIT_OF_CHANNEL);
        --channel.reports_on_their_way;
    });
}

void await_reports(const Channel& channel) {
    wait(text("the reports of channel %u", channel.number), [&channel] { return channel.reports_on_their_way == 0; });
}

// The frames around a page, the last of which says whether more pages follow, and the page's end. They come one after
// the other; a page counts when the frame before its end has announced another one.
void report_page(Channel& channel, bool more_follow) {
    const uint8_t direction = static_cast<uint8_t>(chance().below(2));
    const auto report = [&](uint32_t sub_code, std::vector<Value> values) {
        send_report(channel, sub_code, std::move(values));
        await_reports(channel);
    };
    if (chance().percent(50)) report(FRAME, {{14, {direction}}, frame_bytes({0xFF, 0x13, DCS, 0x00, 0x78})});
    if (chance().percent(20)) report(FRAME, {{14, {direction}}, frame_bytes({0xFF})});
    if (chance().percent(20)) report(FRAME, {{77, {}}});
    const uint8_t command = more_follow ? MPS : EOP;
    const bool wrapped = chance().percent(50);
    report(FRAME, {{14, {direction, 0, 0, 0}},
                   frame_bytes(wrapped ? std::vector<uint8_t>{0xFF, 0x13, PPS, command}
                                       : std::vector<uint8_t>{0xFF, 0x13, command})});
    report(PAGE_END, {{20, {0}}});
    if (more_follow) ++channel.session.pages;
}

// ---- steps of a session -------------------------------------------------------------------------------------------

int finish(Channel& channel, DornFaxRecord* record, KXResult result) {
    record->status = result.status;
    record->line_status = result.line_status;
    channel.session.status = result.status;
    channel.session.line_status = result.line_status;
    return result.status == KX_STATUS_OK ? 0 : -1;
}

int end_session(Channel& channel, DornFaxRecord* record, KXResult result) {
    await_reports(channel);
    channel.in_session = channel.alert_kept = false;
    return finish(channel, record, result);
}

// Every step of a session takes some time; the first alert, failure or call without a session ends it. 0, or -1.
int step(DornLine* line, DornFaxRecord* record, const char* call) {
    Channel& channel = channel_of(line);
    if (!channel.in_session) return finish(channel, record, {KX_STATUS_ERROR, APIERR_NOTCONNECTED});
    const bool alerted = channel.alert_kept || lasts(channel, chance().below(5000), call);
    if (alerted) return end_session(channel, record, {KX_STATUS_ALERT, 0});
    if (!channel.in_session) return finish(channel, record, {KX_STATUS_ERROR, APIERR_BADSTATE});
    if (goes_wrong()) return end_session(channel, record, some_failure());
    return finish(channel, record, {KX_STATUS_OK, 0});
}

int begin(DornLine* line, DornFaxRecord* record) {
    Channel& channel = channel_of(line);
    const uint32_t number = channel.session.number + 1;
    channel.session = {};
    channel.session.number = number;
    if (goes_wrong()) return finish(channel, record, some_failure());
    channel.in_session = true;
    channel.alert_kept = false;
    channel.pages_left = chance().below(4);
    return step(line, record, "the begin of a session");
}

int remote_info(DornLine* line, DornFaxRecord* record) {
    const int result = step(line, record, "the far end's identification");
    Channel& channel = channel_of(line);
    if (result < 0) return result;
    DornRemoteInfo& info = record->remoteInfo;
    const std::string id = text("FAR END %u-%u", channel.number, channel.session.number);
    std::memset(info.szStationId, 0, sizeof info.szStationId);
    std::memcpy(info.szStationId, id.c_str(), std::min(sizeof info.szStationId, id.size()));
    if (chance().percent(30)) std::memset(info.szSecondId, chance().percent(50) ? ' ' : '7', sizeof info.szSecondId);
    channel.session.remote_id = id;
    return 0;
}

int training(DornLine* line, DornFaxRecord* record) {
    return step(line, record, "the training");
}

int next_page(DornLine* line, DornFaxRecord* record) {
    Channel& channel = channel_of(line);
    if (goes_wrong()) return end_session(channel, record, some_failure());
    finish(channel, record, {KX_STATUS_OK, 0});
    return channel.pages_left > 0 ? 1 : 0;
}

int send_page(DornLine* line, DornFaxRecord* record) {
    Channel& channel = channel_of(line);
    const int result = step(line, record, "a page");
    if (result < 0) return result;
    if (channel.pages_left > 0) --channel.pages_left;
    report_page(channel, channel.pages_left > 0);
    return 0;
}

int receive_page(DornLine* line, DornFaxRecord* record) {
    Channel& channel = channel_of(line);
    const int result = step(line, record, "a page");
    if (result < 0 || channel.pages_left == 0) return result;
    --channel.pages_left;
    report_page(channel, channel.pages_left > 0);
    return 1;
}

int end(DornLine* line, DornFaxRecord* record) {
    Channel& channel = channel_of(line);
    const int result = step(line, record, "the end of a session");
    await_reports(channel);
    channel.in_session = false;
    return result;
}

}  // namespace

void add_board_fax(Handlers& board) {
    auto good = [](DornLine* line, DornFaxRecord*) { return channel_of(line), 0; };
    board.DornFaxHeader = board.DornFaxSetLocalId = board.DornFaxSetReceiveFmt = good;
    board.DornFaxBeginSendTiff = board.DornFaxBeginReceive = begin;
    board.DornFaxGetRemoteInfo = remote_info;
    board.DornFaxWaitForTraining = training;
    board.DornFaxNextPageTiff = next_page;
    board.DornFaxSendPageTiff = send_page;
    board.DornFaxRcvPageTiff = receive_page;
    board.DornFaxEndOfDocument = board.DornFaxEndReception = end;
    board.DornGetTaggedValues = next_value;
    board.DornParseTaggedValueInt = integer_of;
}

}  // namespace chaos
