// The log functions, and what the configuration's mistakes say in it.
#include <qorvlog.h>

#include <cstdio>

#include "support.h"

using softboard::Thread;

namespace {

constexpr uint32_t CLIENT = 0x1234;
constexpr uint32_t STRANGER = 0x5678;

// A client as the provider registers itself.
void add_client(uint32_t client = CLIENT) {
    QorvLogInit("MSF_TSP", nullptr, 0, 1);
    QorvLogFilter* const filter = QorvLogFilterNew("MSF_TSP", "MSF_TSP", 1, 0, 0, 0);
    QorvLogFilterAddSetting(filter, 1, "FILTER_PANIC", 1);
    QorvLogFilterAddSetting(filter, 4, "FILTER_INFO", 0);
    QorvLogFilterAddSetting(filter, 17, "FILTER_TSPI_LINE_FUNCTION_EXIT", 1);
    QorvLogAddFilter(client, filter);
    QorvLogFilterDelete(filter);
}

}  // namespace

TEST(Log, ALevelIsWantedAsTheFilterSaysAndUnknownOnesAreNot) {
    Board board;
    add_client();
    EXPECT_NE(QorvLogInitialized(), 0);
    EXPECT_NE(QorvLogIsInterested(CLIENT, 1), 0);
    EXPECT_NE(QorvLogIsInterested(CLIENT, 17), 0);
    EXPECT_EQ(QorvLogIsInterested(CLIENT, 4), 0);
    EXPECT_EQ(QorvLogIsInterested(CLIENT, 6), 0);
    EXPECT_EQ(QorvLogIsInterested(CLIENT, -1), 0);
    EXPECT_EQ(QorvLogIsInterested(CLIENT, 1000), 0);
    EXPECT_EQ(QorvLogIsInterested(STRANGER, 1), 0);
    EXPECT_EQ(QorvLogIsInterested(0, 2), 1);  // the board itself
}

