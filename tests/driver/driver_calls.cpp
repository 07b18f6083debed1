#include "driver_calls.h"

#include <algorithm>
#include <cstring>

#include "scripted_driver.h"
#include "text.h"

namespace harness {

namespace {

struct Span {
    size_t offset, size;
};

// A field of a record that the caller gives; everything outside such fields has to be zero.
#define GIVEN(record, field)                           \
    Span {                                             \
        offsetof(record, field), sizeof(record::field) \
    }

// "CHAN4" for a board object of channel 4.
std::string channel_name(DornLine* line) {
    return text("CHAN%u", driver.channel_of(line).number);
}

// A copy of the record, after the check that only the given fields are set.
template <class Record>
std::vector<uint8_t> copied(const char* function, const Record* record, std::initializer_list<Span> given) {
    auto* bytes = reinterpret_cast<const uint8_t*>(record);
    std::vector<uint8_t> copy(bytes, bytes + sizeof(Record));
    for (size_t i = 0; i < copy.size(); ++i) {
        bool is_given = std::any_of(given.begin(), given.end(),
                                    [&](const Span& span) { return i >= span.offset && i < span.offset + span.size; });
        if (!is_given && copy[i] != 0) {
            problem(text("%s: the record was not cleared at byte %zu", function, i));
            break;
        }
    }
    return copy;
}

std::string escaped(const void* data, size_t size) {
    auto* bytes = static_cast<const uint8_t*>(data);
    std::string shown;
    for (size_t i = 0; i < size; ++i)
        shown += bytes[i] >= ' ' && bytes[i] < 0x7F ? std::string(1, static_cast<char>(bytes[i]))
                                                    : text("\\x%02X", bytes[i]);
    return '"' + shown + '"';
}

std::string extra_tags(const DornFaxRecord* record) {
    std::string shown;
    for (uint32_t i = 0; i < record->dwExtraTagCount; ++i) {
        const DornExtraTag& tag = record->extraTags[i];
        shown += text(", %u:%u[%u] ", tag.tag, tag.type, tag.count) + escaped(tag.value, tag.count);
    }
    return shown;
}

// The calls that take nothing but the line, or the line and its record.
Entry of_line(Kind kind, const char* name, DornLine* line) {
    return {kind, text("%s(%s)", name, channel_name(line).c_str())};
}

template <class Record>
Entry of_record(const char* name, DornLine* line, const Record* record) {
    return {DRIVER, text("%s(%s)", name, channel_name(line).c_str()), copied(name, record, {})};
}

Entry of_page(const char* name, DornLine* line, const DornFaxRecord* record) {
    return {DRIVER, text("%s(%s, ", name, channel_name(line).c_str()) + pointer_text(record->hTiff) + ")",
            copied(name, record, {GIVEN(DornFaxRecord, hTiff)})};
}

}  // namespace

Entry describeDornInitialize() {
    return {DRIVER, "DornInitialize()"};
}

Entry describeDornShutdown() {
    return {DRIVER, "DornShutdown()"};
}

Entry describeDornModuleInfo(void* null, DornModuleInfoRecord* record) {
    if (null) problem("DornModuleInfo: the first argument is not null");
    return {DRIVER, text("DornModuleInfo(%u)", record->dwModule),
            copied("DornModuleInfo", record, {GIVEN(DornModuleInfoRecord, dwModule)})};
}

Entry describeDornLineAttach(DornAttachRecord* record) {
    return {DRIVER, text("DornLineAttach(channel=%u)", record->dwChannel),
            copied("DornLineAttach", record, {GIVEN(DornAttachRecord, dwChannel)})};
}

Entry describeDornSessionDetach(DornLine* line, DornAttachRecord* record) {
    return of_record("DornSessionDetach", line, record);
}

Entry describeDornLineUnitGet(DornLine* line) {
    return of_line(DRIVER_QUERY, "DornLineUnitGet", line);
}

Entry describeDornLineCapCheck(DornLine* line, int capability) {
    return {DRIVER, text("DornLineCapCheck(%s, %d)", channel_name(line).c_str(), capability)};
}

Entry describeDornLineAlert(DornAlertRecord* record) {
    return {DRIVER, text("DornLineAlert(unit=%u)", record->dwUnit),
            copied("DornLineAlert", record, {GIVEN(DornAlertRecord, dwUnit)})};
}

Entry describeDornLineReset(DornLine* line, DornResetRecord* record) {
    return {DRIVER, text("DornLineReset(%s, ", channel_name(line).c_str()) + quoted(record->szConfiguration) + ")",
            copied("DornLineReset", record, {GIVEN(DornResetRecord, szConfiguration)})};
}

Entry describeDornLineWaitForCallISDN(DornLine* line, DornWaitForCallRecord* record) {
    return {DRIVER, text("DornLineWaitForCallISDN(%s, timeout=%u)", channel_name(line).c_str(), record->dwTimeout),
            copied("DornLineWaitForCallISDN", record, {GIVEN(DornWaitForCallRecord, dwTimeout)})};
}

Entry describeDornLineAnswerISDN(DornLine* line, DornLineResultRecord* record) {
    return of_record("DornLineAnswerISDN", line, record);
}

Entry describeDornLineTerminateCallISDN(DornLine* line, DornLineResultRecord* record) {
    return of_record("DornLineTerminateCallISDN", line, record);
}

Entry describeDornLineCCProtocolGet(DornLine* line, DornProtocolRecord* record) {
    return of_record("DornLineCCProtocolGet", line, record);
}

Entry describeDornCallSetup(DornLine* line, DornCallRecord* record) {
    if (record->dwKind != 4) problem("DornCallSetup: the kind is not 4");
    return {DRIVER, text("DornCallSetup(%s, ", channel_name(line).c_str()) + quoted(record->szDialString) + ")",
            copied("DornCallSetup", record, {GIVEN(DornCallRecord, dwKind), GIVEN(DornCallRecord, szDialString)})};
}

Entry describeDornCallWaitForComplete(DornLine* line, DornCallRecord* record) {
    if (record->dwKind != 4) problem("DornCallWaitForComplete: the kind is not 4");
    return {
        DRIVER, text("DornCallWaitForComplete(%s, timeout=%u)", channel_name(line).c_str(), record->dwTimeout),
        copied("DornCallWaitForComplete", record, {GIVEN(DornCallRecord, dwKind), GIVEN(DornCallRecord, dwTimeout)})};
}

Entry describeDornCallWaitForRelease(DornLine* line, DornCallRecord* record) {
    return of_record("DornCallWaitForRelease", line, record);
}

Entry describeDornLineStateAccess(DornLine* line) {
    return of_line(DRIVER_QUERY, "DornLineStateAccess", line);
}

Entry describeDornLineIncomingCmdFuncAccess(DornLine* line) {
    return of_line(DRIVER_QUERY, "DornLineIncomingCmdFuncAccess", line);
}

Entry describeDornLineDcsGet(DornLine* line) {
    return of_line(DRIVER_QUERY, "DornLineDcsGet", line);
}

Entry describeDornErrorMessage(DornLine* line) {
    return of_line(DRIVER, "DornErrorMessage", line);
}

Entry describeDornGetTaggedValues(DornReport*, DornTaggedValue*) {
    return {DRIVER_QUERY, "DornGetTaggedValues()"};
}

Entry describeDornParseTaggedValueInt(const DornTaggedValue* value) {
    return {DRIVER_QUERY, text("DornParseTaggedValueInt(tag=%u)", value->dwTag)};
}

Entry describeDornFaxHeader(DornLine* line, DornFaxRecord* record) {
    return {DRIVER,
            text("DornFaxHeader(%s, %u, %u, ", channel_name(line).c_str(), record->dwHeaderArgument1,
                 record->dwHeaderArgument2) +
                quoted(record->szHeaderText) + ")",
            copied("DornFaxHeader", record,
                   {GIVEN(DornFaxRecord, dwHeaderArgument1), GIVEN(DornFaxRecord, dwHeaderArgument2),
                    GIVEN(DornFaxRecord, szHeaderText)})};
}

Entry describeDornFaxSetLocalId(DornLine* line, DornFaxRecord* record) {
    return {DRIVER, text("DornFaxSetLocalId(%s, ", channel_name(line).c_str()) + quoted(record->szLocalId) + ")",
            copied("DornFaxSetLocalId", record, {GIVEN(DornFaxRecord, szLocalId)})};
}

Entry describeDornFaxSetReceiveFmt(DornLine* line, DornFaxRecord* record) {
    return {DRIVER, text("DornFaxSetReceiveFmt(%s, %u)", channel_name(line).c_str(), record->dwReceiveFormat),
            copied("DornFaxSetReceiveFmt", record, {GIVEN(DornFaxRecord, dwReceiveFormat)})};
}

Entry describeDornFaxBeginSendTiff(DornLine* line, DornFaxRecord* record) {
    return of_page("DornFaxBeginSendTiff", line, record);
}

Entry describeDornFaxGetRemoteInfo(DornLine* line, DornFaxRecord* record) {
    return of_record("DornFaxGetRemoteInfo", line, record);
}

Entry describeDornFaxWaitForTraining(DornLine* line, DornFaxRecord* record) {
    return of_record("DornFaxWaitForTraining", line, record);
}

Entry describeDornFaxSendPageTiff(DornLine* line, DornFaxRecord* record) {
    return of_page("DornFaxSendPageTiff", line, record);
}

Entry describeDornFaxNextPageTiff(DornLine* line, DornFaxRecord* record) {
    return of_page("DornFaxNextPageTiff", line, record);
}

Entry describeDornFaxEndOfDocument(DornLine* line, DornFaxRecord* record) {
    return of_record("DornFaxEndOfDocument", line, record);
}

Entry describeDornFaxBeginReceive(DornLine* line, DornFaxRecord* record) {
    return of_record("DornFaxBeginReceive", line, record);
}

Entry describeDornFaxEndReception(DornLine* line, DornFaxRecord* record) {
    return of_record("DornFaxEndReception", line, record);
}

Entry describeDornFaxRcvPageTiff(DornLine* line, DornFaxRecord* record) {
    return {
        DRIVER,
        text("DornFaxRcvPageTiff(%s, ", channel_name(line).c_str()) + pointer_text(record->hTiff) + extra_tags(record) +
            ")",
        copied("DornFaxRcvPageTiff", record,
               {GIVEN(DornFaxRecord, hTiff), GIVEN(DornFaxRecord, extraTags), GIVEN(DornFaxRecord, dwExtraTagCount)})};
}

Entry describeDornTiffOpen(DornTiffRecord* record) {
    return {DRIVER, "DornTiffOpen(" + quoted(record->szPath) + ", " + quoted(record->szMode) + ")",
            copied("DornTiffOpen", record, {GIVEN(DornTiffRecord, szPath), GIVEN(DornTiffRecord, szMode)})};
}

Entry describeDornTiffClose(DornTiffRecord* record) {
    return {DRIVER, "DornTiffClose(" + pointer_text(record->hTiff) + ")",
            copied("DornTiffClose", record, {GIVEN(DornTiffRecord, hTiff)})};
}

Entry describeDornTiffReadIFD(DornTiffRecord* record) {
    if (!record->tagCallback) problem("DornTiffReadIFD: no callback");
    return {DRIVER,
            "DornTiffReadIFD(" + pointer_text(record->hTiff) +
                text(", 0x%llX)", static_cast<unsigned long long>(record->qwCallerValue)),
            copied("DornTiffReadIFD", record,
                   {GIVEN(DornTiffRecord, hTiff), GIVEN(DornTiffRecord, tagCallback),
                    GIVEN(DornTiffRecord, qwCallerValue)})};
}

Entry describeDornTiffWriteImage(DornTiffRecord* record) {
    std::string image = record->imageData ? escaped(record->imageData, record->cbImage) : "end";
    return {DRIVER, "DornTiffWriteImage(" + pointer_text(record->hTiff) + ", " + image + ")",
            copied("DornTiffWriteImage", record,
                   {GIVEN(DornTiffRecord, hTiff), GIVEN(DornTiffRecord, imageData), GIVEN(DornTiffRecord, cbImage)})};
}

Entry describeDornTiffWriteRes(DornTiffRecord* record) {
    return {DRIVER, "DornTiffWriteRes(" + pointer_text(record->hTiff) + text(", %u)", record->dwResolution),
            copied("DornTiffWriteRes", record, {GIVEN(DornTiffRecord, hTiff), GIVEN(DornTiffRecord, dwResolution)})};
}

Entry describeDornTiffWriteIFD(DornTiffRecord* record) {
    const DornTiffEntry* entry = record->entry;
    std::string shown = entry ? text("%u:%u[%u] 0x%X", entry->tag, entry->type, entry->count, entry->value) : "end";
    return {DRIVER, "DornTiffWriteIFD(" + pointer_text(record->hTiff) + ", " + shown + ")",
            copied("DornTiffWriteIFD", record, {GIVEN(DornTiffRecord, hTiff), GIVEN(DornTiffRecord, entry)})};
}

Entry describe_mdll_fseek(void* stream, long offset, int origin) {
    return {DRIVER, "_mdll_fseek(" + pointer_text(stream) + text(", %ld, %d)", offset, origin)};
}

Entry describe_mdll_ftell(void* stream) {
    return {DRIVER, "_mdll_ftell(" + pointer_text(stream) + ")"};
}

Entry describe_mdll_fwrite(const void* data, size_t size, size_t count, void* stream) {
    return {DRIVER, "_mdll_fwrite(" + pointer_text(stream) + ", " + escaped(data, size * count) + ")"};
}

Entry describeQorvLogInitialized() {
    return {DRIVER_LOG, "QorvLogInitialized()"};
}

Entry describeQorvLogInit(const char* component, const char* null, uint32_t zero, uint32_t one) {
    return {DRIVER_LOG, "QorvLogInit(" + quoted(component) + ", " + quoted(null) + text(", %u, %u)", zero, one)};
}

Entry describeQorvLogFilterNew(const char* component, const char* filter, uint32_t one, uint32_t zero1, uint32_t zero2,
                               uint32_t zero3) {
    return {DRIVER_LOG, "QorvLogFilterNew(" + quoted(component) + ", " + quoted(filter) +
                            text(", %u, %u, %u, %u)", one, zero1, zero2, zero3)};
}

Entry describeQorvLogFilterAddSetting(QorvLogFilter* filter, int level, const char* name, int on) {
    return {DRIVER_LOG, "QorvLogFilterAddSetting(" + pointer_text(filter) + text(", %d, ", level) + quoted(name) +
                            text(", %d)", on)};
}

Entry describeQorvLogAddFilter(uint32_t, QorvLogFilter* filter) {
    return {DRIVER_LOG, "QorvLogAddFilter(" + pointer_text(filter) + ")"};
}

Entry describeQorvLogFilterDelete(QorvLogFilter* filter) {
    return {DRIVER_LOG, "QorvLogFilterDelete(" + pointer_text(filter) + ")"};
}

Entry describeQorvLogIsInterested(uint32_t, int level) {
    return {DRIVER_QUERY, text("QorvLogIsInterested(%d)", level)};
}

// A trace line: the stamp in front is checked and taken off.
Entry describeQorvLogLogMsg(uint32_t client, int level, const char* line, const char* sourceFile, uint32_t sourceLine) {
    std::string stamp = text("P-0x%06lX:T-0x%06lX: ", GetCurrentProcessId(), GetCurrentThreadId());
    std::string whole = line;
    if (whole.compare(0, stamp.size(), stamp) != 0) {
        problem("a trace line without its stamp " + stamp + ": " + whole);
        stamp.clear();
    }
    if (level != 1 && client != driver.log_client) problem("a trace line under another client: " + whole);
    if (!sourceFile || sourceLine == 0) problem("a trace line without its place: " + whole);
    return {TRACE, whole.substr(stamp.size()), {}, level, sourceFile ? sourceFile : "", sourceLine};
}

}  // namespace harness
