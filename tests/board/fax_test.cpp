// Fax sessions between two lines of the board.
#include "pages.h"
#include "support.h"

#include <header_line.h>
#include <page.h>

using softboard::Thread;

static void expect_same_pages(const std::string& file, const std::vector<Page>& pages, size_t header_rows = 0) {
    const std::vector<Page> received = read_file(file);
    ASSERT_EQ(received.size(), pages.size());
    for (size_t i = 0; i < pages.size(); ++i) {
        EXPECT_TRUE(same_image(received[i], pages[i], header_rows)) << "page " << i + 1;
    }
}

// A board with a connected call, three pages to send, and where they go.
struct FaxBoard {
    Board board;
    const std::vector<Page> pages;
    const ConnectedLines lines;
    const std::string out = board.file("out.tif");
    const std::string in = board.file("in.tif");

    explicit FaxBoard(const std::string& ini = "", const FileForm& form = {},
                      std::vector<Page> to_send = {text_page(1), text_page(2), halftone_page(300)})
        : board(ini), pages(std::move(to_send)), lines(0, 1, "101") {
        write_file(out, pages, form);
    }
    Transfer run(const FaxOptions& sending = {}, const FaxOptions& receiving = {}) const {
        return transfer(lines, out, in, sending, receiving);
    }
};

// ---- what goes through --------------------------------------------------------------------------------------------

TEST(Fax, ThreePagesArriveAsTheyWereSent) {
    const FaxBoard fax;
    const Transfer result = fax.run();
    expect_good(result.sent, 3);
    expect_good(result.received, 3);
    expect_same_pages(fax.in, fax.pages);
}

struct LineCase {
    const char* name;
    const char* ini;
    uint8_t rate_index;
};

class FaxOverLine : public testing::TestWithParam<LineCase> {};

TEST_P(FaxOverLine, ArrivesAtTheRateThatTheLineAllows) {
    const FaxBoard fax(GetParam().ini);
    const Transfer result = fax.run();
    expect_good(result.sent, 3);
    expect_good(result.received, 3);
    expect_same_pages(fax.in, fax.pages);
    EXPECT_EQ(DornLineDcsGet(fax.lines.caller)[2], GetParam().rate_index);
    EXPECT_EQ(DornLineDcsGet(fax.lines.called)[2], GetParam().rate_index);
}

constexpr LineCase LINES[] = {
    {"14400WithEcm", "", 7},
    {"14400WithoutEcm", "[module.2]\necm=no\n", 7},
    {"12000", "[module.2]\nmax_rate=12000\n", 6},
    {"9600WithoutEcm", "[channel.1]\nmax_rate=9600\necm=no\n", 3},
    {"9600WithoutV17", "[channel.0]\nmissing_capabilities=41\n", 3},
    {"7200", "[channel.1]\nmax_rate=7200\n", 2},
    {"4800", "[channel.0]\nmax_rate=4800\n", 1},
    {"2400WithEcm", "[channel.1]\nmax_rate=2400\n", 0},
    {"2400WithoutEcm", "[channel.0]\nmax_rate=2400\necm=no\n", 0},
};
INSTANTIATE_TEST_SUITE_P(, FaxOverLine, testing::ValuesIn(LINES),
                         [](const testing::TestParamInfo<LineCase>& line) { return line.param.name; });

struct FileCase {
    const char* name;
    FileForm form;
};

class FaxOfFile : public testing::TestWithParam<FileCase> {};

TEST_P(FaxOfFile, IsSentWhateverItsCodingIs) {
    const FaxBoard fax("", GetParam().form);
    expect_good(fax.run().sent, 3);
    expect_same_pages(fax.in, fax.pages);
}

constexpr FileCase FILES[] = {
    {"T6LeastSignificantBitFirst", {COMPRESSION_CCITTFAX4, FILLORDER_LSB2MSB, PHOTOMETRIC_MINISWHITE, "w"}},
    {"T4", {COMPRESSION_CCITTFAX3, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, "w"}},
    {"ModifiedHuffman", {COMPRESSION_CCITTRLE, FILLORDER_LSB2MSB, PHOTOMETRIC_MINISWHITE, "w"}},
    {"Uncompressed", {COMPRESSION_NONE, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, "w"}},
    {"BlackIsZero", {COMPRESSION_CCITTFAX4, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISBLACK, "w"}},
    {"BigEndian", {COMPRESSION_CCITTFAX4, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, "wb"}},
    {"InCentimetres", {COMPRESSION_CCITTFAX4, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, "w", RESUNIT_CENTIMETER, 204}},
    {"InNoUnit", {COMPRESSION_CCITTFAX4, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, "w", RESUNIT_NONE, 204}},
    {"HundredDotsAnInchAcross",
     {COMPRESSION_CCITTFAX4, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, "w", RESUNIT_INCH, 100}},
};
INSTANTIATE_TEST_SUITE_P(, FaxOfFile, testing::ValuesIn(FILES),
                         [](const testing::TestParamInfo<FileCase>& file) { return file.param.name; });

