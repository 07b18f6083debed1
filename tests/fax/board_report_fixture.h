// The fixture of the tests of the board's reports: a transmission that stands before its first page, and reports as the
// driver gives them.
#pragma once

#include <string>
#include <vector>

#include "fax_fixture.h"

// Of T.30, as the board tells the facsimile control field: in reversed order of bits, the low one being the X bit.
constexpr uint8_t MPS = 0x4E, PRI_MPS = 0x5E, EOM = 0x8E, PRI_EOM = 0x9E, PPS = 0xBE, EOR = 0xCE, DCS = 0x82;

enum Direction : uint8_t { RECEIVED = 0, SENT = 1 };

class BoardReportFixture : public OutgoingFaxFixture {
  protected:
    // Stands where the driver is about to send the first page.
    void SetUp() override;

    // A frame report; with the address and control octets in front of what is given.
    void frame(Direction direction, const std::vector<uint8_t>& from_the_fcf_on);
    // A frame report of just these tagged values.
    void frame_report(const std::vector<harness::Tag>& tags);
    // A frame that announces more pages, so that the next page end counts.
    void announce_more_pages(Direction direction = SENT);
    // An end-of-page report.
    void page_end(uint32_t continuing = 0);

    // What the line has latched: 0, 1 or 2. Asks by an end of page that goes on, which changes nothing.
    int latched();
    // What stands in the line's record.
    uint32_t pages() const;
    DWORD rate();

    static harness::Tag direction_tag(uint8_t direction) { return {14, {direction}}; }
    static harness::Tag frame_tag(const std::vector<uint8_t>& bytes) { return {15, bytes}; }
};
