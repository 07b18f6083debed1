#include "provider_fixture.h"

#include <cstdio>

#include "watchdog.h"

namespace harness {

namespace {

// LINEDEVCAPS of TAPI 2.0; the compiler's header has that of a later version.
constexpr DWORD kDevCapsSize = 252;

// Which parts of the world a test may have bent so that the provider could not be brought down any more.
void straighten_the_world() {
    driver.on = ScriptedDriver::usual();
    driver.uninteresting_levels.clear();
    tapi.on_event = nullptr;
    tapi.on_completion = nullptr;
    windows.on_sleep = nullptr;
    windows.memory.fails = nullptr;
    windows.objects.on_wait = nullptr;
    windows.objects.release_works = true;
    windows.objects.longest_wait = 20;  // a line that is closed at once may need a second alert
    open_all_gates();
}

}  // namespace

void ProviderFixture::SetUp() {
    start_watchdog();
    forget_problems();
    forget_names();
    driver.install();
    windows.reset();
    tapi = TapiSide{};
    name_pointer(reinterpret_cast<void*>(&tapi_completion), "COMPLETION_PROC");
    name_pointer(&options, "OPTIONS");
    load();
    new_chapter();
}

void ProviderFixture::TearDown() {
    straighten_the_world();
    while (!open_lines_.empty()) close_line(open_lines_.begin()->first);
    if (initialised_) {
        EXPECT_EQ(shut_down(), 0);
    }
    bool all_ended = windows.all_threads_end(kPatience);
    EXPECT_TRUE(all_ended) << "threads of the provider are still running; the journal:\n" << whole_journal();
    for (const std::string& text : problems()) ADD_FAILURE() << with_names(text);
    driver.let_everybody_go();
    if (HasFailure()) std::printf("the journal:\n%s", whole_journal().c_str());
    if (all_ended) unload();
    windows.clean_up();
    stop_watchdog();
}

void ProviderFixture::load() {
    const std::string path = provider_path();
    module = LoadLibraryA(path.c_str());
    const DWORD error = GetLastError();
    if (!module) {
        // Nothing can be tested, and fixtures go on with their own preparations after a failed one.
        std::printf("%s cannot be loaded: error %lu\n", path.c_str(), error);
        std::fflush(stdout);
        _exit(1);
    }
    replacements_ = std::make_unique<Replacements>(module);
    windows.install(*replacements_);
    tsp = find_exports(module);
}

void ProviderFixture::unload() {
    replacements_.reset();
    FreeLibrary(module);
}

LONG ProviderFixture::enumerate() {
    return tsp.TSPI_providerEnumDevices(kProviderId, &line_count, &phone_count, nullptr, nullptr, nullptr);
}

LONG ProviderFixture::initialise() {
    LONG result =
        tsp.TSPI_providerInit(kTspiVersion, kProviderId, kDeviceIdBase, 0, line_count, 0, tapi_completion, &options);
    initialised_ = result == 0;
    return result;
}

LONG ProviderFixture::shut_down() {
    initialised_ = false;
    return tsp.TSPI_providerShutdown(kTspiVersion, kProviderId);
}

void ProviderFixture::start_provider() {
    ASSERT_EQ(enumerate(), 0);
    ASSERT_EQ(initialise(), 0);
    ASSERT_TRUE(windows.all_threads_end(kPatience));
    new_chapter();
}

HDRVLINE ProviderFixture::open_line(unsigned index) {
    HDRVLINE opened = nullptr;
    LONG result = tsp.TSPI_lineOpen(kDeviceIdBase + index, tapi.line_handle(index), &opened, kTspiVersion, tapi_event);
    EXPECT_EQ(result, 0);
    if (result != 0) return nullptr;
    name_pointer(opened, text("LINE%u", index + 1));
    open_lines_[index] = opened;
    return opened;
}

HDRVLINE ProviderFixture::open_waiting_line(unsigned index) {
    HDRVLINE opened = open_line(index);
    EXPECT_TRUE(driver.waits_for_call(channel_number(index)));
    new_chapter();
    return opened;
}

LONG ProviderFixture::close_line(unsigned index) {
    HDRVLINE closed = line(index);
    open_lines_.erase(index);
    return tsp.TSPI_lineClose(closed);
}

HDRVLINE ProviderFixture::line(unsigned index) const {
    auto opened = open_lines_.find(index);
    return opened == open_lines_.end() ? nullptr : opened->second;
}

HDRVCALL ProviderFixture::call(unsigned index) const {
    return reinterpret_cast<HDRVCALL>(line(index));
}

uint32_t ProviderFixture::channel_number(unsigned index) const {
    for (const Module& known : driver.modules) {
        if (index < known.channel_count) return known.first_channel + index;
        index -= known.channel_count;
    }
    return 0;
}

uint32_t ProviderFixture::unit(unsigned index) const {
    return channel(index).unit;
}

SharedRecord& ProviderFixture::shared_record(unsigned index) const {
    return reinterpret_cast<SharedRecord*>(windows.mapping.view)[unit(index)];
}

LINEDEVCAPS ProviderFixture::device_caps(unsigned index) const {
    struct {
        LINEDEVCAPS fixed;
        wchar_t texts[256];
    } answer = {};
    answer.fixed.dwTotalSize = sizeof(answer);
    answer.fixed.dwUsedSize = kDevCapsSize;
    EXPECT_EQ(tsp.TSPI_lineGetDevCaps(kDeviceIdBase + index, kTspiVersion, 0, &answer.fixed), 0);
    return answer.fixed;
}

void ProviderFixture::offer_call(unsigned index, const CallData& data) {
    sleep_gate(6000).close();
    driver.ring(channel_number(index), data);
    EXPECT_TRUE(sleep_gate(6000).holds_somebody());
}

void ProviderFixture::take_call(unsigned index, const CallData& data) {
    const char* parked = "[4] RING_DET_THREAD: call connected";
    size_t before = count(traces(), parked);
    offer_call(index, data);
    DRV_REQUESTID request = next_request();
    EXPECT_EQ(tsp.TSPI_lineAnswer(request, call(index), nullptr, 0), static_cast<LONG>(request));
    sleep_gate(6000).open();
    EXPECT_TRUE(comes(parked, before + 1));
}

void ProviderFixture::place_call(unsigned index, const std::wstring& number) {
    size_t ended_before = count(traces().levels({9}), "[9] <*>: out_call_thread");
    HTAPICALL handle = tapi.new_call_handle();
    HDRVCALL placed = nullptr;
    DRV_REQUESTID request = next_request();
    LONG result = tsp.TSPI_lineMakeCall(request, line(index), handle, &placed, number.c_str(), 0, nullptr);
    EXPECT_EQ(result, static_cast<LONG>(request));
    EXPECT_TRUE(comes("LINE_CALLSTATE(<*>, " + name_of(handle) + ", CONNECTED, 0x1, 0x20)"));
    EXPECT_TRUE(comes("[9] <*>: out_call_thread", ended_before + 1));
}

}  // namespace harness
