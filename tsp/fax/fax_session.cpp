// What transmission and reception have in common: the board's session around the pages, and the end of a job.
#include <cstring>

#include "fax/qorv_fax.h"

void install_report_handler(LineRec* pLine, DornIncomingCmdFunc handler) {
    *DornLineIncomingCmdFuncAccess(pLine->hChannel) = handler;
}

void prepare_channel_for_fax(LineRec* pLine) {
    if (DornLineCapCheck(pLine->hChannel, CAPABILITY_FAX) == 0) pLine->hChannel->bOptions |= DORN_OPTION_FAX_SESSION;
}

void set_local_id(LineRec* pLine, const char* szLocalId) {
    DornFaxRecord fax{};
    fax.szLocalId = szLocalId;
    DornFaxSetLocalId(pLine->hChannel, &fax);
}

void clear_fax_status(LineRec* pLine) {
    pLine->FaxStatus = {};
    UpdateSharedMemory(pLine);
}

void store_remote_id(LineRec* pLine, const DornRemoteInfo& remoteInfo) {
    static_assert(sizeof pLine->FaxStatus.szRemoteId == sizeof remoteInfo.szStationId, "copied whole");
    memcpy(pLine->FaxStatus.szRemoteId, remoteInfo.szStationId, sizeof remoteInfo.szStationId);
    pLine->FaxStatus.bRemoteIdEnd = '\0';
    UpdateSharedMemory(pLine);
}

void publish_result(LineRec* pLine, const KXResult& result) {
    FaxStatusBlock* record = shared_record(pLine);
    if (!record) return;
    record->status = result.status;
    record->line_status = result.line_status;
}

void report_disconnected(LineRec* pLine, uint32_t mode) {
    SetCallState(pLine, LINECALLSTATE_DISCONNECTED, mode);
    send_numcalls(pLine);
}

LineIdentity end_fax_job(LineRec* pLine) {
    const LineLock lock(pLine);
    pLine->bFaxActive = 0;
    return identity_of(pLine);
}
