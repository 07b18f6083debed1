#include "line_fixture.h"

namespace harness {

std::string of_line(const std::string& call) {
    return "hdLine(0xLINE1), htLine(0xHTLINE1), dwDeviceID(0x7), htCall(0x" +
           (call.empty() ? "0000000000000000" : call) + "): ";
}

View on_this_thread(const View& view) {
    return view.on_thread(GetCurrentThreadId());
}

namespace {

const char* const kParked = "WaitForSingleObject(RING_DET_WAIT, INFINITE)";

View of_newest(const std::string& function, const View& view) {
    auto begun = entries(traces().levels({8}).only({"[8] <*>: " + function}));
    return view.on_thread(begun.empty() ? 0 : begun.back().thread);
}

}  // namespace

View of_out_call_thread(const View& view) {
    return of_newest("out_call_thread", view);
}

View of_drop_call_thread(const View& view) {
    return of_newest("drop_call_thread", view);
}

View handshake() {
    return all_of(WINDOWS | DRIVER | EVENT | COMPLETION)
        .only({"SetEvent(<*>", "ResetEvent(<*>", "WaitForSingleObject(<*>", "ReleaseMutex(<*>", "Sleep(<*>", "Dorn<*>",
               "LINE_<*>", "completion(<*>"});
}

View signals() {
    return handshake().without({"<*>LOCK<*>", "Dorn<*>"});
}

Lines joined(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

bool is_call_request(const Allocation& allocation) {
    return allocation.size > 176 && allocation.size < 256;
}

std::function<bool(const Allocation&)> drop_requests_of(DWORD thread) {
    return [thread](const Allocation& allocation) { return allocation.size == 16 && GetCurrentThreadId() == thread; };
}

testing::AssertionResult reports_an_exception(const std::string& function, const std::function<LONG()>& call) {
    SetLastError(0);
    LONG result = call();
    DWORD error = GetLastError();
    if (result != failed(LINEERR_OPERATIONFAILED)) return testing::AssertionFailure() << "the result is " << result;
    if (error != ERROR_EXCEPTION_IN_SERVICE) return testing::AssertionFailure() << "the last error is " << error;
    return holds(traces(), "[1] " + function + ": Exception");
}

testing::AssertionResult lock_is_given_back() {
    size_t taken = count(on_this_thread(windows_calls()), "WaitForSingleObject(LOCK, INFINITE)");
    size_t given_back = count(on_this_thread(windows_calls()), "ReleaseMutex(LOCK)");
    if (taken > 0 && taken == given_back) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "taken " << taken << " times, given back " << given_back << " times";
}

void LineFixture::SetUp() {
    ProviderFixture::SetUp();
    start_provider();
    open_named_line();
}

void LineFixture::open_named_line() {
    int events_before = windows.objects.events_created;
    open_waiting_line(0);
    std::map<std::string, std::string> own_names = {
        {text("MUTEX%d", windows.objects.mutexes_created), "LOCK"},
        {text("EVENT%d", events_before + 1), "WORKER_IDLE"},
        {text("EVENT%d", events_before + 2), "DROP_DONE"},
        {text("EVENT%d", events_before + 3), "RING_DET_WAIT"},
    };
    auto handles = windows.objects.open;
    for (auto& [handle, name] : handles)
        if (own_names.count(name)) know_object(handle, own_names[name]);
}

LONG LineFixture::make_call(const wchar_t* number, LINECALLPARAMS* parameters) {
    return tsp.TSPI_lineMakeCall(kRequest, line(0), tapi.new_call_handle(), &placed, number, 49, parameters);
}

LONG LineFixture::dial(const wchar_t* number) {
    return tsp.TSPI_lineDial(kRequest, call(0), number, 49);
}

DWORD LineFixture::active_calls() {
    LINEADDRESSSTATUS status = {};
    EXPECT_EQ(tsp.TSPI_lineGetAddressStatus(line(0), 0, &status), 0);
    return status.dwNumActiveCalls;
}

void LineFixture::take_call(unsigned index, const CallData& data) {
    size_t parked_before = count(windows_calls(), kParked);
    ProviderFixture::take_call(index, data);
    EXPECT_TRUE(comes(kParked, parked_before + 1));
}

void LineFixture::place_call(unsigned index) {
    size_t parked_before = count(windows_calls(), kParked);
    ProviderFixture::place_call(index);
    EXPECT_TRUE(comes(kParked, parked_before + 1));
}

void LineFixture::end_the_pause() {
    sleep_gate(6000).open();
    EXPECT_TRUE(driver.waits_for_call(channel_number(0)));
}

void LineFixture::offer_call_and_wait(const CallData& data) {
    offer_call(0, data);
    end_the_pause();
}

void LineFixture::ring_again() {
    driver.ring(channel_number(0));
    EXPECT_TRUE(driver.waits_for_call(channel_number(0)));
}

void LineFixture::place_call_that_lasts() {
    driver.on.DornCallSetup = [](DornLine* line, DornCallRecord* record) {
        record->status = driver.block(line) ? KX_STATUS_ALERT : KX_STATUS_OK;
        return 0;
    };
    EXPECT_EQ(make_call(), static_cast<LONG>(kRequest));
    EXPECT_TRUE(comes("DornCallSetup(<*>"));
    EXPECT_TRUE(driver.is_blocked(channel_number(0)));
}

void LineFixture::worker_ends(size_t times) {
    EXPECT_TRUE(comes("[9] <*>: out_call_thread", times));
}

void LineFixture::shorten_waits(DWORD milliseconds) {
    windows.objects.on_wait = [milliseconds](HANDLE object, DWORD asked) -> std::optional<DWORD> {
        if (asked != milliseconds) return std::nullopt;
        return WaitForSingleObject(object, 20);
    };
}

}  // namespace harness
