// The panic file: every line of level 1, in "\temp" at the root of the current drive, whether or not the log wants it.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>

#include "harness.h"

using namespace harness;

namespace {

class PanicFile : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        windows.services.state[L"calder"] = SERVICE_STOPPED;
    }

    static void make_temp_folder() {
        CreateDirectoryA(windows.files.root.c_str(), nullptr);
        CreateDirectoryA((windows.files.root + "\\temp").c_str(), nullptr);
    }

    // The file as its bytes are.
    static std::string contents() {
        std::ifstream file(windows.files.root + "\\temp\\QorvTspPanic.txt", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
};

View openings() {
    return windows_calls().only({"fopen(<*>"});
}

const char* const kLine = "[1] Calder Host Service is not running!";

std::string record_pattern() {
    return "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6}\tFILTER_PANIC\t(.+) Line (\\d+)\t" +
           text("P-0x%06lX:T-0x%06lX: ", GetCurrentProcessId(), GetCurrentThreadId()) +
           "Calder Host Service is not running!\r\n";
}

}  // namespace

TEST_F(PanicFile, GetsALineWithItsTimeAndPlace) {
    make_temp_folder();
    enumerate();
    std::string record = contents();
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(record, parts, std::regex(record_pattern()))) << record;
    Entry written = entries(traces().levels({1})).at(0);
    EXPECT_EQ(parts[1], written.source_file);
    EXPECT_EQ(parts[2], std::to_string(written.source_line));
}

TEST_F(PanicFile, HasTheLocalTime) {
    make_temp_folder();
    SYSTEMTIME before, after;
    GetLocalTime(&before);
    enumerate();
    GetLocalTime(&after);
    auto shown = [](const SYSTEMTIME& time) {
        return text("%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                    time.wSecond);
    };
    std::string stamp = contents().substr(0, 19);
    EXPECT_LE(shown(before), stamp);
    EXPECT_LE(stamp, shown(after));
}

TEST_F(PanicFile, IsOpenedForAppendingInTextMode) {
    make_temp_folder();
    enumerate();
    EXPECT_TRUE(reads(openings(), {"fopen(\"\\temp\\QorvTspPanic.txt\", \"a\")"}));
}

TEST_F(PanicFile, GetsOneRecordAfterTheOther) {
    make_temp_folder();
    enumerate();
    enumerate();
    EXPECT_TRUE(std::regex_match(contents(), std::regex(record_pattern() + record_pattern()))) << contents();
}

TEST_F(PanicFile, GetsALineThatTheLogDoesNotWant) {
    make_temp_folder();
    driver.uninteresting_levels = {1};
    enumerate();
    EXPECT_TRUE(holds_no(traces(), kLine));
    EXPECT_TRUE(std::regex_match(contents(), std::regex(record_pattern()))) << contents();
}

TEST_F(PanicFile, GetsALineBeforeTheTraceIsSetUp) {
    make_temp_folder();
    driver.on.DornInitialize = []() -> int { throw 1; };
    enumerate();
    EXPECT_TRUE(matches("<*>\tFILTER_PANIC\t<*>TSPI_providerEnumDevices: Exception\r\n", contents()));
}

TEST_F(PanicFile, GetsALineBeforeTheLogIsAskedForIt) {
    enumerate();
    EXPECT_TRUE(reads(all_of(TRACE | WINDOWS | DRIVER_QUERY).levels({1}).only({kLine, "fopen<*>", "<*>Interested(1)"}),
                      {"fopen(\"\\temp\\QorvTspPanic.txt\", \"a\") failed", "QorvLogIsInterested(1)", kLine}));
}

// ---- messages of any kind -----------------------------------------------------------------------------------------

namespace {

// Leaves no zero where the provider's buffers will be.
void fill_the_stack() {
    volatile char below[200000];
    for (volatile char& byte : below) byte = 'x';
}

const std::string kMessage = "Calder Host Service is not running!";

// Formatting that gives a message with percent signs.
int __cdecl message_with_percent_signs(char* buffer, size_t size, const char* format, va_list arguments) {
    return _vsnprintf(buffer, size, format == kMessage ? "100%%%% sure" : format, arguments);
}

// ... and one that is as long as its space and has no end.
int __cdecl endless_message(char* buffer, size_t size, const char* format, va_list arguments) {
    if (format != kMessage) return _vsnprintf(buffer, size, format, arguments);
    std::fill(buffer, buffer + size, 'x');
    return -1;
}

}  // namespace

TEST_F(PanicFile, TakesPercentSignsForConversions) {
    make_temp_folder();
    Replacements more(module);
    ASSERT_TRUE(more.replace("_vsnprintf", reinterpret_cast<void*>(message_with_percent_signs)));
    enumerate();
    EXPECT_TRUE(matches("<*>\tFILTER_PANIC\t<*>: 100% sure\r\n", contents())) << contents();
    EXPECT_TRUE(holds(traces(), "[1] 100%% sure"));
}

TEST_F(PanicFile, GetsARecordOf8192CharactersAtMost) {
    make_temp_folder();
    Replacements more(module);
    ASSERT_TRUE(more.replace("_vsnprintf", reinterpret_cast<void*>(endless_message)));
    std::string logged;
    driver.on.QorvLogLogMsg = [&](uint32_t, int level, const char* line, const char*, uint32_t) {
        if (level == 1) logged = line;
    };
    fill_the_stack();
    enumerate();
    EXPECT_EQ(logged.size(), 8192u);
    EXPECT_EQ(contents().size(), 8192u);
    EXPECT_EQ(contents().back(), 'x');
}

TEST_F(PanicFile, GetsNoLineOfAnotherLevel) {
    make_temp_folder();
    windows.services.state[L"calder"] = SERVICE_RUNNING;
    enumerate();
    EXPECT_TRUE(reads(openings(), {}));
}

TEST_F(PanicFile, IsNotMadeWithoutItsFolder) {
    enumerate();
    EXPECT_TRUE(holds(traces(), kLine));
    EXPECT_TRUE(reads(openings(), {"fopen(\"\\temp\\QorvTspPanic.txt\", \"a\") failed"}));
    EXPECT_EQ(contents(), "");
    EXPECT_TRUE(reads(windows_calls().only({"OutputDebugString<*>"}), {}));
}
