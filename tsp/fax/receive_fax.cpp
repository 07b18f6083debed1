// One fax reception on an answered call, page by page into the file that the fax service has opened. The first page
// gets a provisional stamp, which is corrected when the file is closed after a failed job.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "diag/diag.h"
#include "fax/fax_thread.h"
#include "fax/qorv_fax.h"

namespace {

constexpr char NAME[] = "Thread_Receive_Fax";
constexpr uint32_t RECEIVE_FORMAT = 19;
constexpr size_t MAX_NUMBER = 255;  // characters of a number in the status

struct Reception {
    KXResult result;
    bool failed;
};

void trace_error_text(LineRec* pLine, const char* format) {
    TRACE(TRACE_ERROR, format, DornErrorMessage(pLine->hChannel));
}

// Converts to UTF-16, at most `limit` characters; returns how many.
size_t to_utf16(wchar_t* destination, const char* source, size_t limit) {
    const size_t converted = mbstowcs(destination, source, limit);
    return converted == static_cast<size_t>(-1) ? 0 : converted;
}

// ---- the status ---------------------------------------------------------------------------------------------------

// Starts the status with the numbers of the call; returns the length of the called number in it.
size_t publish_numbers(LineRec* pLine) {
    const LineLock lock(pLine);
    clear_fax_status(pLine);
    if (!pLine->szCalledID[0] && !pLine->szCallerID[0]) return 0;
    const size_t called_length = to_utf16(pLine->FaxStatus.wszCalledId, pLine->szCalledID, MAX_NUMBER);
    to_utf16(pLine->FaxStatus.wszCallerId, pLine->szCallerID, MAX_NUMBER);
    UpdateSharedMemory(pLine);
    // Under the lock, unlike every other notification.
    Send_CallDevSpecific(pLine, NOTIFY_PROGRESS, 0, 0);
    return called_length;
}

// Puts the remote station's second identification text behind the called number.
void append_second_id(LineRec* pLine, const DornRemoteInfo& remoteInfo, size_t called_length) {
    char text[sizeof remoteInfo.szSecondId + 1] = {};
    memcpy(text, remoteInfo.szSecondId, sizeof remoteInfo.szSecondId);
    if (!text[0]) return;
    const char* id = text + strspn(text, " ");
    const size_t room = MAX_NUMBER - called_length;
    if (room <= strlen(id)) return;
    wchar_t* end = pLine->FaxStatus.wszCalledId + called_length;
    end[0] = L'|';
    end[1] = L'\0';
    to_utf16(end + 1, id, room);
    UpdateSharedMemory(pLine);
}

void publish_remote_station(LineRec* pLine, const DornRemoteInfo& remoteInfo, size_t called_length) {
    {
        const LineLock lock(pLine);
        store_remote_id(pLine, remoteInfo);
        append_second_id(pLine, remoteInfo, called_length);
    }
    Send_CallDevSpecific(pLine, NOTIFY_PROGRESS, 0, 0);
}

// ---- the session --------------------------------------------------------------------------------------------------

// What the driver puts into the first page's directory: the provisional stamp, and the routing text if there is one.
class FirstPageTags {
  public:
    explicit FirstPageTags(const LineRec* pLine) {
        format_stamp(stamp, FS_COMPLETED);
        tags[count++] = {TIFFTAG_SOFTWARE, TIFF_ASCII, STAMP_SIZE, stamp};
        if (!pLine->szRoutingInfo[0]) return;
        const auto size = static_cast<uint32_t>(strlen(pLine->szRoutingInfo) + 1);
        tags[count++] = {TIFFTAG_TARGETPRINTER, TIFF_ASCII, size, pLine->szRoutingInfo};
    }
    void attach_to(DornFaxRecord& fax) const {
        fax.extraTags = tags;
        fax.dwExtraTagCount = count;
    }

