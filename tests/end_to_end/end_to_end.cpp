#include "end_to_end.h"

#include <windows.h>

#include "run_program.h"
#include "text.h"

static constexpr DWORD ANSWER_TIMEOUT = 20000;  // milliseconds
static constexpr DWORD SERVICE_TIMEOUT = 10000;

static bool service_runs() {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const OwnedService service(OpenServiceW(manager.get(), L"calder", SERVICE_START | SERVICE_QUERY_STATUS));
    StartServiceW(service.get(), 0, nullptr);
    SERVICE_STATUS state = {};
    const ULONGLONG deadline = GetTickCount64() + SERVICE_TIMEOUT;
    while (QueryServiceStatus(service.get(), &state) && state.dwCurrentState != SERVICE_RUNNING) {
        if (GetTickCount64() > deadline) return false;
        Sleep(10);
    }
    return state.dwCurrentState == SERVICE_RUNNING;
}

void EndToEnd::SetUpTestSuite() {
    const ProgramRun install = run_program(CALDER, "install --fax-stand-in");
    ASSERT_EQ(0u, install.exit_status) << install.errors;
    ASSERT_TRUE(service_runs());
}

void EndToEnd::TearDown() {
    provider.reset();
}

void EndToEnd::given_board(const std::string& ini) {
    const std::string path = folder.file("softboard.ini");
    write_text(path, ini + "\n[log]\nfile = " + folder.file("calddlld.log") + "\n");
    SetEnvironmentVariableW(L"QORV_SOFTBOARD", wide(path).c_str());
    provider = std::make_unique<Provider>();
    ProviderOptions options;
    options.path = wide(full_path(PROVIDER));
    const Failure failure = provider_start(*provider, options);
    ASSERT_FALSE(failure) << failure_line(failure);
    ASSERT_EQ(0u, status_reader_open(status));
}

std::unique_ptr<Line> EndToEnd::open_line(DWORD dwDeviceID, bool receiving) {
    auto line = std::make_unique<Line>();
    const Failure failure = line_open(*line, *provider, dwDeviceID, receiving);
    EXPECT_FALSE(failure) << failure_line(failure);
    return line;
}

Fax EndToEnd::send(Line& line, const std::string& number, const std::string& file) {
    Fax fax;
    fax.failure = call_place(line, number, ANSWER_TIMEOUT, stop.get());
    if (!fax.failure) {
        FaxJob job;
        job.file = file;
        job.local_id = "+49 555 0100";
        job.header_text = header;
        job.add_header = !header.empty();
        job.completion = completion;
        const auto observer = [&](const FaxProgress& progress) {
            fax.told_pages.push_back(progress.pages);
            if (on_page) on_page(progress.pages);
        };
        fax.failure = fax_job_run(line, job, status, observer, stop.get(), fax.result);
    }
    call_end(line);
    return fax;
}

Fax EndToEnd::receive(Line& line, const std::string& file) {
    Fax fax;
    fax.failure = call_answer(line, 1, stop.get(), fax.call);
    if (!fax.failure) {
        FaxJob job;
        job.receiving = true;
        job.file = file;
        job.local_id = "+49 555 0200";
        job.completion = completion;
        job.call = fax.call;
        const auto observer = [&](const FaxProgress& progress) {
            fax.told_pages.push_back(progress.pages);
            if (on_page) on_page(progress.pages);
        };
        fax.failure = fax_job_run(line, job, status, observer, stop.get(), fax.result);
    }
    call_end(line);
    return fax;
}

std::string EndToEnd::three_pages() {
    const std::string file = folder.file("three.tif");
    write_fax(file, drawn_pages(3));
    return file;
}

void EndToEnd::expect_pages(const std::vector<FaxPage>& pages, const std::string& file) {
    std::vector<FaxPage> received;
    const Failure failure = fax_file_read(file, received);
    EXPECT_FALSE(failure) << failure_line(failure);
    for (const PageComparison& comparison : fax_pages_compare(pages, received, false)) {
        EXPECT_TRUE(comparison.identical) << "page " << comparison.page << ": " << comparison.difference;
    }
}

std::string EndToEnd::file_of_station(const std::string& station) const {
    for (const std::string& file : folder.files()) {
        if (file.find("\\" + station + "-") != std::string::npos) return file;
    }
    return "no file of station " + station;
}
