#include "report.h"

#include <algorithm>
#include <cstring>

#include "board.h"
#include "dcs.h"
#include "log.h"

namespace softboard {

static ReportValue number_value(uint32_t tag, uint32_t number) {
    ReportValue value{tag, std::vector<uint8_t>(sizeof number)};
    memcpy(value.bytes.data(), &number, sizeof number);
    return value;
}

Report frame_report(bool sent, const uint8_t* frame, size_t length) {
    return {{REPORT_CLASS_FAX, REPORT_TYPE_FAX, REPORT_FRAME},
            {number_value(TAG_DIRECTION, sent ? 1 : 0), {TAG_FRAME, {frame, frame + length}}}};
}

Report end_of_page_report(bool continuing) {
    return {{REPORT_CLASS_FAX, REPORT_TYPE_FAX, REPORT_END_OF_PAGE},
            {number_value(TAG_CONTINUING, continuing ? 1 : 0)}};
}

// ---- delivery -----------------------------------------------------------------------------------------------------

// The report that this thread's handler is looking at: the only one that DornGetTaggedValues accepts.
static thread_local const Report* delivered_report = nullptr;

// The DCS changes here and nowhere else, so that a handler finds the one that its report is about.
static void keep_dcs(Line& line, const Report& report) {
    if (report.head.dwSubCode != REPORT_FRAME) return;
    const std::vector<uint8_t>& frame = report.values[1].bytes;
    if (!is_dcs(frame.data(), frame.size())) return;
    const size_t length = std::min(frame.size() - DCS_FIRST_BYTE, sizeof line.dcs - DCS_RATE_AT - 1);
    memset(line.dcs, 0, sizeof line.dcs);
    line.dcs[DCS_RATE_AT] = static_cast<uint8_t>(dcs_rate_index(frame.data(), frame.size()));
    memcpy(line.dcs + DCS_RATE_AT + 1, frame.data() + DCS_FIRST_BYTE, length);
}

void deliver(Line& line, Report& report) {
    keep_dcs(line, report);
    const DornIncomingCmdFunc handler = __atomic_load_n(&line.handler, __ATOMIC_ACQUIRE);
    if (handler == nullptr) return;
    delivered_report = &report;
    try {
        handler(&line.head, &report.head, line.channel->config.unit);
    } catch (...) {
        BOARD_LOG(LOG_ERROR, "a report handler has raised an exception");
    }
    delivered_report = nullptr;
}

void ReportQueue::push(Report report) {
    const Guard guard(threads_.lock_);
    if (closed_) return;
    reports_.push_back(std::move(report));
    ++pushed_;
    if (is_ready_) return;
    threads_.ready_.push_back(shared_from_this());
    is_ready_ = true;
    threads_.changed_.notify_one();
}

// A handler is through in well under a millisecond; one that takes so long may be waiting for something.
constexpr Milliseconds PATIENCE(500);

void ReportQueue::flush() {
    Guard guard(threads_.lock_);
    if (handler_thread_ == GetCurrentThreadId()) return;
    const uint64_t last = pushed_;
    while (delivered_ < last && !closed_) {
        const Clock::time_point patience = Clock::now() + PATIENCE;
        while (delivered_ < last && !closed_ && Clock::now() < patience) changed_.wait_until(guard, patience);
        threads_.relieve();
    }
}

void ReportQueue::close() {
    const Guard guard(threads_.lock_);
    closed_ = true;
    reports_.clear();
    changed_.notify_all();
}

// ---- their threads ------------------------------------------------------------------------------------------------

void ReportThreads::start() {
    const Guard guard(lock_);
    if (threads_.empty()) add_thread();
}

void ReportThreads::end() {
    std::list<Thread> threads;
    {
        const Guard guard(lock_);
        ended_ = true;
        changed_.notify_all();
        threads.swap(threads_);
    }
}

void ReportThreads::add_thread() {
    threads_.emplace_back([this] { run(); });
}

// Somebody has waited for a while.
void ReportThreads::relieve() {
    if (ready_.empty() || idle_ != 0 || ended_) return;
    try {
        add_thread();
    } catch (const std::bad_alloc&) {
        // The one who waits asks again.
    }
}

void ReportThreads::run() {
    Guard guard(lock_);
    while (!ended_) {
        if (ready_.empty()) {
            ++idle_;
            changed_.wait(guard);
            --idle_;
        } else {
            deliver_next(guard);
        }
    }
}

void ReportThreads::deliver_next(Guard& guard) {
    std::list<std::shared_ptr<ReportQueue>> taken;
    taken.splice(taken.begin(), ready_, ready_.begin());
    ReportQueue& queue = *taken.front();
    if (!queue.closed_) {
        Report report = std::move(queue.reports_.front());
        queue.reports_.pop_front();
        queue.handler_thread_ = GetCurrentThreadId();
        guard.unlock();
        deliver(*queue.line_, report);
        guard.lock();
        queue.handler_thread_ = 0;
        ++queue.delivered_;
        queue.changed_.notify_all();
    }
    queue.is_ready_ = !queue.reports_.empty();
    if (queue.is_ready_) ready_.splice(ready_.end(), taken);
}

}  // namespace softboard

// ---- the library's functions --------------------------------------------------------------------------------------

using namespace softboard;

int DornGetTaggedValues(DornReport* report, DornTaggedValue* value) {
    const Report* const delivered = delivered_report;
    if (report == nullptr || value == nullptr || delivered == nullptr || report != &delivered->head) return 0;
    if (value->dwCursor >= delivered->values.size()) return 0;
    const ReportValue& next = delivered->values[value->dwCursor++];
    value->dwTag = next.tag;
    value->cbValue = static_cast<uint32_t>(next.bytes.size());
    value->pValue = next.bytes.data();
    return 1;
}

int32_t DornParseTaggedValueInt(const DornTaggedValue* value) {
    if (value == nullptr || value->pValue == nullptr) return 0;
    uint32_t number = 0;
    if (value->cbValue == 1 || value->cbValue == 2 || value->cbValue == 4) {
        memcpy(&number, value->pValue, value->cbValue);
    }
    return static_cast<int32_t>(number);
}
