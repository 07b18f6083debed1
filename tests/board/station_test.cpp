// Far ends that are no lines, and their misbehaviour.
#include "pages.h"
#include "support.h"

static std::vector<std::string> files_of(const std::string& pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        names.push_back(found.cFileName);
    } while (FindNextFileA(search, &found) != 0);
    FindClose(search);
    return names;
}

static const std::vector<Page> THREE_PAGES = {text_page(1), text_page(2), text_page(3)};

// Calls station 200 and sends it three pages.
static FaxJob send_to_station(const Board& board) {
    write_file(board.file("out.tif"), THREE_PAGES);
    DornLine* const line = attach(0);
    EXPECT_EQ(dial(line, "200"), CONNECTED);
    FaxJob job = send_fax(line, board.file("out.tif"));
    reset(line);
    return job;
}

// Waits for the call of station 300 and receives what it sends.
static FaxJob receive_from_station(const Board& board) {
    DornLine* const line = attach(1);
    const DornWaitForCallRecord ring = wait_for_call(line);
    EXPECT_STREQ(ring.callData.szCallingNumber, "300");
    EXPECT_STREQ(ring.callData.szCallingName, "sender");
    EXPECT_EQ(answer(line).status, uint32_t{KX_STATUS_OK});
    return receive_fax(line, board.file("in.tif"));
}

static std::string sender(const std::string& file, const std::string& more = "") {
    return "[station.sender]\nnumber=300\ncalls=101\nfile=" + file + "\n" + more;
}

struct SourceFile {
    const std::string path;
    SourceFile() : path(temporary()) { write_file(path, THREE_PAGES); }
    ~SourceFile() { DeleteFileA(path.c_str()); }
    static std::string temporary() {
        char folder[MAX_PATH + 1];
        GetTempPathA(sizeof folder, folder);
        return std::string(folder) + "station-" + std::to_string(GetCurrentProcessId()) + ".tif";
    }
};

TEST(Station, StoresWhatItReceives) {
    Board board("[station.archive]\nnumber=200\nident=+1 200\nfolder={folder}\n");
    const FaxJob job = send_to_station(board);
    expect_good(job, 3);
    EXPECT_EQ(job.remote_id, "+1 200");
    board.shut_down();
    const std::vector<std::string> files = files_of(board.file("archive-*.tif"));
    ASSERT_EQ(files.size(), 1u);
    const std::vector<Page> stored = read_file(board.file(files[0]));
    ASSERT_EQ(stored.size(), 3u);
    for (size_t i = 0; i < 3; ++i) EXPECT_TRUE(same_image(stored[i], THREE_PAGES[i]));
}

TEST(Station, CallsALineAndSendsItsFile) {
    const SourceFile source;
    Board board(sender(source.path, "information=%41\nsub_address=5\n"));
    const FaxJob job = receive_from_station(board);
    expect_good(job, 3);
    EXPECT_EQ(job.remote_id, "300");
    EXPECT_EQ(job.second_id, "5");
}

TEST(Station, CallsAsOftenAsItIsTold) {
    const SourceFile source;
    Board board(sender(source.path, "times=2\nafter_ms=20\n"));
    DornLine* const line = attach(1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(wait_for_call(line).line_status, 0u);
        answer(line);
        expect_good(receive_fax(line, board.file("in.tif")), 3);
        reset(line);
    }
    EXPECT_EQ(wait_for_call(line, 100).line_status, WAIT_FOR_CALL_TIMEOUT);
}

TEST(Station, CanBeBusy) {
    Board board("[station.a]\nnumber=200\nbusy=yes\n");
    EXPECT_EQ(dial(attach(0), "200"), 301u);
}

TEST(Station, CanNeverAnswer) {
    Board board("[board]\nno_answer_ms=100\n[station.a]\nnumber=200\nanswers=no\n");
    EXPECT_EQ(dial(attach(0), "200"), 325u);
}

TEST(Station, HasOneLine) {
    Board board("[station.a]\nnumber=200\n");
    EXPECT_EQ(dial(attach(0), "200"), CONNECTED);
    EXPECT_EQ(dial(attach(1), "200"), 301u);
}

TEST(Station, CanAnswerWithSilence) {
    Board board("[station.a]\nnumber=200\nsilent=yes\n");
    const FaxJob job = send_to_station(board);
    EXPECT_EQ(job.failed_call, "GetRemoteInfo");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_TIMEOUT});
}

TEST(Station, CanFailEveryTraining) {
    Board board("[station.a]\nnumber=200\ntrains=no\n");
    const FaxJob job = send_to_station(board);
    EXPECT_EQ(job.failed_call, "WaitForTraining");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ERROR});
    EXPECT_EQ(job.result.line_status, uint32_t{APIERR_UNCLASSIFIED});
    EXPECT_EQ(job.pages, 0u);
}

TEST(Station, CanFailEveryTrainingOfItsOwn) {
    const SourceFile source;
    Board board(sender(source.path, "trains=no\n"));
    const FaxJob job = receive_from_station(board);
    EXPECT_EQ(job.failed_call, "WaitForTraining");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ERROR});
}

class StationLine : public testing::TestWithParam<const char*> {};

TEST_P(StationLine, CanHangUpWhileItReceivesAPage) {
    Board board(std::string("[station.a]\nnumber=200\nhangup_page=2\nfolder={folder}\n") + GetParam());
    const FaxJob job = send_to_station(board);
    EXPECT_EQ(job.failed_call, "SendPageTiff");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_EQ(job.pages, 1u);
    board.shut_down();
    const std::vector<std::string> files = files_of(board.file("a-*.tif"));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(read_file(board.file(files[0])).size(), 1u);
}

TEST_P(StationLine, CanHangUpWhileItSendsAPage) {
    const SourceFile source;
    Board board(sender(source.path, std::string("hangup_page=2\n") + GetParam()));
    const FaxJob job = receive_from_station(board);
    EXPECT_EQ(job.failed_call, "RcvPageTiff");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_EQ(job.pages, 1u);
    const std::vector<Page> received = read_file(board.file("in.tif"));
    ASSERT_EQ(received.size(), 1u);
    EXPECT_TRUE(same_image(received[0], THREE_PAGES[0]));
}

TEST_P(StationLine, CanHangUpDuringTheFirstPage) {
    Board board(std::string("[station.a]\nnumber=200\nhangup_page=1\n") + GetParam());
    const FaxJob job = send_to_station(board);
    EXPECT_EQ(job.failed_call, "SendPageTiff");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_EQ(job.pages, 0u);
}

INSTANTIATE_TEST_SUITE_P(, StationLine, testing::Values("", "ecm=no\n", "max_rate=2400\n"),
                         [](const testing::TestParamInfo<const char*>& line) { return std::to_string(line.index); });

TEST(Station, ThatHasNothingToSendHangsUp) {
    Board board(sender("C:\\no\\such.tif"));
    DornLine* const line = attach(1);
    EXPECT_EQ(wait_for_call(line).line_status, 0u);
    answer(line);
    const FaxJob job = receive_fax(line, board.file("in.tif"));
    EXPECT_NE(job.result.status, uint32_t{KX_STATUS_OK});
    EXPECT_EQ(job.pages, 0u);
}
