// The DornFax functions.
#include "fax_steps.h"
#include "tiff_handles.h"

using namespace softboard;

static std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

int DornFaxHeader(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        call.channel.settings.header = text_or_empty(record->szHeaderText);
        return 0;
    });
}

int DornFaxSetLocalId(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        call.channel.settings.local_id = text_or_empty(record->szLocalId);
        return 0;
    });
}

// Pages are received in the one form that page_writer.h describes, whatever the code.
int DornFaxSetReceiveFmt(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [](LineCall&, KXResult&) { return 0; });
}

int DornFaxBeginSendTiff(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        const std::shared_ptr<TiffFile> file = find_tiff(record->hTiff);
        if (file == nullptr) fail(APIERR_BADPARAMETER, "the TIFF handle is not open");
        begin_fax(call, file->path, file->head.dwPageCursor);
        return 0;
    });
}

int DornFaxBeginReceive(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        begin_fax(call, {}, 0);
        return 0;
    });
}

int DornFaxGetRemoteInfo(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [&](LineCall& call, KXResult&) {
        get_remote_info(call, record->remoteInfo);
        return 0;
    });
}

int DornFaxWaitForTraining(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [](LineCall& call, KXResult&) {
        wait_for_training(call);
        return 0;
    });
}

int DornFaxNextPageTiff(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [](LineCall& call, KXResult&) { return next_page(call); });
}

int DornFaxSendPageTiff(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [=](LineCall& call, KXResult&) {
        send_page(call, *record);
        return 0;
    });
}

int DornFaxEndOfDocument(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [](LineCall& call, KXResult&) {
        end_of_document(call);
        return 0;
    });
}

int DornFaxRcvPageTiff(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [=](LineCall& call, KXResult&) { return receive_page(call, *record); });
}

int DornFaxEndReception(DornLine* line, DornFaxRecord* record) {
    return line_call(__func__, line, record, [](LineCall& call, KXResult&) {
        end_reception(call);
        return 0;
    });
}
