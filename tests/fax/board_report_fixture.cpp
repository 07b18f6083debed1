#include "board_report_fixture.h"

#include <cstdio>

using namespace harness;

void BoardReportFixture::SetUp() {
    OutgoingFaxFixture::SetUp();
    open_file();
    driver.gate("DornFaxSendPageTiff").close();
    EXPECT_EQ(command(CommandBlock::fax(FAXSEND, {})), 0u);
    EXPECT_TRUE(driver.gate("DornFaxSendPageTiff").holds_somebody());
    new_chapter();
}

void BoardReportFixture::frame(Direction direction, const std::vector<uint8_t>& from_the_fcf_on) {
    std::vector<uint8_t> bytes = {0xFF, 0xC8};
    bytes.insert(bytes.end(), from_the_fcf_on.begin(), from_the_fcf_on.end());
    frame_report({direction_tag(direction), frame_tag(bytes)});
}

void BoardReportFixture::frame_report(const std::vector<Tag>& tags) {
    driver.report(4, 9, 8, 5, tags);
}

void BoardReportFixture::announce_more_pages(Direction direction) {
    frame(direction, {MPS, 0});
}

void BoardReportFixture::page_end(uint32_t continuing) {
    driver.report(4, 9, 8, 6, {{20, {static_cast<uint8_t>(continuing)}}});
}

int BoardReportFixture::latched() {
    page_end(1);
    int value = -1;
    for (const std::string& line : lines(traces().levels({4}).only({"[4] End Of Page <*>"})))
        std::sscanf(line.c_str(), "[4] End Of Page GotMPS = %d", &value);
    return value;
}

uint32_t BoardReportFixture::pages() const {
    return shared_record(0).dwPageCount;
}

DWORD BoardReportFixture::rate() {
    struct {
        LINECALLINFO fixed;
        wchar_t texts[1024];
    } answer = {};
    answer.fixed.dwTotalSize = sizeof(answer);
    EXPECT_EQ(tsp.TSPI_lineGetCallInfo(call(0), &answer.fixed), 0);
    return answer.fixed.dwRate;
}
