// Unsolicited board reports: built by the fax sessions, delivered to the line's handler in order, on a thread of the
// board.
#pragma once

#include <calddlld.h>

#include <deque>
#include <list>
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

// Gives the report to the line's handler, on this thread; until the handler is through, its tagged values can be had.
// Keeps the DCS if it is one. No lock is held.
void deliver(Line& line, Report& report);

class ReportThreads;

// The reports of one fax session on their way to its line, one after the other.
class ReportQueue : public std::enable_shared_from_this<ReportQueue> {
  public:
    ReportQueue(std::shared_ptr<Line> line, ReportThreads& threads) : line_(std::move(line)), threads_(threads) {}
    void push(Report report);
    // Returns when everything pushed so far has been delivered. The caller must hold nothing that a handler may wait
    // for. Called from within the handler it returns at once.
    void flush();
    // Delivers nothing more; does not wait for a handler that has a report already.
    void close();

  private:
    friend class ReportThreads;

    const std::shared_ptr<Line> line_;
    ReportThreads& threads_;

    // Under the threads' lock.
    Condition changed_;
    std::deque<Report> reports_;
    uint64_t pushed_ = 0;
    uint64_t delivered_ = 0;
    bool is_ready_ = false;  // has reports, and a thread knows it
    DWORD handler_thread_ = 0;
    bool closed_ = false;
};

// The threads that deliver the reports of all sessions: one, and one more whenever somebody has waited for a report
// while handlers kept all of them. So a handler that hangs stops no other session's reports for long.
class ReportThreads {
  public:
    // To be called before the first report is pushed. Throws std::bad_alloc when there is no thread.
    void start();
    // Returns when all of them are through; reports that are left are not delivered.
    void end();

  private:
    friend class ReportQueue;

    void run();
    void deliver_next(Guard& guard);
    void add_thread();
    void relieve();

    Mutex lock_;
    Condition changed_;
    std::list<std::shared_ptr<ReportQueue>> ready_;
    size_t idle_ = 0;
    bool ended_ = false;
    std::list<Thread> threads_;
};

}  // namespace softboard
