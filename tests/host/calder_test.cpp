// calder.exe on the service manager of this machine: installed, started, asked, stopped, removed.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>

#include "host_service.h"
#include "log_file.h"
#include "own_process.h"
#include "run_program.h"
#include "segment.h"
#include "service_state.h"
#include "temporary_folder.h"
#include "text.h"

namespace {

constexpr DWORD PATIENCE = 10000;  // milliseconds

bool exists(const wchar_t* name) {
    return open_service(name, SERVICE_QUERY_STATUS) != nullptr;
}

std::string configuration() {
    wchar_t path[MAX_PATH] = L"";
    DWORD size = sizeof(path);
    RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\caldservice\\Parameters", L"kxcall",
                 RRF_RT_REG_SZ, nullptr, path, &size);
    return utf8(path);
}

// The segment as a provider has it. Without `view` when nobody has created it.
struct ProviderSegment {
    OwnedHandle mapping{OpenFileMappingW(FILE_MAP_WRITE, FALSE, FAX_SEGMENT_NAME)};
    OwnedView<FaxStatusBlock> view{
        static_cast<FaxStatusBlock*>(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, FAX_SEGMENT_SIZE))};
};

}  // namespace

class Calder : public testing::Test {
  protected:
    void SetUp() override { EXPECT_EQ(0u, run_program(CALDER, "remove").exit_status); }
    void TearDown() override { EXPECT_EQ(0u, run_program(CALDER, "remove").exit_status); }

    void install() {
        const ProgramRun run = run_program(CALDER, "install --fax-stand-in");
        ASSERT_EQ(0u, run.exit_status) << run.errors;
    }

    OwnedService start() {
        OwnedService service = open_service(L"calder", SERVICE_ALL_ACCESS);
        EXPECT_TRUE(StartServiceW(service.get(), 0, nullptr)) << GetLastError();
        EXPECT_TRUE(reaches(service.get(), SERVICE_RUNNING));
        return service;
    }

    void stop(SC_HANDLE service) {
        SERVICE_STATUS status = {};
        EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
        EXPECT_TRUE(reaches(service, SERVICE_STOPPED));
    }
};

TEST_F(Calder, RegistersItselfAndAStandInAndNamesAConfigurationFile) {
    install();
    EXPECT_TRUE(exists(L"calder"));
    EXPECT_TRUE(exists(L"Fax"));
    EXPECT_NE(std::string::npos, configuration().find("kxcall.cfg"));
    EXPECT_NE("", read_text(configuration()));
}

TEST_F(Calder, IsInstalledTwiceWithoutComplaint) {
    install();
    install();
    EXPECT_TRUE(exists(L"calder"));
}

TEST_F(Calder, RemovesWhatItMade) {
    install();
    EXPECT_EQ(0u, run_program(CALDER, "remove").exit_status);
    EXPECT_FALSE(exists(L"calder"));
    EXPECT_FALSE(exists(L"Fax"));
    EXPECT_EQ("", configuration());
}

TEST_F(Calder, DoesNotRemoveAFaxServiceThatIsNotItsOwn) {
    const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    const OwnedService real(CreateServiceW(manager.get(), L"Fax", L"Fax", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                           SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, L"C:\\fxssvc.exe", nullptr,
                                           nullptr, nullptr, nullptr, nullptr));
    ASSERT_TRUE(real) << GetLastError();
    install();
    EXPECT_EQ(0u, run_program(CALDER, "remove").exit_status);
    EXPECT_TRUE(exists(L"Fax"));
    EXPECT_TRUE(DeleteService(real.get()));
}

TEST_F(Calder, StartsStopsAndStartsAgain) {
    install();
    for (int i = 0; i < 2; ++i) stop(start().get());
}

TEST_F(Calder, MakesTheSegmentReadableAndUsableForOthers) {
    FaxSegment segment;
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, fax_segment_open(segment));
    install();
    const OwnedService service = start();
    EXPECT_EQ(0u, fax_segment_open(segment));
    bool existed = false;
    FaxSegment provider;
    EXPECT_EQ(0u, fax_segment_create(provider, existed));
    EXPECT_TRUE(existed);
}

TEST_F(Calder, LogsOneLinePerFinishedJob) {
    install();
    const OwnedService service = start();
    const ProviderSegment segment;
    ASSERT_TRUE(segment.view);
    const std::string id = format("test %lu", GetCurrentProcessId());
    std::strcpy(segment.view.get()[17].szRemoteId, id.c_str());
    segment.view.get()[17].status = 4;
    const std::string expected = "unit 17: KX_STATUS_ERROR_HANGUP, remote id \"" + id + "\", pages 0\r\n";
    const ULONGLONG deadline = GetTickCount64() + PATIENCE;
    const std::string log = utf8(service_log().path);
    while (read_text(log).find(expected) == std::string::npos && GetTickCount64() < deadline) Sleep(10);
    EXPECT_NE(std::string::npos, read_text(log).find(expected));
}

TEST_F(Calder, TellsAlsoAJobThatEndedInTheMomentItBeganToRun) {
    const OwnedHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const auto end_a_job = [] {
        const ProviderSegment segment;
        ASSERT_TRUE(segment.view);
        segment.view.get()[17].status = 4;
    };
    std::string told;
    const OwnedThread deadline = thread_start([&stop] {
        WaitForSingleObject(stop.get(), PATIENCE);
        SetEvent(stop.get());
    });
    host_service_work(stop.get(), end_a_job, [&](std::string_view line) {
        if (line.substr(0, 4) != "unit") return;
        told = line;
        SetEvent(stop.get());
    });
    EXPECT_EQ("unit 17: KX_STATUS_ERROR_HANGUP, pages 0", told);
}

TEST_F(Calder, IsNotStartedAsAServiceByHand) {
    const ProgramRun run = run_program(CALDER, "service");
    EXPECT_EQ(1u, run.exit_status);
    EXPECT_NE(std::string::npos, run.errors.find("calder run"));
}

TEST_F(Calder, MustRunForAHostToBeginAndTheHostSaysSo) {
    EXPECT_NE(std::string::npos, run_program(FAXHOST, "status").errors.find("net start calder"));
}
