// One fax transmission on a connected call: the board runs T.30, the provider sequences it, keeps the line's status and
// reports the end to the fax service, to the shared segment and to TAPI, in this order.
#include "diag/diag.h"
#include "fax/fax_thread.h"
#include "fax/page_header.h"
#include "fax/qorv_fax.h"

namespace {

constexpr char NAME[] = "Thread_Send_Fax";

KXResult fail(LineRec* pLine, const char* format, const DornFaxRecord& fax) {
    const KXResult result = result_of(fax);
    TRACE(TRACE_ERROR, format, DornErrorMessage(pLine->hChannel));
    return result;
}

void set_page_header(LineRec* pLine, const FaxParameters& parameters) {
    const bool has_text = parameters.szHeaderText[0] || parameters.szLocalId[0];
    if (parameters.dwAddHeader == 0 || !has_text) return;
    char text[HEADER_SIZE];
    build_page_header(text, parameters);
    DornFaxRecord fax{};
    fax.dwHeaderArgument1 = 0;
    fax.dwHeaderArgument2 = 2;
    fax.szHeaderText = text;
    DornFaxHeader(pLine->hChannel, &fax);
}

// A fresh packet for a call on the line's file.
DornFaxRecord file_packet(const LineRec* pLine) {
    DornFaxRecord fax{};
    fax.hTiff = pLine->hTiff;
    return fax;
}

void publish_remote_id(LineRec* pLine, const DornRemoteInfo& remoteInfo) {
    {
        const LineLock lock(pLine);
        store_remote_id(pLine, remoteInfo);
    }
    Send_CallDevSpecific(pLine, NOTIFY_PROGRESS, 0, 0);
}

// T.30 from the begin of the session to the end of the document. The first failing step ends it.
KXResult send_document(LineRec* pLine) {
    DornLine* channel = pLine->hChannel;
    prepare_channel_for_fax(pLine);

    DornFaxRecord fax = file_packet(pLine);
    DornFaxBeginSendTiff(channel, &fax);
    if (fax.status != KX_STATUS_OK) return fail(pLine, "LumFaxBeginSendTiff: %hs", fax);

    fax = {};
    DornFaxGetRemoteInfo(channel, &fax);
    if (fax.status != KX_STATUS_OK) return fail(pLine, "LumFaxGetRemoteInfo: %hs", fax);
    publish_remote_id(pLine, fax.remoteInfo);

    fax = {};
    DornFaxWaitForTraining(channel, &fax);
    if (fax.status != KX_STATUS_OK) return fail(pLine, "LumFaxWaitForTraining: %hs", fax);

    while (fax = file_packet(pLine), DornFaxNextPageTiff(channel, &fax) > 0) {
        fax = file_packet(pLine);
        DornFaxSendPageTiff(channel, &fax);
        if (fax.status != KX_STATUS_OK) return fail(pLine, "MyLumFaxSendPageTiff: %hs", fax);
    }
    // The loop goes by the call's result, its failure by the packet.
    if (fax.status != KX_STATUS_OK) return fail(pLine, "LumFaxNextPageTiff: %hs", fax);

    fax = {};
    if (DornFaxEndOfDocument(channel, &fax) < 0) return fail(pLine, "LumFaxEndOfDocument: %hs", fax);
    return result_of(fax);
}

}  // namespace

KXResult SendStraightTIFF(LineRec* pLine) {
    constexpr char name[] = "SendStraightTIFF";
    if (!pLine) {
        TRACE_NULL_LINE(name);
        return {KX_STATUS_ERROR, APIERR_DRV_OPEN_ERROR};
    }
    TRACE_ENTER(pLine, name);
    const KXResult result = send_document(pLine);
    TRACE_EXIT(pLine, name);
    return result;
}

namespace {

KXResult transmit(const FaxThreadArgs& args) {
    LineRec* pLine = args.pLine;
    {
        const LineLock lock(pLine);
        clear_fax_status(pLine);
    }
    install_report_handler(pLine, InterruptFromLUM);
    set_page_header(pLine, args.parameters);
    set_local_id(pLine, args.parameters.szLocalId);
    return SendStraightTIFF(pLine);
}

void report_end(LineRec* pLine, const KXResult& result) {
    const bool failed = result.status != KX_STATUS_OK;
    TRACE(TRACE_INFO, failed ? "Thread_Send_Fax -> Done, errors occurred" : "Thread_Send_Fax -> Done, no errors");
    Send_CallDevSpecific(pLine, NOTIFY_JOB_ENDED, result.status, result.line_status);
    TRACE(
        TRACE_INFO,
        "Thread_Send_Fax pLine->dwDeviceID = %d \nSend_CallDevSpecific res.status = 0x%x (%d), res.line_status = 0x%x "
        "(%d)",
        pLine->dwDeviceID, result.status, result.status, result.line_status, result.line_status);
    publish_result(pLine, result);
    report_disconnected(pLine, failed ? LINEDISCONNECTMODE_UNKNOWN : LINEDISCONNECTMODE_NORMAL);
}

}  // namespace

void __cdecl Thread_Send_Fax(void* args) {
    run_fax_thread(NAME, args, KXResult{KX_STATUS_ERROR, APIERR_UNCLASSIFIED}, transmit, report_end);
}
