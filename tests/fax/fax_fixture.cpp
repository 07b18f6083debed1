#include "fax_fixture.h"

#include <cstdio>

using namespace harness;

const char* const kLine = "hdLine(0xLINE1), htLine(0xHTLINE1), dwDeviceID(0x7), htCall(0xHTCALL1): ";
const char* const kIdleLine = "hdLine(0xLINE1), htLine(0xHTLINE1), dwDeviceID(0x7), htCall(0x0000000000000000): ";

std::string of_line(int level, const std::string& text) {
    return harness::text("[%d] ", level) + kLine + text;
}

Lines joined(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

const Lines& call_is_disconnected() {
    static const Lines story = {
        of_line(4, "Sending LINE_CALLSTATE, dwCallState=0x4000, dwCallStateMode=0x1"),
        "LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)",
        of_line(4, "Sending LINE_LINEDEVSTATE, newstate=0x800, Parm2=0x0, Parm3=0x0"),
        "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)",
        of_line(4, "Sending LINE_ADDRESSSTATE addr=0x0, newstate=0x20, Parm3=0x0"),
        "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)",
    };
    return story;
}

std::function<int(DornLine*, DornFaxRecord*)> fax_step(int result, uint32_t status, uint32_t line_status) {
    return [=](DornLine*, DornFaxRecord* record) {
        put_value(record, 0, status);
        put_value(record, 4, line_status);
        return result;
    };
}

std::vector<std::vector<uint8_t>> records_of(const std::string& function) {
    std::vector<std::vector<uint8_t>> records;
    for (const Entry& entry : entries(driver_calls().only({function + "(<*>"}))) records.push_back(entry.record);
    return records;
}

void FaxFixture::SetUp() {
    ProviderFixture::SetUp();
    char folder[MAX_PATH];
    GetTempPathA(sizeof(folder), folder);
    file_ = folder + text("fax-%lu.tif", GetCurrentProcessId());
    start_provider();
    open_waiting_line(0);
}

void FaxFixture::TearDown() {
    // A job that a test has left in the middle ends before its line is closed.
    tapi.on_event = nullptr;
    driver.on = ScriptedDriver::usual();
    open_all_gates();
    fax_thread_ends();
    ProviderFixture::TearDown();
    std::remove(file_.c_str());
}

LONG FaxFixture::request(CommandBlock& block) {
    return tsp.TSPI_lineDevSpecific(next_request(), line(0), 0, call(0), block.data(), CommandBlock::size());
}

uint32_t FaxFixture::command(CommandBlock block) {
    EXPECT_GT(request(block), 0);
    return block.result();
}

void FaxFixture::open_file(const std::string& mode) {
    EXPECT_EQ(command(CommandBlock::open(file(), mode)), 0u);
}

uint32_t FaxFixture::close_file(uint32_t job_command) {
    return command(CommandBlock::close(job_command));
}

void FaxFixture::send_fax(const FaxTexts& texts) {
    EXPECT_EQ(command(CommandBlock::fax(FAXSEND, texts)), 0u);
    fax_thread_ends();
}

void FaxFixture::receive_fax(const FaxTexts& texts) {
    EXPECT_EQ(command(CommandBlock::fax(FAXRECEIVE, texts)), 0u);
    fax_thread_ends();
}

void FaxFixture::fax_thread_ends() {
    const int open_lines = (line(0) != nullptr) + (line(1) != nullptr);
    EXPECT_TRUE(wait_until([open_lines] {
        std::lock_guard<std::mutex> holding(world());
        return windows.threads.running == open_lines;
    })) << whole_journal();
}

View FaxFixture::of_the_job(const View& view) const {
    return view.on_thread(entries(driver_calls().only({"DornFaxSetLocalId(<*>"})).at(0).thread);
}

Lines FaxFixture::outcome() const {
    return lines(events().only({"LINE_CALLDEVSPECIFIC(<*>, 0x1, <*>", "LINE_CALLSTATE(<*>"}));
}

HANDLE FaxFixture::line_mutex() const {
    std::lock_guard<std::mutex> holding(world());
    for (const auto& [handle, name] : windows.objects.open)
        if (name == "MUTEX1") return handle;
    return nullptr;
}

bool FaxFixture::line_is_locked() const {
    Call probe([mutex = line_mutex()] {
        DWORD result = WaitForSingleObject(mutex, 0);
        if (result != WAIT_TIMEOUT) ReleaseMutex(mutex);
        return static_cast<LONG>(result == WAIT_TIMEOUT);
    });
    return probe.result() != 0;
}

void FaxFixture::note_lock(const std::string& where) const {
    note(where + (line_is_locked() ? " under the lock" : " without the lock"));
}

void FaxFixture::note_lock_at_events() const {
    tapi.on_event = [this](const LineEvent&) { note_lock("told"); };
}

void OutgoingFaxFixture::SetUp() {
    FaxFixture::SetUp();
    place_call(0);
    fax_thread_ends();
    new_chapter();
}

void IncomingFaxFixture::SetUp() {
    FaxFixture::SetUp();
    take_call(0, incoming_call());
    new_chapter();
}
