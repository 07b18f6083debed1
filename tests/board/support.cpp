#include "support.h"

#include <atomic>
#include <cstdio>
#include <cstring>

using softboard::Clock;
using softboard::Thread;

// ---- the library --------------------------------------------------------------------------------------------------

static std::string new_folder() {
    char temporary[MAX_PATH + 1];
    GetTempPathA(sizeof temporary, temporary);
    static unsigned count = 0;
    const std::string folder =
        std::string(temporary) + "board-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count);
    CreateDirectoryA(folder.c_str(), nullptr);
    return folder;
}

static void delete_folder(const std::string& folder) {
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA((folder + "\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            DeleteFileA((folder + "\\" + found.cFileName).c_str());
        } while (FindNextFileA(search, &found) != 0);
        FindClose(search);
    }
    RemoveDirectoryA(folder.c_str());
}

Board::Board(const std::string& ini) : folder_(new_folder()) {
    std::string text = ini;
    for (size_t at; (at = text.find("{folder}")) != std::string::npos;) text.replace(at, 8, folder_);
    if (text.find("[log]") == std::string::npos) text += "\n[log]\nfile=" + file("board.log") + "\n";
    FILE* const out = fopen(file("softboard.ini").c_str(), "wb");
    fwrite(text.data(), 1, text.size(), out);
    fclose(out);
    SetEnvironmentVariableA("QORV_SOFTBOARD", file("softboard.ini").c_str());
    EXPECT_EQ(DornInitialize(), 0);
    up_ = true;
}

void Board::shut_down() {
    if (up_) DornShutdown();
    up_ = false;
}

Board::~Board() {
    shut_down();
    delete_folder(folder_);
}

std::string read_text(const std::string& path) {
    std::string text;
    FILE* const file = fopen(path.c_str(), "rb");
    if (file == nullptr) return text;
    for (int c; (c = fgetc(file)) != EOF;) text += static_cast<char>(c);
    fclose(file);
    return text;
}

static std::atomic<int> seconds_ahead{0};
static decltype(&::QueryPerformanceCounter) original_counter;

static BOOL WINAPI counter_ahead(LARGE_INTEGER* counter) {
    const BOOL done = original_counter(counter);
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    counter->QuadPart += seconds_ahead * frequency.QuadPart;
    return done;
}

BoardTime::BoardTime() : table_(GetModuleHandleA("calddlld.dll")) {
    EXPECT_TRUE(table_.replace("QueryPerformanceCounter", original_counter, counter_ahead));
}

void BoardTime::put_forward(int seconds) {
    seconds_ahead += seconds;
}

bool has_temporary_files() {
    char folder[MAX_PATH + 1];
    GetTempPathA(sizeof folder, folder);
    WIN32_FIND_DATAA found;
    const std::string pattern = std::string(folder) + "calddlld-" + std::to_string(GetCurrentProcessId()) + "-*";
    const HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
    return search != INVALID_HANDLE_VALUE;
}

// ---- lines --------------------------------------------------------------------------------------------------------

DornLine* attach(uint32_t channel) {
    DornAttachRecord record{};
    record.dwChannel = channel;
    return DornLineAttach(&record);
}

int detach(DornLine* line) {
    DornAttachRecord record{};
    return DornSessionDetach(line, &record);
}

int alert_unit(uint32_t unit) {
    DornAlertRecord record{};
    record.dwUnit = unit;
    return DornLineAlert(&record);
}

int alert(DornLine* line) {
    return alert_unit(DornLineUnitGet(line));
}

KXResult reset(DornLine* line, const std::string& configuration) {
    DornResetRecord record{};
    record.szConfiguration = configuration.c_str();
    const int result = DornLineReset(line, &record);
    return {record.status, static_cast<uint32_t>(result)};
}

// ---- calls --------------------------------------------------------------------------------------------------------

DornWaitForCallRecord wait_for_call(DornLine* line, uint32_t timeout) {
    DornWaitForCallRecord record{};
    record.dwTimeout = timeout;
    DornLineWaitForCallISDN(line, &record);
    return record;
}

KXResult answer(DornLine* line) {
    DornLineResultRecord record{};
    DornLineAnswerISDN(line, &record);
    return {record.status, record.sub_status};
}

KXResult terminate(DornLine* line) {
    DornLineResultRecord record{};
    DornLineTerminateCallISDN(line, &record);
    return {record.status, record.sub_status};
}

KXResult set_up(DornLine* line, const char* number) {
    DornCallRecord record{};
    record.dwKind = 4;
    record.szDialString = number;
    DornCallSetup(line, &record);
    return {record.status, record.cause};
}

KXResult wait_for_complete(DornLine* line) {
    DornCallRecord record{};
    record.dwKind = 4;
    record.dwTimeout = 1000000;
    DornCallWaitForComplete(line, &record);
    return {record.status, record.cause};
}

uint32_t dial(DornLine* line, const char* number) {
    if (set_up(line, number).status != KX_STATUS_OK) return 0;
    const KXResult result = wait_for_complete(line);
    return result.status == KX_STATUS_OK ? result.line_status : 0;
}

std::unique_ptr<Thread> answering(DornLine* line, KXResult* result) {
    return std::make_unique<Thread>([=] {
        const DornWaitForCallRecord ring = wait_for_call(line);
        const KXResult answered = ring.status == KX_STATUS_OK ? answer(line) : KXResult{ring.status, ring.line_status};
        if (result != nullptr) *result = answered;
    });
}

ConnectedLines::ConnectedLines(uint32_t calling_channel, uint32_t called_channel, const char* number)
    : caller(attach(calling_channel)), called(attach(called_channel)) {
    const auto answerer = answering(called);
    EXPECT_EQ(dial(caller, number), CONNECTED);
}