  private:
    char stamp[STAMP_SIZE];
    DornExtraTag tags[2];
    uint32_t count = 0;
};

void set_receive_format(LineRec* pLine) {
    DornFaxRecord fax{};
    fax.dwReceiveFormat = RECEIVE_FORMAT;
    DornFaxSetReceiveFmt(pLine->hChannel, &fax);
}

// The end of the session; false when the driver reports a failure.
bool end_session(LineRec* pLine, KXResult* result) {
    DornFaxRecord fax{};
    const bool good = DornFaxEndReception(pLine->hChannel, &fax) >= 0;
    if (!good) trace_error_text(pLine, "LumFaxEndReception: %hs");
    *result = result_of(fax);
    return good;
}

Reception receive_pages(LineRec* pLine) {
    KXResult result;
    const FirstPageTags first_page_tags(pLine);
    int more;
    uint32_t page = 0;
    do {
        DornFaxRecord fax{};
        fax.hTiff = pLine->hTiff;
        if (page == 0) first_page_tags.attach_to(fax);
        more = DornFaxRcvPageTiff(pLine->hChannel, &fax);
        result = result_of(fax);
        ++page;
    } while (more > 0);

    if (more < 0) {
        trace_error_text(pLine, "LumFaxRcvPageTiff: %hs");
        KXResult of_end;  // the job's result stays that of the page
        end_session(pLine, &of_end);
        return {result, true};
    }
    const bool ended = end_session(pLine, &result);
    return {result, !ended};
}

// T.30 from the begin of the session to its end. The first failing step ends it.
Reception receive_document(LineRec* pLine, const char* szLocalId, size_t called_length) {
    DornLine* channel = pLine->hChannel;
    prepare_channel_for_fax(pLine);
    set_receive_format(pLine);
    set_local_id(pLine, szLocalId);

    DornFaxRecord fax{};
    if (DornFaxBeginReceive(channel, &fax) < 0) {
        TRACE(TRACE_ERROR, "LumFaxBeginReceive - ERROR");
        return {result_of(fax), true};
    }
    fax = {};
    DornFaxGetRemoteInfo(channel, &fax);
    if (fax.status != KX_STATUS_OK) {
        trace_error_text(pLine, "LumFaxGetRemoteInfo: %hs");
        return {result_of(fax), true};
    }
    publish_remote_station(pLine, fax.remoteInfo, called_length);

    fax = {};
    DornFaxWaitForTraining(channel, &fax);
    if (fax.status != KX_STATUS_OK) {
        trace_error_text(pLine, "LumFaxWaitForTraining: %hs");
        return {result_of(fax), true};
    }
    return receive_pages(pLine);
}

Reception receive(const FaxThreadArgs& args) {
    const size_t called_length = publish_numbers(args.pLine);
    install_report_handler(args.pLine, InterruptFromLUM);
    return receive_document(args.pLine, args.parameters.szLocalId, called_length);
}

void report_end(LineRec* pLine, const Reception& reception) {
    const KXResult& result = reception.result;
    TRACE(TRACE_INFO, reception.failed ? "Thread_Receive_Fax() -> Done, with ERRORS occurred"
                                       : "Thread_Receive_Fax() -> Done, no errors");
    Send_CallDevSpecific(pLine, NOTIFY_JOB_ENDED, result.status, result.line_status);
    TRACE(TRACE_INFO, "Thread_Receive_Fax() pLine->dwDeviceID = %d", pLine->dwDeviceID);
    TRACE(TRACE_INFO,
          "Thread_Receive_Fax() Send_CallDevSpecific KXResult.status = 0x%X (%d), KXResult.line_status = 0x%X (%d)",
          result.status, result.status, result.line_status, result.line_status);
    publish_result(pLine, result);
    // Reception goes by its flag, transmission by the result: a begin that fails with status 0 ends as UNKNOWN here.
    report_disconnected(pLine, reception.failed ? LINEDISCONNECTMODE_UNKNOWN : LINEDISCONNECTMODE_NORMAL);
}

}  // namespace

void __cdecl Thread_Receive_Fax(void* args) {
    run_fax_thread(NAME, args, Reception{{KX_STATUS_ERROR, APIERR_UNCLASSIFIED}, true}, receive, report_end);
}
