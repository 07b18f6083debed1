// faxhost send and faxhost receive.
#include "commands.h"
#include "fax_file.h"
#include "program.h"
#include "session.h"
#include "text.h"
#include "transfer.h"

namespace {

JsonObject transfer_facts(const char* type, const std::string& file, const Transfer& transfer) {
    const FaxResult& result = transfer.result;
    JsonObject facts;
    json_text(facts, "type", type);
    json_text(facts, "file", file);
    json_number(facts, "pages", result.progress.pages);
    json_number(facts, "rate", result.progress.dwRate);
    json_decimal(facts, "seconds", result.seconds);
    json_text(facts, "result", kx_result_text(result.status, result.line_status));
    json_text(facts, "remote_id", result.progress.remote_id);
    return facts;
}

std::string transfer_text(const Transfer& transfer) {
    const FaxResult& result = transfer.result;
    std::string text = format("%u pages, %lu bit/s, %.3f s, %s", result.progress.pages, result.progress.dwRate,
                              result.seconds, kx_result_text(result.status, result.line_status).c_str());
    if (!result.progress.remote_id.empty()) text += ", remote id " + result.progress.remote_id;
    return text;
}

void show_received(const Arguments& arguments, const std::string& file, const Transfer& transfer) {
    std::string text = "received " + file + ": " + transfer_text(transfer);
    JsonObject facts = transfer_facts("received", file, transfer);
    json_text(facts, "caller", transfer.call.caller_id);
    json_text(facts, "called", transfer.call.called_id);
    if (const std::optional<std::string> stamp = fax_file_stamp(file)) {
        text += ", stamp " + *stamp + " " + fs_code_name(stamp_code(*stamp));
        json_text(facts, "stamp", *stamp);
        json_text(facts, "stamp_name", fs_code_name(stamp_code(*stamp)));
    }
    show(arguments, text, facts);
}

// A file of its own for every fax, which exists from here on.
Failure new_received_file(const Arguments& arguments, std::string& file) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    const std::string stem = format("%s\\fax-%04u%02u%02u-%02u%02u%02u-line%u", arguments.folder.c_str(), now.wYear,
                                    now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, arguments.line);
    for (int i = 1; i < 1000; ++i) {
        file = i == 1 ? stem + ".tif" : stem + format("-%d.tif", i);
        const OwnedHandle created = owned_file(CreateFileW(wide(file).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                           CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (created) return {};
        if (GetLastError() != ERROR_FILE_EXISTS) break;
    }
    return {EXIT_FILE, "APIERR_FILEIO", file + " cannot be written, " + windows_error(GetLastError()),
            "check the folder and its free space"};
}

// Over an answered call. A file that nothing came into is taken away again.
Failure receive_answered(Session& session, Line& line, HANDLE stop, Transfer& transfer) {
    std::string file;
    if (Failure failure = new_received_file(session.arguments, file)) return failure;
    Failure failure = transfer_receive(session, line, {file, session.arguments.id}, stop, transfer);
    if (transfer.job_ran) {
        show_received(session.arguments, file, transfer);
    } else {
        DeleteFileW(wide(file).c_str());
    }
    return failure;
}

// Answers calls until enough have been answered, or until Ctrl-C, which is how an endless wait is meant to end. The
// failure is the last one that a fax had.
Failure receive_faxes(Session& session, Line& line, HANDLE stop) {
    const uint32_t count = session.arguments.count;
    Failure last_failure;
    for (uint32_t received = 0; count == 0 || received < count; ++received) {
        Transfer transfer;
        if (Failure failure = transfer_answer(session, line, stop, transfer)) {
            const bool meant = count == 0 && failure.exit_status == EXIT_INTERRUPTED;
            return meant ? last_failure : failure;
        }
        Failure failure = receive_answered(session, line, stop, transfer);
        if (failure.exit_status == EXIT_INTERRUPTED || failure.exit_status == EXIT_FILE) return failure;
        if (failure) last_failure = failure;
        call_end_for_next(line, stop);
    }
    return last_failure;
}

}  // namespace

Failure command_send_fax(const Arguments& arguments) {
    const std::string& file = arguments.files[0];
    std::vector<FaxPage> pages;
    if (Failure failure = fax_file_read(file, pages)) return failure;

    const HANDLE stop = stop_event();
    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    Line line;
    if (Failure failure = line_open(line, session.provider, arguments.line, false)) return failure;
    Transfer transfer;
    Failure failure = transfer_send(session, line, {file, arguments.id}, arguments.number, stop, transfer);
    if (transfer.job_ran) {
        JsonObject facts = transfer_facts("sent", file, transfer);
        show(arguments, "sent " + file + " to " + arguments.number + ": " + transfer_text(transfer),
             json_text(facts, "number", arguments.number));
    }
    return failure;
}

Failure command_receive(const Arguments& arguments) {
    if (Failure failure = check_writable_folder(arguments.folder)) return failure;

    const HANDLE stop = stop_event();
    Session session(arguments);
    if (Failure failure = session_start(session)) return failure;
    Line line;
    if (Failure failure = line_open(line, session.provider, arguments.line, true)) return failure;
    return receive_faxes(session, line, stop);
}
