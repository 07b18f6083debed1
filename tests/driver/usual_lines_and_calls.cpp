// Modules, lines and calls as the board behaves unless a test says otherwise.
#include <algorithm>
#include <cstring>

#include "default_behaviour.h"
#include "text.h"

namespace harness {

namespace {

// Fills a text field of a record; the rest of the field stays as it is.
template <size_t N>
void fill(char (&field)[N], const std::string& text) {
    std::memcpy(field, text.c_str(), std::min(N, text.size() + 1));
}

int module_info(void*, DornModuleInfoRecord* record) {
    auto module = std::find_if(driver.modules.begin(), driver.modules.end(),
                               [&](const Module& known) { return known.number == record->dwModule; });
    if (module == driver.modules.end()) {
        record->status = KX_STATUS_ERROR;
        return -1;
    }
    record->status = module->status;
    std::copy(module->presence, module->presence + 3, record->dwPresence);
    record->dwFirstChannel = module->first_channel;
    record->dwChannelCount = module->channel_count;
    return 0;
}

DornLine* line_attach(DornAttachRecord* record) {
    return driver.channel(record->dwChannel).attaches ? driver.attach(record->dwChannel) : nullptr;
}

int line_reset(DornLine* line, DornResetRecord* record) {
    driver.alerts_are_answered(driver.channel_of(line));
    record->status = driver.channel_of(line).reset_status;
    return driver.channel_of(line).reset_result;
}

int wait_for_call(DornLine* line, DornWaitForCallRecord* record) {
    Channel& channel = driver.channel_of(line);
    channel.waiting_for_call = true;
    bool alerted = driver.block(channel, [&] { return !channel.wait_results.empty(); });
    WaitResult result = {KX_STATUS_ALERT, 0, {}};
    {
        std::lock_guard<std::mutex> holding(world());
        channel.waiting_for_call = false;
        if (alerted) channel.alerted_thread = GetCurrentThreadId();
        if (!alerted && !channel.wait_results.empty()) {
            result = channel.wait_results.front();
            channel.wait_results.pop_front();
        }
    }
    record->status = result.status;
    record->line_status = result.line_status;
    fill(record->callData.szCalledNumber, result.call.called);
    fill(record->callData.szSecondCalled, result.call.second_called);
    fill(record->callData.szCallingNumber, result.call.calling);
    fill(record->callData.szCallingName, result.call.calling_name);
    fill(record->callData.szInformation, result.call.information);
    return 0;
}

int call_setup(DornLine* line, DornCallRecord* record) {
    record->status = driver.channel_of(line).setup_status;
    record->cause = driver.channel_of(line).setup_cause;
    return 0;
}

int call_wait_for_complete(DornLine* line, DornCallRecord* record) {
    record->status = driver.channel_of(line).complete_status;
    record->cause = driver.channel_of(line).complete_cause;
    return 0;
}

int call_wait_for_release(DornLine*, DornCallRecord* record) {
    record->status = KX_STATUS_OK;
    return 0;
}

int protocol_get(DornLine* line, DornProtocolRecord* record) {
    record->dwProtocol = driver.channel_of(line).protocol;
    return 0;
}

int tagged_values(DornReport* report, DornTaggedValue* value) {
    const std::vector<Tag>& tags = reinterpret_cast<ScriptedReport*>(report)->tags;
    if (value->dwCursor >= tags.size()) return 0;
    const Tag& tag = tags[value->dwCursor++];
    value->dwTag = tag.tag;
    value->cbValue = static_cast<uint32_t>(tag.bytes.size());
    value->pValue = tag.bytes.data();
    return 1;
}

int32_t tagged_int(const DornTaggedValue* value) {
    int32_t number = 0;
    std::memcpy(&number, value->pValue, std::min<size_t>(value->cbValue, sizeof(number)));
    return number;
}

}  // namespace

void add_usual_lines(ScriptedDriver::Handlers& usual) {
    usual.DornInitialize = [] { return ++driver.initialisations, 0; };
    usual.DornShutdown = [] { --driver.initialisations; };
    usual.DornModuleInfo = module_info;
    usual.DornLineAttach = line_attach;
    usual.DornSessionDetach = [](DornLine* line, DornAttachRecord*) { return driver.detach(line), 0; };
    usual.DornLineUnitGet = [](DornLine* line) { return driver.channel_of(line).unit; };
    usual.DornLineCapCheck = [](DornLine* line, int capability) {
        return static_cast<int>(driver.channel_of(line).capabilities.count(capability));
    };
    usual.DornLineAlert = [](DornAlertRecord* record) { return driver.alert(record->dwUnit), 0; };
    usual.DornLineReset = line_reset;
    usual.DornLineStateAccess = [](DornLine* line) { return &driver.channel_of(line).line_state; };
    usual.DornLineIncomingCmdFuncAccess = [](DornLine* line) { return &driver.channel_of(line).handler; };
    usual.DornLineDcsGet = [](DornLine* line) -> const uint8_t* { return driver.channel_of(line).dcs; };
    usual.DornErrorMessage = [](DornLine* line) { return driver.channel_of(line).error_text.c_str(); };
}

void add_usual_calls(ScriptedDriver::Handlers& usual) {
    usual.DornLineWaitForCallISDN = wait_for_call;
    usual.DornLineAnswerISDN = [](DornLine*, DornLineResultRecord*) { return 0; };
    usual.DornLineTerminateCallISDN = [](DornLine*, DornLineResultRecord*) { return 0; };
    usual.DornLineCCProtocolGet = protocol_get;
    usual.DornCallSetup = call_setup;
    usual.DornCallWaitForComplete = call_wait_for_complete;
    usual.DornCallWaitForRelease = call_wait_for_release;
    usual.DornGetTaggedValues = tagged_values;
    usual.DornParseTaggedValueInt = tagged_int;
}

}  // namespace harness
