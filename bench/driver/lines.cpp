// The library, the lines and the calls of the benchmarks' board.
#include <cstdio>

#include "channel.h"

BenchBoard gBoard;
BenchChannel gChannels[BENCH_CHANNELS];

extern "C" {
uint32_t _dorn_api_ver_compiled;
uint32_t _dorn_api_ver_bld_comp;
uint32_t _dorn_api_ver_auto_comp;
uint32_t _dorn_pkt_version_exp;
}

namespace {

void make_channels(uint32_t count) {
    gBoard.channels = count;
    for (uint32_t unit = 0; unit < count; ++unit) {
        BenchChannel& channel = gChannels[unit];
        channel.unit = unit;
        if (!channel.wake) channel.wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    }
}

int64_t ring(uint32_t number) {
    BenchChannel& channel = gChannels[number];
    const int64_t before = ticks_now();
    AcquireSRWLockExclusive(&channel.lock);
    channel.rung = true;
    ReleaseSRWLockExclusive(&channel.lock);
    SetEvent(channel.wake);
    return before;
}

// Takes what has come; an alert first. KX_STATUS_TIMEOUT when nothing has.
uint32_t take(BenchChannel& channel) {
    if (channel.alerted) {
        channel.alerted = false;
        return KX_STATUS_ALERT;
    }
    if (channel.rung) {
        channel.rung = false;
        return KX_STATUS_OK;
    }
    return KX_STATUS_TIMEOUT;
}

template <size_t size>
void copy_text(char (&field)[size], const char* text) {
    std::snprintf(field, size, "%s", text);
}

}  // namespace

uint32_t wait_on(BenchChannel& channel, DWORD timeout) {
    AcquireSRWLockExclusive(&channel.lock);
    channel.waiting = true;
    uint32_t status = take(channel);
    while (status == KX_STATUS_TIMEOUT) {
        ReleaseSRWLockExclusive(&channel.lock);
        const bool timed_out = WaitForSingleObject(channel.wake, timeout) == WAIT_TIMEOUT;
        AcquireSRWLockExclusive(&channel.lock);
        status = take(channel);
        if (timed_out) break;
    }
    channel.waiting = false;
    ReleaseSRWLockExclusive(&channel.lock);
    return status;
}

extern "C" {

__declspec(dllexport) BenchBoard* bench_board() {
    gBoard.make_channels = make_channels;
    gBoard.ring = ring;
    gBoard.in_session = in_session;
    gBoard.end_page = end_page;
    return &gBoard;
}

int DornInitialize() {
    return 0;
}

void DornShutdown() {}

int DornModuleInfo(void*, DornModuleInfoRecord* record) {
    const bool present = record->dwModule == 2;
    record->status = present ? KX_STATUS_OK : KX_STATUS_ERROR;
    for (uint32_t& presence : record->dwPresence) presence = present;
    record->dwFirstChannel = 0;
    record->dwChannelCount = gBoard.channels;
    return 0;
}

DornLine* DornLineAttach(DornAttachRecord* record) {
    return record->dwChannel < gBoard.channels ? &gChannels[record->dwChannel].head : nullptr;
}

int DornSessionDetach(DornLine*, DornAttachRecord*) {
    return 0;
}

uint32_t DornLineUnitGet(DornLine* line) {
    return channel_of(line).unit;
}

int DornLineCapCheck(DornLine*, int) {
    return 1;
}

int DornLineAlert(DornAlertRecord* record) {
    BenchChannel& channel = gChannels[record->dwUnit];
    AcquireSRWLockExclusive(&channel.lock);
    const bool kept = channel.waiting;
    if (kept) channel.alerted = true;
    ReleaseSRWLockExclusive(&channel.lock);
    if (kept) SetEvent(channel.wake);
    return 0;
}

int DornLineReset(DornLine*, DornResetRecord*) {
    if (gBoard.reset_duration > 0) Sleep(gBoard.reset_duration);
    return 0;
}

uint32_t* DornLineStateAccess(DornLine* line) {
    return &channel_of(line).state;
}

DornIncomingCmdFunc* DornLineIncomingCmdFuncAccess(DornLine* line) {
    return &channel_of(line).handler;
}

const uint8_t* DornLineDcsGet(DornLine*) {
    static const uint8_t dcs[8] = {};
    return dcs;
}

const char* DornErrorMessage(DornLine*) {
    return "";
}

int DornLineWaitForCallISDN(DornLine* line, DornWaitForCallRecord* record) {
    record->status = wait_on(channel_of(line), record->dwTimeout > 0 ? record->dwTimeout : INFINITE);
    if (record->status == KX_STATUS_OK) {
        copy_text(record->callData.szCalledNumber, gBoard.called);
        copy_text(record->callData.szCallingNumber, gBoard.caller);
        copy_text(record->callData.szCallingName, gBoard.caller_name);
    }
    return 0;
}

int DornLineAnswerISDN(DornLine* line, DornLineResultRecord*) {
    channel_of(line).state = DORN_LINE_STATE_CONNECTED;
    return 0;
}

int DornLineTerminateCallISDN(DornLine* line, DornLineResultRecord*) {
    channel_of(line).state = 0;
    return 0;
}

int DornLineCCProtocolGet(DornLine*, DornProtocolRecord*) {
    return 0;
}

// No benchmark of this board places a call.
int DornCallSetup(DornLine*, DornCallRecord* record) {
    record->status = KX_STATUS_ERROR_DIAL;
    return 0;
}

int DornCallWaitForComplete(DornLine*, DornCallRecord* record) {
    record->status = KX_STATUS_ERROR_DIAL;
    return 0;
}

int DornCallWaitForRelease(DornLine*, DornCallRecord*) {
    return 0;
}
}
