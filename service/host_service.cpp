// The shared segment's keeper: creates it before any provider does, watches it, tells of finished jobs.
#include "host_service.h"

#include "job_watch.h"
#include "log_file.h"
#include "segment.h"
#include "service_control.h"
#include "text.h"

namespace {

// Short enough for the body of a fast job to be seen, long enough to cost next to nothing.
constexpr DWORD LOOK_INTERVAL = 50;     // milliseconds
constexpr DWORD RETRY_INTERVAL = 1000;  // milliseconds

// The service manager gives its control handler no argument at registration that outlives it otherwise.
SERVICE_STATUS_HANDLE gStatusHandle = nullptr;
OwnedHandle gServiceStop;

// True when the segment is there, false when `stop` came first.
bool get_segment(FaxSegment& segment, HANDLE stop, const std::function<void(std::string_view)>& tell) {
    bool existed = false;
    uint32_t told_error = 0;
    while (const uint32_t error = fax_segment_create(segment, existed)) {
        if (error != told_error) {
            tell("the shared segment cannot be had, " + windows_error(error) +
                 "; a provider that started earlier keeps it: stop the telephony service until this service has it");
        }
        told_error = error;
        if (WaitForSingleObject(stop, RETRY_INTERVAL) == WAIT_OBJECT_0) return false;
    }
    tell(existed ? "watching the shared segment, which existed already; who may read it was decided by its creator"
                 : "created the shared segment and watching it");
    return true;
}

void report_state(DWORD state, DWORD exit_code = 0) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWin32ExitCode = exit_code;
    status.dwWaitHint = 3000;
    SetServiceStatus(gStatusHandle, &status);
}

DWORD WINAPI on_control(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        report_state(SERVICE_STOP_PENDING);
        SetEvent(gServiceStop.get());
        return NO_ERROR;
    }
    return control == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

void WINAPI service_main(DWORD, wchar_t**) {
    gServiceStop.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    gStatusHandle = RegisterServiceCtrlHandlerExW(SERVICE_NAME, on_control, nullptr);
    if (!gStatusHandle) return;
    report_state(SERVICE_START_PENDING);
    const LogFile log = service_log();
    log_write(log, "started");
    host_service_work(
        gServiceStop.get(), [] { report_state(SERVICE_RUNNING); },
        [&log](std::string_view line) { log_write(log, line); });
    log_write(log, "stopped");
    report_state(SERVICE_STOPPED);
}

}  // namespace

void host_service_work(HANDLE stop, const std::function<void()>& ready,
                       const std::function<void(std::string_view)>& tell) {
    FaxSegment segment;
    if (!get_segment(segment, stop, tell)) return;
    // Whoever sees the service running counts on its having begun to watch.
    JobWatch watch = job_watch_begin(segment.records);
    ready();
    while (WaitForSingleObject(stop, LOOK_INTERVAL) == WAIT_TIMEOUT) {
        for (const FinishedJob& job : job_watch_look(watch, segment.records)) tell(finished_job_text(job));
    }
}

DWORD host_service_dispatch() {
    wchar_t name[] = L"calder";
    const SERVICE_TABLE_ENTRYW table[] = {{name, service_main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : GetLastError();
}
