// Fax sessions and the log as the board behaves unless a test says otherwise.
#include <algorithm>
#include <cstring>

#include "default_behaviour.h"

namespace harness {

namespace {

// A step of a session: 0 and status good, or -1 and the alert that came since the step before, which ends the session.
int session_step(DornLine* line, DornFaxRecord* record) {
    Channel& channel = driver.channel_of(line);
    std::lock_guard<std::mutex> holding(world());
    if (!channel.alert_kept) return 0;
    record->status = KX_STATUS_ALERT;
    channel.fax_session = channel.alert_kept = false;
    return -1;
}

int session_begin(DornLine* line, DornFaxRecord*) {
    Channel& channel = driver.channel_of(line);
    std::lock_guard<std::mutex> holding(world());
    channel.fax_session = true;
    channel.pages_done = 0;
    return 0;
}

int session_end(DornLine* line, DornFaxRecord* record) {
    int result = session_step(line, record);
    driver.channel_of(line).fax_session = false;
    return result;
}

int remote_info(DornLine* line, DornFaxRecord* record) {
    const Channel& channel = driver.channel_of(line);
    DornRemoteInfo& info = record->remoteInfo;
    std::memcpy(info.szStationId, channel.remote_id.c_str(),
                std::min(sizeof(info.szStationId), channel.remote_id.size() + 1));
    std::memcpy(info.szSecondId, channel.second_id.c_str(),
                std::min(sizeof(info.szSecondId), channel.second_id.size() + 1));
    return session_step(line, record);
}

int page_of(DornLine* line, DornFaxRecord* record, int pages) {
    if (session_step(line, record) < 0) return -1;
    Channel& channel = driver.channel_of(line);
    if (channel.pages_done >= pages) return 0;
    ++channel.pages_done;
    return 1;
}

// Stands for the filter; only its address is used.
char filter_object;

}  // namespace

void add_usual_fax(ScriptedDriver::Handlers& usual) {
    auto good = [](DornLine*, DornFaxRecord*) { return 0; };
    usual.DornFaxHeader = usual.DornFaxSetLocalId = usual.DornFaxSetReceiveFmt = good;
    usual.DornFaxBeginSendTiff = usual.DornFaxBeginReceive = session_begin;
    usual.DornFaxGetRemoteInfo = remote_info;
    usual.DornFaxWaitForTraining = usual.DornFaxSendPageTiff = session_step;
    usual.DornFaxNextPageTiff = [](DornLine* line, DornFaxRecord* record) {
        return page_of(line, record, driver.channel_of(line).pages_to_send);
    };
    usual.DornFaxRcvPageTiff = [](DornLine* line, DornFaxRecord* record) {
        return page_of(line, record, driver.channel_of(line).pages_to_receive);
    };
    usual.DornFaxEndOfDocument = usual.DornFaxEndReception = session_end;
}

void add_usual_log(ScriptedDriver::Handlers& usual) {
    usual.QorvLogInitialized = [] { return static_cast<int>(driver.log_initialised); };
    usual.QorvLogInit = [](const char*, const char*, uint32_t, uint32_t) { return driver.log_initialised = true, 0; };
    usual.QorvLogFilterNew = [](const char*, const char*, uint32_t, uint32_t, uint32_t, uint32_t) {
        name_pointer(&filter_object, "FILTER");
        return driver.makes_filters ? reinterpret_cast<QorvLogFilter*>(&filter_object) : nullptr;
    };
    usual.QorvLogFilterAddSetting = [](QorvLogFilter*, int, const char*, int) {};
    usual.QorvLogAddFilter = [](uint32_t client, QorvLogFilter*) { driver.log_client = client; };
    usual.QorvLogFilterDelete = [](QorvLogFilter*) {};
    usual.QorvLogIsInterested = [](uint32_t, int level) {
        return static_cast<int>(driver.uninteresting_levels.count(level) == 0);
    };
    // Writing a line has a last error of its own: what the provider wants to know of its own it has read before.
    usual.QorvLogLogMsg = [](uint32_t, int, const char*, const char*, uint32_t) { SetLastError(ERROR_NO_MORE_ITEMS); };
}

}  // namespace harness
