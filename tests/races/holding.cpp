#include "holding.h"

using namespace harness;

namespace {

constexpr DWORD kSecond = 1000;
constexpr DWORD kShortWait = 20;

}  // namespace

bool is_held(const std::string& mutex) {
    HANDLE handle = nullptr;
    {
        std::lock_guard<std::mutex> holding(world());
        for (const auto& [open, name] : windows.objects.open)
            if (name == mutex) handle = open;
    }
    EXPECT_NE(handle, nullptr) << mutex;
    Call probe([handle] {
        const DWORD result = WaitForSingleObject(handle, 0);
        if (result != WAIT_TIMEOUT) ReleaseMutex(handle);
        return static_cast<LONG>(result == WAIT_TIMEOUT);
    });
    return probe.result() != 0;
}

testing::AssertionResult waits_for(Call& call, const std::string& mutex) {
    const std::string last_step = "WaitForSingleObject(" + mutex + ", INFINITE)";
    const bool stands = wait_until([&] {
        const Lines steps = lines(windows_calls().on_thread(call.thread()));
        return !steps.empty() && steps.back() == last_step;
    });
    if (!stands) return testing::AssertionFailure() << "the call does not wait for " << mutex;
    if (call.has_returned()) return testing::AssertionFailure() << "the call has returned";
    return testing::AssertionSuccess();
}

void waits_last(DWORD milliseconds) {
    windows.objects.on_wait = [milliseconds](HANDLE object, DWORD asked) -> std::optional<DWORD> {
        if (asked != milliseconds) return std::nullopt;
        return WaitForSingleObject(object, kPatience);
    };
}

void waits_time_out(DWORD milliseconds) {
    windows.objects.on_wait = [milliseconds](HANDLE, DWORD asked) -> std::optional<DWORD> {
        if (asked != milliseconds) return std::nullopt;
        return WAIT_TIMEOUT;
    };
}

HoldAfterTheAlert::HoldAfterTheAlert(const std::string& mutex) {
    gate_.close();
    driver.on.DornLineAlert = [this](DornAlertRecord* record) {
        alerting_ = GetCurrentThreadId();
        return ScriptedDriver::usual().DornLineAlert(record);
    };
    windows.objects.on_wait = [this, mutex](HANDLE object, DWORD asked) -> std::optional<DWORD> {
        if (asked == kSecond) return WaitForSingleObject(object, kShortWait);
        if (alerting_ == GetCurrentThreadId() && object_name(object) == mutex) gate_.pass();
        return std::nullopt;
    };
}

HoldAfterTheAlert::~HoldAfterTheAlert() {
    windows.objects.on_wait = nullptr;
    driver.on.DornLineAlert = ScriptedDriver::usual().DornLineAlert;
}
