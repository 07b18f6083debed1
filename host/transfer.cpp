// A single fax and its progress lines.
#include "transfer.h"

#include "text.h"

namespace {

// Tells of every page once, also when several went through between two notifications.
struct PageTeller {
    const Arguments& arguments;
    DWORD dwDeviceID;
    const char* done;  // "sent" or "received"
    uint32_t told = 0;
};

void tell_pages(PageTeller& teller, const FaxProgress& progress) {
    while (teller.told < progress.pages) {
        const uint32_t page = ++teller.told;
        std::string text = format("line %lu: page %u %s", teller.dwDeviceID, page, teller.done);
        if (progress.dwRate != 0) text += format(", %lu bit/s", progress.dwRate);
        if (!progress.remote_id.empty()) text += ", remote id " + progress.remote_id;
        JsonObject facts;
        json_text(facts, "type", "page");
        json_number(facts, "line", teller.dwDeviceID);
        json_text(facts, "direction", teller.done);
        json_number(facts, "page", page);
        json_number(facts, "rate", progress.dwRate);
        show(teller.arguments, text, json_text(facts, "remote_id", progress.remote_id));
    }
}

void tell_call(const Arguments& arguments, DWORD dwDeviceID, const std::string& what) {
    JsonObject facts;
    json_text(facts, "type", "call");
    json_number(facts, "line", dwDeviceID);
    show(arguments, format("line %lu: ", dwDeviceID) + what, json_text(facts, "text", what));
}

Failure run_job(Session& session, Line& line, const FaxJob& job, HANDLE stop, Transfer& transfer) {
    PageTeller teller = {session.arguments, line.dwDeviceID, job.receiving ? "received" : "sent", 0};
    const auto observer = [&teller](const FaxProgress& progress) { tell_pages(teller, progress); };
    if (Failure failure = fax_job_run(line, job, session.status, observer, stop, transfer.result)) return failure;
    transfer.job_ran = true;
    const FaxResult& result = transfer.result;
    if (result.status == 0) return {};
    if (stopped_within(0, stop)) return interrupted_failure();
    return job_failure(result.status, result.line_status,
                       format("%s on line %lu (%u pages went through)", job.receiving ? "receiving" : "sending",
                              line.dwDeviceID, result.progress.pages));
}

FaxJob new_job(const Arguments& arguments, const TransferFile& file) {
    FaxJob job;
    job.file = file.path;
    job.local_id = file.station_id;
    job.completion = arguments.completion;
    return job;
}

}  // namespace

Failure transfer_send(Session& session, Line& line, const TransferFile& file, const std::string& number, HANDLE stop,
                      Transfer& transfer) {
    const Arguments& arguments = session.arguments;
    tell_call(arguments, line.dwDeviceID, "calling " + number);
    if (Failure failure = call_place(line, number, arguments.timeout * 1000, stop)) return failure;
    tell_call(arguments, line.dwDeviceID, number + " answered");
    FaxJob job = new_job(arguments, file);
    job.add_header = arguments.header_given;
    job.header_text = arguments.header;
    return run_job(session, line, job, stop, transfer);
}

Failure transfer_answer(Session& session, Line& line, HANDLE stop, Transfer& transfer) {
    const Arguments& arguments = session.arguments;
    if (Failure failure = call_answer(line, arguments.rings, stop, transfer.call)) return failure;
    std::string text = "answered a call";
    if (!transfer.call.caller_id.empty()) text += " from " + transfer.call.caller_id;
    if (!transfer.call.caller_name.empty()) text += " (" + transfer.call.caller_name + ")";
    if (!transfer.call.called_id.empty()) text += " to " + transfer.call.called_id;
    tell_call(arguments, line.dwDeviceID, text);
    return {};
}

Failure transfer_receive(Session& session, Line& line, const TransferFile& file, HANDLE stop, Transfer& transfer) {
    FaxJob job = new_job(session.arguments, file);
    job.receiving = true;
    job.call = transfer.call;
    return run_job(session, line, job, stop, transfer);
}
