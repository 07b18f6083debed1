// The device-specific command channel: blocks are filled, sent in one of the two ways of completion, and judged.
#include "fax_command.h"

#include <atomic>
#include <cstring>
#include <memory>

#include "text.h"

namespace {

constexpr DWORD COMMAND_TIMEOUT = 30000;  // milliseconds

// The strings of the command block are in the system's code page and end within their field.
template <size_t SIZE>
bool put_text(char (&field)[SIZE], const std::string& text) {
    const std::optional<std::string> bytes = ansi(text);
    if (!bytes || bytes->size() >= SIZE) return false;
    std::memcpy(field, bytes->c_str(), bytes->size() + 1);
    return true;
}

std::unique_ptr<TspCmdBlock> new_block(eTspCmd command) {
    auto block = std::make_unique<TspCmdBlock>();
    std::memset(block.get(), 0, sizeof(TspCmdBlock));
    block->dwCommand = command;
    return block;
}

Failure event_never_set(const Line& line) {
    return {EXIT_FAX_FAILED, "LINEERR_OPERATIONFAILED",
            format("the provider did not set the completion event of line %lu", line.dwDeviceID),
            "use --completion tapi"};
}

Failure send_with_event(Line& line, TspCmdBlock& block) {
    static std::atomic<uint64_t> gNextKey{1};
    block.dwSignalEvent = 1;
    block.qwEventKey = (static_cast<uint64_t>(GetCurrentProcessId()) << 32) | gNextKey++;
    wchar_t name[64];
    _snwprintf(name, 64, COMMAND_EVENT_NAME, reinterpret_cast<void*>(block.qwEventKey));
    const OwnedHandle finished(CreateEventW(nullptr, TRUE, FALSE, name));
    if (!finished) return event_never_set(line);

    // The request id is never completed in this mode.
    const DRV_REQUESTID dwRequestID = hub_new_request(line.htLine, "TSPI_lineDevSpecific");
    const LONG result =
        line.provider->tspi.lineDevSpecific(dwRequestID, line.hdLine, 0, line.hdCall, &block, sizeof(block));
    hub_forget_request(dwRequestID);
    if (result < 0) return line_error_failure(result, "sending a fax command", EXIT_FAX_FAILED);
    return WaitForSingleObject(finished.get(), COMMAND_TIMEOUT) == WAIT_OBJECT_0 ? Failure() : event_never_set(line);
}

Failure send_with_tapi(Line& line, TspCmdBlock& block) {
    const LONG result = line_request(line, "TSPI_lineDevSpecific", [&](DRV_REQUESTID dwRequestID) {
        return line.provider->tspi.lineDevSpecific(dwRequestID, line.hdLine, 0, line.hdCall, &block, sizeof(block));
    });
    return result == 0 ? Failure() : line_error_failure(result, "carrying out a fax command", EXIT_FAX_FAILED);
}

Failure send_command(Line& line, Completion completion, TspCmdBlock& block) {
    return completion == Completion::event ? send_with_event(line, block) : send_with_tapi(line, block);
}

}  // namespace

Failure tiff_open(Line& line, const FaxJob& job) {
    const auto block = new_block(eTspCmd_TIFFOPEN);
    if (!put_text(block->open.szFile, job.file)) {
        return {EXIT_FILE, "APIERR_FILEIO", job.file + " cannot be handed to the provider",
                "give it a path of less than 260 characters, all of them in the system's code page"};
    }
    put_text(block->open.szMode, job.receiving ? "w+" : "r");
    if (Failure failure = send_command(line, job.completion, *block)) return failure;
    if (block->dwResult == 0) return {};
    return {EXIT_FILE, "APIERR_FILEIO", "the board cannot open " + job.file, "check the file and its folder"};
}

Failure fax_start(Line& line, const FaxJob& job) {
    const auto block = new_block(job.receiving ? eTspCmd_FAXRECEIVE : eTspCmd_FAXSEND);
    if (!put_text(block->fax.szHeaderText, job.header_text) || !put_text(block->fax.szLocalId, job.local_id)) {
        return {EXIT_USAGE, "APIERR_BADPARAMETER", "the header text or the station id is too long",
                "49 characters of the system's code page are the most"};
    }
    block->fax.dwAddHeader = job.add_header ? 1 : 0;
    if (Failure failure = send_command(line, job.completion, *block)) return failure;
    if (block->dwResult == 0) return {};
    return {EXIT_FAX_FAILED, "LINEERR_OPERATIONFAILED", "the provider did not start the job", "look with --trace 1-4"};
}

Failure tiff_close(Line& line, const FaxJob& job) {
    const auto block = new_block(eTspCmd_TIFFCLOSE);
    block->dwJobCommand = job.receiving ? JOB_RECEIVED : 0;
    if (Failure failure = send_command(line, job.completion, *block)) return failure;
    if (block->dwResult == 0) return {};
    return {EXIT_FILE, "APIERR_FILEIO", "the board could not finish " + job.file, "check the free space of its folder"};
}

Failure fax_abort(Line& line, Completion completion) {
    return send_command(line, completion, *new_block(eTspCmd_ABORT));
}

Failure fax_get_status(Line& line, Completion completion) {
    return send_command(line, completion, *new_block(eTspCmd_GETSTATUS));
}