TEST(Log, LinesHaveTimeLevelAndPlace) {
    Board board;
    add_client();
    QorvLogLogMsg(CLIENT, 1, "P-0x000001: it is %d", "/source/tsp/lines.cpp", 42);
    QorvLogLogMsg(CLIENT, 4, "not wanted", "lines.cpp", 43);
    board.shut_down();
    const std::string text = read_text(board.file("board.log"));
    EXPECT_NE(text.find(" FILTER_PANIC lines.cpp(42): P-0x000001: it is %d\r\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("not wanted"), std::string::npos);
}

TEST(Log, TheConfigurationOverridesTheFilters) {
    Board board("[log]\nfile={folder}\\board.log\non=FILTER_INFO\noff=17\n");
    add_client();
    EXPECT_NE(QorvLogIsInterested(CLIENT, 4), 0);
    EXPECT_EQ(QorvLogIsInterested(CLIENT, 17), 0);
    EXPECT_NE(QorvLogIsInterested(CLIENT, 1), 0);
}

TEST(Log, TheFileIsRotatedBySize) {
    Board board("[log]\nfile={folder}\\board.log\nmax_bytes=1000\nkeep=2\ndebugger=no\n");
    add_client();
    for (int i = 0; i < 100; ++i) QorvLogLogMsg(CLIENT, 1, ("line " + std::to_string(i)).c_str(), "a.cpp", 1);
    board.shut_down();
    for (const char* const name : {"board.log", "board.log.1", "board.log.2"}) {
        const size_t size = read_text(board.file(name)).size();
        EXPECT_GT(size, 0u) << name;
        EXPECT_LE(size, 1000u) << name;
    }
    EXPECT_EQ(read_text(board.file("board.log.3")), "");
    EXPECT_NE(read_text(board.file("board.log")).find("line 99"), std::string::npos);
}

TEST(Log, NullsAreIgnored) {
    Board board;
    QorvLogFilterAddSetting(nullptr, 1, "x", 1);
    QorvLogAddFilter(CLIENT, nullptr);
    QorvLogFilterDelete(nullptr);
    add_client();
    QorvLogLogMsg(CLIENT, 1, nullptr, nullptr, 1);
    QorvLogFilter* const filter = QorvLogFilterNew(nullptr, nullptr, 1, 0, 0, 0);
    QorvLogFilterAddSetting(filter, 1, nullptr, 1);
    QorvLogFilterDelete(filter);
}

namespace {

struct SlowFile {
    const HANDLE writing = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE written = CreateEventA(nullptr, TRUE, FALSE, nullptr);
};
SlowFile slow;
decltype(&::fflush) original_flush;

int wait_in_flush(FILE* stream) {
    SetEvent(slow.writing);
    WaitForSingleObject(slow.written, INFINITE);
    return original_flush(stream);
}

}  // namespace

TEST(Log, WhetherALevelIsWantedIsSaidWhileALineIsBeingWritten) {
    Board board;
    add_client();
    harness::Replacements table(GetModuleHandleA("calddlld.dll"));
    ASSERT_TRUE(table.replace("fflush", original_flush, wait_in_flush));
    const Thread writer([] { QorvLogLogMsg(CLIENT, 1, "slow", "test.cpp", 1); });
    WaitForSingleObject(slow.writing, INFINITE);
    EXPECT_NE(QorvLogIsInterested(CLIENT, 1), 0);
    EXPECT_EQ(QorvLogIsInterested(CLIENT, 4), 0);
    SetEvent(slow.written);
}

// ---- the configuration --------------------------------------------------------------------------------------------

TEST(Configuration, MistakesAreReportedByLineAndLeaveTheDefault) {
    Board board(
        "[board]\n"             // 1
        "pace=quick\n"          // 2
        "ring_interval_ms=x\n"  // 3
        "colour=green\n"        // 4
        "nonsense\n"            // 5
        "[module.2]\n"          // 6
        "channels=5000\n"       // 7
        "[channel.17]\n"        // 8
        "[toaster]\n"           // 9
        "[module.1]\n"          // 10
        "[channel.0]\n"         // 11
        "max_rate=14401\n"      // 12
        "[station.a]\n"         // 13
        "number=100\n"          // taken
        "[station.b]\n"         // 15
        "calls=101\n");         // no file
    EXPECT_NE(attach(3), nullptr);
    EXPECT_EQ(attach(4), nullptr);
    board.shut_down();
    const std::string text = read_text(board.file("board.log"));
    for (const int line : {2, 3, 4, 5, 7, 8, 9, 10, 12, 15}) {
        EXPECT_NE(text.find("softboard.ini(" + std::to_string(line) + "): "), std::string::npos) << line << text;
    }
    for (const int line : {1, 6, 11, 13}) {
        EXPECT_EQ(text.find("softboard.ini(" + std::to_string(line) + "): "), std::string::npos) << line;
    }
    EXPECT_NE(text.find("number 100 is given twice"), std::string::npos);
}

TEST(Configuration, ModulesThatTogetherHaveTooManyChannelsAreLeftOut) {
    Board board(
        "[module.2]\n"  // 1
        "channels=4048\n"
        "[module.3]\n"  // 3
        "channels=1\n"
        "first_unit=0\n"
        "[module.4]\n"  // 6
        "channels=0\n"
        "first_unit=0\n");
    EXPECT_NE(attach(4047), nullptr);
    EXPECT_EQ(attach(4048), nullptr);
    board.shut_down();
    const std::string text = read_text(board.file("board.log"));
    EXPECT_NE(text.find("softboard.ini(3): with it there are over 4048 channels"), std::string::npos) << text;
    EXPECT_EQ(text.find("softboard.ini(6)"), std::string::npos) << text;
}

TEST(Configuration, TheExampleIsWithoutMistakes) {
    std::string example = read_text("softboard.ini.example");
    ASSERT_FALSE(example.empty());
    const std::string file = "C:\\temp\\calddlld.log";
    example.replace(example.find(file), file.size(), "{folder}\\board.log");
    Board board(example);
    EXPECT_NE(attach(0), nullptr);
    board.shut_down();
    EXPECT_EQ(read_text(board.file("board.log")).find("softboard.ini"), std::string::npos);
}

TEST(Configuration, FourThousandChannelsComeUpAtOnce) {
    Board board("[module.2]\nchannels=2000\n[module.5]\nchannels=2048\n");
    std::vector<DornLine*> lines;
    for (uint32_t channel = 0; channel < 4048; ++channel) lines.push_back(attach(channel));
    EXPECT_EQ(DornLineUnitGet(lines.back()), 4047u);
    const auto answerer = answering(lines.back());
    EXPECT_EQ(dial(lines.front(), "4147"), CONNECTED);
}

TEST(Configuration, WithMoreModulesThanOldLibrariesKnowTheVariableSaysSo) {
    Board board("[board]\npkt_version_exp=1\n[module.200]\nchannels=1\n");
    EXPECT_EQ(_dorn_pkt_version_exp, 1u);
    DornModuleInfoRecord record{};
    record.dwModule = 200;
    DornModuleInfo(nullptr, &record);
    EXPECT_EQ(record.dwChannelCount, 1u);
}
