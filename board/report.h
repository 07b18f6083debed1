// Unsolicited board reports: built by the fax sessions, delivered to the line's handler in order, on a thread of the
// board.
#pragma once

#include <calddlld.h>

#include <deque>
#include <memory>
#include <vector>

#include "sync.h"

namespace softboard {

struct Line;

constexpr uint32_t REPORT_CLASS_FAX = 9;
constexpr uint32_t REPORT_TYPE_FAX = 8;
constexpr uint32_t REPORT_FRAME = 5;        // a T.30 frame
constexpr uint32_t REPORT_END_OF_PAGE = 6;  // a page or, with ECM, a partial page has ended
constexpr uint32_t TAG_DIRECTION = 14;      // of a frame: 0 = received, 1 = sent
constexpr uint32_t TAG_FRAME = 15;          // its bytes, address and control first
constexpr uint32_t TAG_CONTINUING = 20;     // 0 = the page is complete

struct ReportValue {
    uint32_t tag;
    std::vector<uint8_t> bytes;
};

struct Report {
    DornReport head{};  // what the handler points to
    std::vector<ReportValue> values;
};

Report frame_report(bool sent, const uint8_t* frame, size_t length);
Report end_of_page_report(bool continuing);

// The reports of one fax session on their way to its line. A thread of the board's runs deliver_all; a handler that
// hangs stops no other session's reports.
class ReportQueue {
  public:
    explicit ReportQueue(std::shared_ptr<Line> line) : line_(std::move(line)) {}
    void push(Report report);
    // Returns when everything pushed so far has been delivered. The caller must hold nothing that a handler may wait
    // for. Called from within the handler it returns at once.
    void flush();
    // Delivers nothing more and lets deliver_all return; does not wait for it.
    void close();
    void deliver_all();

  private:
    const std::shared_ptr<Line> line_;
    Mutex lock_;
    Condition changed_;
    std::deque<Report> reports_;
    uint64_t pushed_ = 0;
    uint64_t delivered_ = 0;
    DWORD thread_ = 0;
    bool closed_ = false;
};

}  // namespace softboard
