// The routing text that comes with a call: decoded when the call is offered, seen in the received file's directory.
#include <cstring>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class RoutingInfo : public LineFixture {
  protected:
    void SetUp() override {
        LineFixture::SetUp();
        driver.on.DornTiffOpen = [this](DornTiffRecord*) { return &file; };
        driver.on.DornTiffClose = [](DornTiffRecord*) { return 0; };
    }

    void command(uint32_t code) {
        std::vector<char> block(1088);
        std::memcpy(block.data(), &code, sizeof(code));
        LONG request = static_cast<LONG>(next_request());
        EXPECT_EQ(tsp.TSPI_lineDevSpecific(static_cast<DRV_REQUESTID>(request), line(0), 0, nullptr, block.data(),
                                           static_cast<DWORD>(block.size())),
                  request);
    }

    // What the driver is told to write into the first page's directory, for a call with this text.
    std::string first_page_of(const std::string& information) {
        take_call(0, {"", "", "", "", information});
        return first_page();
    }

    std::string first_page() {
        constexpr uint32_t kTiffOpen = 1, kTiffClose = 2, kFaxReceive = 4;
        command(kTiffOpen);
        command(kFaxReceive);
        EXPECT_TRUE(comes("LINE_CALLSTATE(HTLINE1, <*>, DISCONNECTED, <*>"));
        EXPECT_TRUE(wait_until([] { return windows.threads.running == 1; }));
        command(kTiffClose);
        return lines(driver_calls().only({"DornFaxRcvPageTiff(<*>"})).at(0);
    }

    DornTiff file = {};
};

// The two entries: the stamp, and the routing text with its terminator, in the journal's form.
std::string with_routing(size_t size, const std::string& shown) {
    return text("DornFaxRcvPageTiff(CHAN4, <*>, 305:2[<*>] \"<*>\", 337:2[%zu] \"%s\\x00\")", size, shown.c_str());
}

}  // namespace

TEST_F(RoutingInfo, IsWrittenToTheFirstPage) {
    EXPECT_PRED2(matches, with_routing(10, "Sales 3.2"), first_page_of("Sales 3.2"));
}

TEST_F(RoutingInfo, IsNotWrittenWithoutAText) {
    std::string page = first_page_of("");
    EXPECT_EQ(page.find("337:"), std::string::npos) << page;
}

struct EscapedText {
    const char* information;
    size_t size;  // with the terminator
    const char* shown;
};

void PrintTo(const EscapedText& escaped, std::ostream* out) {
    *out << '"' << escaped.information << '"';
}

class EscapesInRoutingInfo : public RoutingInfo, public testing::WithParamInterface<EscapedText> {};

TEST_P(EscapesInRoutingInfo, AreDecoded) {
    EXPECT_PRED2(matches, with_routing(GetParam().size, GetParam().shown), first_page_of(GetParam().information));
}

INSTANTIATE_TEST_SUITE_P(HexadecimalDigits, EscapesInRoutingInfo,
                         testing::Values(EscapedText{"%41", 2, "A"}, EscapedText{"a%20b", 4, "a b"},
                                         EscapedText{"%4a%4B", 3, "JK"}, EscapedText{"%25%32", 3, "%2"},
                                         EscapedText{"%e4", 2, "\\xE4"}));
// The decoded character is not read again.
INSTANTIATE_TEST_SUITE_P(APercentSign, EscapesInRoutingInfo, testing::Values(EscapedText{"%2541", 4, "%41"}));
INSTANTIATE_TEST_SUITE_P(TooFewCharactersBehind, EscapesInRoutingInfo,
                         testing::Values(EscapedText{"ab%", 4, "ab%"}, EscapedText{"ab%4", 5, "ab%4"},
                                         EscapedText{"%", 2, "%"}));
// As the scan for a hexadecimal number reads the two characters.
INSTANTIATE_TEST_SUITE_P(OneDigitOfTwo, EscapesInRoutingInfo,
                         testing::Values(EscapedText{"%7z!", 3, "\\x07!"}, EscapedText{"% 9!", 3, "\\x09!"}));
// A zero byte is stored and ends the text.
INSTANTIATE_TEST_SUITE_P(NoNumber, EscapesInRoutingInfo,
                         testing::Values(EscapedText{"ab%zzcd", 3, "ab"}, EscapedText{"ab%00cd", 3, "ab"},
                                         EscapedText{"ab%%41cd", 3, "ab"}));

TEST_F(RoutingInfo, MayFillItsFieldToTheLastByte) {
    std::string full(1384, 'r');
    EXPECT_PRED2(matches, with_routing(1385, full), first_page_of(full));
}

TEST_F(RoutingInfo, IsReadToTheEndOfTheCallDataAndNoFurther) {
    driver.on.DornLineWaitForCallISDN = [](DornLine* line, DornWaitForCallRecord* record) {
        int result = ScriptedDriver::usual().DornLineWaitForCallISDN(line, record);
        std::memset(record->reserved0, 'X', sizeof(record->reserved0));
        return result;
    };
    // A call for the script above: the wait that was begun before it is over with the first ring.
    driver.wait_ends(4, KX_STATUS_TIMEOUT);
    EXPECT_TRUE(comes("[4] LumLineWaitForCall res.status = KX_STATUS_TIMEOUT"));
    EXPECT_TRUE(driver.waits_for_call(4));
    std::string escaped = "%41" + std::string(1381, 'r');
    EXPECT_PRED2(matches, with_routing(1383, "A" + std::string(1381, 'r')), first_page_of(escaped));
}

TEST_F(RoutingInfo, OfAnEarlierCallIsForgotten) {
    take_call(0, {"", "", "", "", "a longer text"});
    EXPECT_EQ(close_call(), 0);
    EXPECT_TRUE(driver.waits_for_call(4));
    EXPECT_PRED2(matches, with_routing(6, "short"), first_page_of("short"));
}