TEST(Fax, AFileThatMayOnlyBeReadIsSentAndItsCopyIsNotLeftBehind) {
    FaxBoard fax;
    SetFileAttributesA(fax.out.c_str(), FILE_ATTRIBUTE_READONLY);
    expect_good(fax.run().sent, 3);
    expect_same_pages(fax.in, fax.pages);
    fax.board.shut_down();
    EXPECT_FALSE(has_temporary_files());
    SetFileAttributesA(fax.out.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST(Fax, PagesOfAllWidthsAndResolutionsGoInOneDocument) {
    const FaxBoard fax("", {},
                       {text_page(1, 600, 1728, 98), text_page(2, 900, 1728, 196), text_page(3, 900, 1728, 391),
                        text_page(4, 600, 2048, 196), text_page(5, 600, 2432, 196)});
    const Transfer result = fax.run();
    expect_good(result.sent, 5);
    expect_good(result.received, 5);
    expect_same_pages(fax.in, fax.pages);
}

TEST(Fax, APageOfSeveralEcmBlocksArrives) {
    const FaxBoard fax("", {}, {halftone_page(2000), text_page(1)});
    expect_good(fax.run().sent, 2);
    expect_same_pages(fax.in, fax.pages);
}

TEST(Fax, TheCalledEndCanSendAndTheCallerReceive) {
    const FaxBoard fax;
    FaxJob received;
    FaxJob sent;
    {
        const Thread receiver([&] { received = receive_fax(fax.lines.caller, fax.in); });
        sent = send_fax(fax.lines.called, fax.out);
    }
    expect_good(sent, 3);
    expect_good(received, 3);
    expect_same_pages(fax.in, fax.pages);
}

TEST(Fax, EachEndLearnsTheOthersIdentifierAndSubAddress) {
    const FaxBoard fax("[channel.0]\nsub_address=77\n");
    FaxOptions sending;
    sending.local_id = "+1 555 0100";
    FaxOptions receiving;
    receiving.local_id = "01234567890123456789 and more";
    const Transfer result = fax.run(sending, receiving);
    EXPECT_EQ(result.sent.remote_id, "01234567890123456789");
    EXPECT_EQ(result.sent.second_id, "");
    EXPECT_EQ(result.received.remote_id, "+1 555 0100");
    EXPECT_EQ(result.received.second_id, "77");
}

TEST(Fax, ACallCarriesOneDocumentAfterAnother) {
    const FaxBoard fax;
    expect_good(fax.run().sent, 3);
    const Transfer again = fax.run();
    expect_good(again.sent, 3);
    expect_good(again.received, 3);
}

TEST(Fax, AtAPaceOfTheClockItTakesItsTime) {
    const FaxBoard fax("[board]\npace=50\n", {}, {text_page(1, 300)});
    const Transfer result = fax.run();
    expect_good(result.sent, 1);
    EXPECT_GT(result.sent.seconds, 0.2);  // no fax takes less than ten seconds
}

// ---- the header line ----------------------------------------------------------------------------------------------

TEST(Header, IsDrawnOverTheFirstRowsOfEveryPageAndNowhereElse) {
    const FaxBoard fax("", {},
                       {text_page(1, 600, 1728, 98), text_page(2, 600, 1728, 196), text_page(3, 600, 1728, 391)});
    FaxOptions sending;
    sending.header = "ACME 100%% P%P of %X%";
    expect_good(fax.run(sending).sent, 3);
    const std::vector<Page> received = read_file(fax.in);
    ASSERT_EQ(received.size(), 3u);
    for (uint32_t i = 0; i < 3; ++i) {
        const uint32_t dpi_down = static_cast<uint32_t>(received[i].dpi_down);
        const uint32_t rows = softboard::header_rows(dpi_down);
        EXPECT_TRUE(same_image(received[i], fax.pages[i], rows));
        const std::string text = "ACME 100% P" + std::to_string(i + 1) + " of %X%";
        for (uint32_t row = 0; row < rows; ++row) {
            EXPECT_EQ(received[i].rows[row], softboard::header_row(text, row, dpi_down, 1728)) << row;
        }
    }
}

TEST(Header, IsNotThereForTheNextJob) {
    const FaxBoard fax;
    FaxOptions sending;
    sending.header = "ACME";
    fax.run(sending);
    fax.run();
    expect_same_pages(fax.in, fax.pages);
}

TEST(Header, FieldsAreTheLocalTimeAndThePage) {
    SYSTEMTIME time{};
    time.wYear = 2024;
    time.wMonth = 3;
    time.wDay = 9;
    time.wHour = 17;
    time.wMinute = 5;
    time.wSecond = 59;
    EXPECT_EQ(softboard::expand_header("%m/%d/%y %H:%M:%S   P%P", time, 12), "03/09/24 17:05:59   P12");
    EXPECT_EQ(softboard::expand_header("%H:%", time, 1), "17:%");
}

TEST(Header, TextThatIsTooLongIsCutOffAtTheEdge) {
    const std::vector<uint8_t> row = softboard::header_row(std::string(200, '#'), 8, softboard::DPI_STANDARD, 1728);
    EXPECT_EQ(row.size(), 216u);
    EXPECT_NE(row[212], 0);
}

// ---- files that are no fax ----------------------------------------------------------------------------------------

static KXResult begin_with(const Board& board, const std::string& path, std::string* text = nullptr) {
    const ConnectedLines lines(0, 1, "101");
    const FaxJob job = send_fax(lines.caller, path);
    if (text != nullptr) *text = DornErrorMessage(lines.caller);
    EXPECT_EQ(job.failed_call, "BeginSendTiff") << board.file("");
    return job.result;
}

static void write_bytes(const std::string& path, const std::string& bytes) {
    FILE* const file = fopen(path.c_str(), "wb");
    fwrite(bytes.data(), 1, bytes.size(), file);
    fclose(file);
}

static std::string read_bytes(const std::string& path) {
    FILE* const file = fopen(path.c_str(), "rb");
    std::string bytes(10 << 20, '\0');
    bytes.resize(fread(&bytes[0], 1, bytes.size(), file));
    fclose(file);
    return bytes;
}

TEST(NoFax, AnEmptyFileIsRefused) {
    Board board;
    write_bytes(board.file("out.tif"), "");
    EXPECT_EQ(begin_with(board, board.file("out.tif")).line_status, uint32_t{APIERR_FILEFORMAT});
}

TEST(NoFax, GarbageIsRefused) {
    Board board;
    write_bytes(board.file("out.tif"), std::string(1000, 'x'));
    EXPECT_EQ(begin_with(board, board.file("out.tif")).line_status, uint32_t{APIERR_FILEFORMAT});
}

TEST(NoFax, ATruncatedFileIsRefused) {
    Board board;
    write_file(board.file("whole.tif"), {text_page(1), text_page(2)}, {COMPRESSION_NONE});
    const std::string bytes = read_bytes(board.file("whole.tif"));
    write_bytes(board.file("out.tif"), bytes.substr(0, bytes.size() / 3));
    EXPECT_EQ(begin_with(board, board.file("out.tif")).line_status, uint32_t{APIERR_FILEFORMAT});
}

TEST(NoFax, AWidthThatNoFaxHasIsRefusedByName) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1), text_page(2, 300, 1720)});
    std::string text;
    EXPECT_EQ(begin_with(board, board.file("out.tif"), &text).line_status, uint32_t{APIERR_FILEFORMAT});
    EXPECT_NE(text.find("page 2"), std::string::npos) << text;
    EXPECT_NE(text.find("1720"), std::string::npos) << text;
}