// ---- TIFF ---------------------------------------------------------------------------------------------------------

DornTiff* open_tiff(const std::string& path, const char* mode) {
    DornTiffRecord record{};
    record.szPath = path.c_str();
    record.szMode = mode;
    return DornTiffOpen(&record);
}

KXResult close_tiff(DornTiff* tiff) {
    DornTiffRecord record{};
    record.hTiff = tiff;
    DornTiffClose(&record);
    return {record.status, record.line_status};
}

// ---- fax ----------------------------------------------------------------------------------------------------------

namespace {

// Runs one driver call with a cleared record; keeps the result in the job.
struct Step {
    FaxJob& job;
    DornLine* line;
    DornTiff* tiff;

    template <class Prepare>
    int run(const char* name, int (*function)(DornLine*, DornFaxRecord*), Prepare prepare, bool judged_by_record) {
        DornFaxRecord record{};
        record.hTiff = tiff;
        prepare(record);
        const int result = function(line, &record);
        job.result = {record.status, record.line_status};
        const bool failed = judged_by_record ? record.status != KX_STATUS_OK : result < 0;
        if (failed) job.failed_call = name;
        if (!failed && function == DornFaxGetRemoteInfo) keep_remote_info(record.remoteInfo);
        return failed ? -1 : result;
    }
    int run(const char* name, int (*function)(DornLine*, DornFaxRecord*), bool judged_by_record) {
        return run(
            name, function, [](DornFaxRecord&) {}, judged_by_record);
    }
    void keep_remote_info(const DornRemoteInfo& info) {
        job.remote_id.assign(info.szStationId, strnlen(info.szStationId, sizeof info.szStationId));
        job.second_id = info.szSecondId;
    }
};

}  // namespace

static void send_pages(Step& step, const FaxOptions& options) {
    const auto local_id = [&](DornFaxRecord& record) { record.szLocalId = options.local_id.c_str(); };
    const auto header = [&](DornFaxRecord& record) { record.szHeaderText = options.header.c_str(); };
    if (!options.header.empty()) step.run("Header", DornFaxHeader, header, false);
    step.run("SetLocalId", DornFaxSetLocalId, local_id, false);
    if (step.run("BeginSendTiff", DornFaxBeginSendTiff, true) < 0) return;
    if (step.run("GetRemoteInfo", DornFaxGetRemoteInfo, true) < 0) return;
    if (step.run("WaitForTraining", DornFaxWaitForTraining, true) < 0) return;
    int next;
    while ((next = step.run("NextPageTiff", DornFaxNextPageTiff, false)) > 0) {
        if (step.run("SendPageTiff", DornFaxSendPageTiff, true) < 0) return;
        ++step.job.pages;
        if (options.after_page) options.after_page(step.job.pages);
    }
    if (next == 0) step.run("EndOfDocument", DornFaxEndOfDocument, false);
}

static void receive_pages(Step& step, const FaxOptions& options) {
    const auto local_id = [&](DornFaxRecord& record) { record.szLocalId = options.local_id.c_str(); };
    step.run(
        "SetReceiveFmt", DornFaxSetReceiveFmt, [](DornFaxRecord& record) { record.dwReceiveFormat = 19; }, false);
    step.run("SetLocalId", DornFaxSetLocalId, local_id, false);
    if (step.run("BeginReceive", DornFaxBeginReceive, false) < 0) return;
    if (step.run("GetRemoteInfo", DornFaxGetRemoteInfo, true) < 0) return;
    if (step.run("WaitForTraining", DornFaxWaitForTraining, true) < 0) return;
    const auto extra_tags = [&](DornFaxRecord& record) {
        if (step.job.pages != 0) return;
        record.extraTags = options.extra_tags.data();
        record.dwExtraTagCount = static_cast<uint32_t>(options.extra_tags.size());
    };
    int more;
    while ((more = step.run("RcvPageTiff", DornFaxRcvPageTiff, extra_tags, false)) > 0) {
        ++step.job.pages;
        if (options.after_page) options.after_page(step.job.pages);
    }
    const KXResult page_result = step.job.result;
    const std::string failed_call = step.job.failed_call;
    step.run("EndReception", DornFaxEndReception, false);
    if (more < 0) {
        step.job.result = page_result;
        step.job.failed_call = failed_call;
    }
}

static FaxJob run_job(DornLine* line, const std::string& path, const char* mode, const FaxOptions& options,
                      void (*pages)(Step&, const FaxOptions&)) {
    FaxJob job;
    const Clock::time_point start = Clock::now();
    Step step{job, line, open_tiff(path, mode)};
    pages(step, options);
    if (step.tiff != nullptr) close_tiff(step.tiff);
    job.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return job;
}

FaxJob send_fax(DornLine* line, const std::string& path, const FaxOptions& options) {
    return run_job(line, path, "r", options, send_pages);
}

FaxJob receive_fax(DornLine* line, const std::string& path, const FaxOptions& options) {
    return run_job(line, path, "w+", options, receive_pages);
}

Transfer transfer(const ConnectedLines& lines, const std::string& from, const std::string& to,
                  const FaxOptions& sending, const FaxOptions& receiving) {
    Transfer result;
    {
        const Thread receiver([&] { result.received = receive_fax(lines.called, to, receiving); });
        result.sent = send_fax(lines.caller, from, sending);
    }
    return result;
}

void expect_good(const FaxJob& job, uint32_t pages) {
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_OK})
        << job.failed_call << ", line_status " << job.result.line_status;
    EXPECT_EQ(job.failed_call, "");
    EXPECT_EQ(job.pages, pages);
}
