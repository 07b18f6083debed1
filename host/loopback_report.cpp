// The closing report of a loopback.
#include "loopback_report.h"

#include "fax_status.h"
#include "session.h"
#include "text.h"

namespace {

// A real line needs this and more for a call; what is done sooner was done as fast as the processor goes.
constexpr double REAL_TIME_SECONDS = 5;

bool real_time(const Loopback& loopback) {
    return loopback.sent.result.seconds >= REAL_TIME_SECONDS;
}

std::string result_text(const Transfer& transfer) {
    if (!transfer.job_ran) return "no job";
    return kx_result_text(transfer.result.status, transfer.result.line_status);
}

std::string stamp_name(const Loopback& loopback) {
    return loopback.stamp ? fs_code_name(stamp_code(*loopback.stamp)) : "";
}

std::vector<uint32_t> identical_pages(const Loopback& loopback) {
    std::vector<uint32_t> pages;
    for (const PageComparison& comparison : loopback.comparisons) {
        if (comparison.identical) pages.push_back(comparison.page);
    }
    return pages;
}

std::string report_text(const Arguments& arguments, const Loopback& loopback) {
    const FaxResult& sent = loopback.sent.result;
    std::string text = format("pages     %u sent, %zu received\n", sent.progress.pages, loopback.received_pages.size());
    text += format("rate      %lu bit/s\n", sent.progress.dwRate);
    text += format("time      %.3f s from FAXSEND to the end notification%s\n", sent.seconds,
                   real_time(loopback) ? ", which is what T.30 takes on the line" : "");
    text += "result    " + result_text(loopback.sent) + " sending, " + result_text(loopback.received) + " receiving\n";
    text += "stamp     " + loopback.stamp.value_or("none") + " " + stamp_name(loopback) + "\n";
    text += "file      " + arguments.files[1] + "\n";
    for (const PageComparison& page : loopback.comparisons) {
        if (!page.identical) text += format("page %u    differs: %s\n", page.page, page.difference.c_str());
    }
    std::string identical;
    for (const uint32_t page : identical_pages(loopback))
        identical += (identical.empty() ? "" : ", ") + std::to_string(page);
    return text + "identical: page " + (identical.empty() ? "none" : identical);
}

JsonObject report_facts(const Arguments& arguments, const Loopback& loopback) {
    const FaxResult& sent = loopback.sent.result;
    JsonObject facts;
    json_text(facts, "type", "loopback");
    json_number(facts, "pages_sent", sent.progress.pages);
    json_number(facts, "pages_received", static_cast<int64_t>(loopback.received_pages.size()));
    json_number(facts, "rate", sent.progress.dwRate);
    json_decimal(facts, "seconds", sent.seconds);
    json_truth(facts, "real_time", real_time(loopback));
    json_text(facts, "result_sending", result_text(loopback.sent));
    json_text(facts, "result_receiving", result_text(loopback.received));
    json_text(facts, "stamp", loopback.stamp.value_or(""));
    json_text(facts, "stamp_name", stamp_name(loopback));
    json_text(facts, "file", arguments.files[1]);
    return json_numbers(facts, "identical", identical_pages(loopback));
}

}  // namespace

void show_loopback(const Arguments& arguments, const Loopback& loopback) {
    show(arguments, report_text(arguments, loopback), report_facts(arguments, loopback));
}

Failure loopback_failure(const Arguments& arguments, size_t pages, const Loopback& loopback) {
    if (!loopback.stamp || stamp_code(*loopback.stamp) != fs_code_of(0, 0)) {
        return {EXIT_FAX_FAILED, "FS_COMPLETED",
                "the received file is not stamped with it, but with " + loopback.stamp.value_or("nothing"),
                "look with --trace 1-4"};
    }
    for (const PageComparison& comparison : loopback.comparisons) {
        if (!comparison.identical) {
            return {EXIT_FAX_FAILED, "FS_FATAL_ERROR",
                    format("page %u is not what was sent: %s", comparison.page, comparison.difference.c_str()),
                    "compare " + arguments.files[0] + " with " + arguments.files[1]};
        }
    }
    if (loopback.sent.result.progress.pages == pages) return {};
    return {EXIT_FAX_FAILED, "FS_FATAL_ERROR",
            format("%u of %zu pages were sent", loopback.sent.result.progress.pages, pages), "send again"};
}

Failure compare_counts(const Arguments& arguments, const ProcessCounts& first, const ProcessCounts& last) {
    JsonObject facts;
    json_text(facts, "type", "counts");
    json_number(facts, "handles_first", first.handles);
    json_number(facts, "handles_last", last.handles);
    json_number(facts, "threads_first", first.threads);
    show(arguments,
         format("handles   %lu after the first run, %lu after the last\nthreads   %lu after the first run, %lu after "
                "the last",
                first.handles, last.handles, first.threads, last.threads),
         json_number(facts, "threads_last", last.threads));
    const DWORD runs = arguments.repeat - 1;
    if (last.handles < first.handles + runs && last.threads < first.threads + runs) return {};
    return {EXIT_FAX_FAILED, "LINEERR_NOMEM", "every run left handles or threads behind",
            "the provider or the board's driver library does not give them back"};
}