TEST(NoFax, AResolutionThatNoFaxHasIsRefusedByName) {
    Board board;
    write_file(board.file("out.tif"), {text_page(1, 300, 1728, 300)});
    std::string text;
    EXPECT_EQ(begin_with(board, board.file("out.tif"), &text).line_status, uint32_t{APIERR_FILEFORMAT});
    EXPECT_NE(text.find(": 300 lines per inch"), std::string::npos) << text;
}

TEST(NoFax, AResolutionThatNoIntegerHoldsIsRefusedByName) {
    Board board;
    write_file(board.file("300.tif"), {text_page(1, 300, 1728, 300)});
    std::string bytes = read_bytes(board.file("300.tif"));
    const std::string lines_300("\x2C\x01\0\0\1\0\0\0", 8);  // a fraction
    const std::string lines_most("\xFF\xFF\xFF\xFF\1\0\0\0", 8);
    bytes.replace(bytes.find(lines_300), lines_300.size(), lines_most);
    write_bytes(board.file("out.tif"), bytes);
    std::string text;
    EXPECT_EQ(begin_with(board, board.file("out.tif"), &text).line_status, uint32_t{APIERR_FILEFORMAT});
    EXPECT_NE(text.find(": 4294967296 lines per inch"), std::string::npos) << text;
}

