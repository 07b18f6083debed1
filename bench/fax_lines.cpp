#include "fax_lines.h"

#include <windows.h>

#include <cstdio>

#include "call.h"
#include "program.h"
#include "results.h"
#include "text.h"

namespace {

constexpr DWORD ANSWER_TIMEOUT = 60000;  // milliseconds

void write_text(const std::string& path, const std::string& text) {
    FILE* const file = std::fopen(path.c_str(), "wb");
    if (!file) give_up(path + " cannot be written");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
}

FaxJob fax_job(const std::string& file, bool receiving) {
    FaxJob job;
    job.receiving = receiving;
    job.file = file;
    job.local_id = receiving ? "receiver" : "sender";
    return job;
}

FaxResult run_job(Line& line, const FaxJob& job, StatusReader& status) {
    FaxResult result;
    must(fax_job_run(
             line, job, status, [](const FaxProgress&) {}, nullptr, result),
         job.file);
    return result;
}

}  // namespace

std::unique_ptr<Provider> start_over_software_board(const BenchFolder& folder, const std::string& configuration) {
    const std::string ini = folder.file("softboard.ini");
    write_text(ini, configuration + "[log]\nfile=" + folder.file("board.log") + "\ndebugger=no\n");
    SetEnvironmentVariableA("QORV_SOFTBOARD", ini.c_str());
    auto provider = std::make_unique<Provider>();
    ProviderOptions options;
    options.path = program_folder() + L"\\..\\..\\bin\\qorvtsp.tsp";
    must(provider_start(*provider, options), "the provider");
    return provider;
}

void must(const Failure& failure, const std::string& what) {
    if (failure) give_up(what + ": " + failure_line(failure));
}

void place_call(Line& line, const std::string& number) {
    must(call_place(line, number, ANSWER_TIMEOUT, nullptr), "calling " + number);
}

void answer_call(Line& line, CallInfo& info) {
    must(call_answer(line, 1, nullptr, info), "answering");
}

FaxResult send_fax(Line& line, StatusReader& status, const std::string& file) {
    return run_job(line, fax_job(file, false), status);
}

FaxResult receive_fax(Line& line, StatusReader& status, const std::string& file, const CallInfo& call) {
    FaxJob job = fax_job(file, true);
    job.call = call;
    return run_job(line, job, status);
}