TEST(NoFax, AColourPictureIsRefused) {
    Board board;
    TIFF* const tiff = TIFFOpen(board.file("out.tif").c_str(), "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 1728);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 1);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    std::vector<uint8_t> row(3 * 1728);
    TIFFWriteScanline(tiff, row.data(), 0, 0);
    TIFFClose(tiff);
    EXPECT_EQ(begin_with(board, board.file("out.tif")).line_status, uint32_t{APIERR_FILEFORMAT});
}

// ---- what becomes of a session that is broken off -----------------------------------------------------------------

TEST(Broken, AnAlertBetweenTwoCallsEndsTheSessionAtTheNextAndTheFarEndKeepsItsPages) {
    const FaxBoard fax;
    FaxOptions sending;
    sending.after_page = [&](uint32_t) { EXPECT_EQ(alert(fax.lines.caller), 0); };
    Transfer result;
    {
        const Thread receiver([&] { result.received = receive_fax(fax.lines.called, fax.in); });
        result.sent = send_fax(fax.lines.caller, fax.out, sending);
        EXPECT_EQ(terminate(fax.lines.caller).status, uint32_t{KX_STATUS_OK});
    }
    EXPECT_EQ(result.sent.result.status, uint32_t{KX_STATUS_ALERT});
    EXPECT_EQ(result.sent.failed_call, "NextPageTiff");
    EXPECT_EQ(result.received.result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_EQ(result.received.failed_call, "RcvPageTiff");
    expect_same_pages(fax.in, {fax.pages[0]});
}

TEST(Broken, AnAlertEndsTheFaxCallInProgress) {
    const FaxBoard fax;
    FaxJob job;
    Thread receiver([&] { job = receive_fax(fax.lines.called, fax.in); });
    while (!receiver.ended()) alert(fax.lines.called);
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_ALERT});
    EXPECT_NE(*DornErrorMessage(fax.lines.called), '\0');
}

TEST(Broken, AnAlertBeforeTheSessionHasNoEffectOnIt) {
    const FaxBoard fax;
    alert(fax.lines.caller);
    expect_good(fax.run().sent, 3);
}

TEST(Broken, ClearingTheCallOnOneEndHangsUpOnTheOther) {
    const FaxBoard fax;
    FaxOptions receiving;
    receiving.after_page = [&](uint32_t) { terminate(fax.lines.called); };
    const Transfer result = fax.run({}, receiving);
    EXPECT_EQ(result.sent.result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_EQ(result.received.result.status, uint32_t{KX_STATUS_ERROR});
    EXPECT_EQ(result.received.result.line_status, uint32_t{APIERR_BADSTATE});
    expect_same_pages(fax.in, {fax.pages[0]});
}

TEST(Broken, AFarEndThatIsNoFaxMachineTimesOut) {
    const FaxBoard fax("[board]\nhold_ms=50\n");
    const FaxJob job = send_fax(fax.lines.caller, fax.out);
    EXPECT_EQ(job.failed_call, "GetRemoteInfo");
    EXPECT_EQ(job.result.status, uint32_t{KX_STATUS_TIMEOUT});
}

TEST(Broken, AReceiverThatCannotStoreAPageStopsReceiving) {
    const FaxBoard fax;
    FaxOptions receiving;
    receiving.extra_tags = {{305, 2, 11, nullptr}};
    Transfer result;
    {
        const Thread receiver([&] {
            result.received = receive_fax(fax.lines.called, fax.in, receiving);
            terminate(fax.lines.called);
        });
        result.sent = send_fax(fax.lines.caller, fax.out);
    }
    EXPECT_EQ(result.received.failed_call, "RcvPageTiff");
    EXPECT_EQ(result.received.result.line_status, uint32_t{APIERR_BADPARAMETER});
    EXPECT_EQ(result.sent.result.status, uint32_t{KX_STATUS_ERROR_HANGUP});
    EXPECT_TRUE(read_file(fax.in).empty());
}

TEST(Broken, AChannelWithoutFaxFaxesOnlyWithTheOptionBit) {
    const FaxBoard fax("[channel.0]\nmissing_capabilities=20\n");
    const FaxJob refused = send_fax(fax.lines.caller, fax.out);
    EXPECT_EQ(refused.result.line_status, uint32_t{APIERR_BOARDCAPABILITY});
    fax.lines.caller->bOptions |= DORN_OPTION_FAX_SESSION;
    expect_good(fax.run().sent, 3);
}
