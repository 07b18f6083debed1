#include "tapi.h"

#include <map>

#include "board.h"
#include "journal.h"
#include "objects.h"
#include "tapi_side.h"
#include "text.h"

namespace chaos {

using harness::text;

std::deque<TapiLine> tapi_lines;

namespace {

constexpr uintptr_t FIRST_LINE_HANDLE = 0x117E0000;
constexpr uintptr_t FIRST_CALL_HANDLE = 0xCA110000;
uintptr_t calls_given = 0;

struct Request {
    TapiLine* line;
    std::string what;
    bool returned = false;
    bool accepted = false;
    bool completes = true;
    LONG expected = 0;
    uint32_t completions = 0;
    HTAPICALL makes = nullptr;
};
std::map<DRV_REQUESTID, Request> requests;
DRV_REQUESTID last_request = 0;

Request& request_of(DRV_REQUESTID id) {
    const auto found = requests.find(id);
    if (found == requests.end()) give_up(text("request 0x%lX was not made, or is over", id));
    return found->second;
}

// The provider has forgotten what it told of the call so far, such as the end of a fax that outlasted the call before.
void call_is_made(TapiLine& line, HTAPICALL handle) {
    TapiCall& call = line.call;
    if (call.handle && call.handle != handle && !call.is_closing) give_up(line.name + ": a second call was made");
    if (call.handle != handle) call = {handle};
    call.is_being_made = true;
    call.state = LINECALLSTATE_UNKNOWN;
}

void forget_if_over(DRV_REQUESTID id, const Request& request) {
    const bool is_over = request.returned && (!request.accepted || !request.completes || request.completions == 1);
    if (is_over) requests.erase(id);
}

}  // namespace

void add_lines(uint32_t count) {
    for (uint32_t index = 0; index < count; ++index) {
        tapi_lines.emplace_back();
        tapi_lines.back().index = index;
        tapi_lines.back().name = text("line %u", index + 1);
    }
}

size_t faxes_running(const TapiLine& line) {
    return alive("fax thread of " + line.name);
}

const harness::SharedRecord& shared_record(const TapiLine& line) {
    const auto* records = reinterpret_cast<const harness::SharedRecord*>(harness::windows.mapping.view);
    return records[FIRST_CHANNEL + line.index + UNIT_OF_CHANNEL];
}

HTAPILINE new_line_handle(const TapiLine& line) {
    // Each opening has a handle of its own, so that a late event is known.
    static uintptr_t opened = 0;
    return reinterpret_cast<HTAPILINE>(FIRST_LINE_HANDLE + ++opened * 64 + line.index);
}

HTAPICALL new_call_handle() {
    return reinterpret_cast<HTAPICALL>(FIRST_CALL_HANDLE + ++calls_given * 16);
}

// ---- requests -----------------------------------------------------------------------------------------------------

DRV_REQUESTID new_request(TapiLine& line, const std::string& what) {
    requests[++last_request] = {&line, what};
    return last_request;
}

void makes_call(DRV_REQUESTID id, HTAPICALL handle) {
    request_of(id).makes = handle;
}

void request_returned(DRV_REQUESTID id, LONG result, bool completed_by_now) {
    Request& request = request_of(id);
    request.returned = true;
    request.accepted = result == static_cast<LONG>(id);
    if (!request.accepted && result >= 0) give_up(text("%s returned %ld", request.what.c_str(), result));
    if (!request.accepted && request.completions != 0) give_up(request.what + " was refused and completed");
    if (request.accepted && completed_by_now && request.completes && request.completions != 1)
        give_up(text("%s was accepted and completed %u times", request.what.c_str(), request.completions));
    forget_if_over(id, request);
}

void expect_no_completion(DRV_REQUESTID id) {
    request_of(id).completes = false;
}

void expect_completion_with(DRV_REQUESTID id, LONG result) {
    request_of(id).expected = result;
}

size_t unfinished_requests(const TapiLine& line) {
    size_t count = 0;
    for (const auto& [id, request] : requests) count += request.line == &line ? 1 : 0;
    return count;
}

void CALLBACK on_completion(DRV_REQUESTID id, LONG result) {
    harness::add_entry(
        {harness::COMPLETION, text("completion(request=0x%lX, result=0x%lX)", id, static_cast<DWORD>(result))});
    Request& request = request_of(id);
    if (!request.completes) give_up(request.what + " is completed, although it asked for an event");
    if (++request.completions > 1) give_up(request.what + " is completed twice");
    if (result != request.expected) give_up(text("%s is completed with %ld", request.what.c_str(), result));
    if (!holds_lock_of(request.line->name)) give_up(request.what + " is completed without the line's lock");
    if (request.makes) call_is_made(*request.line, request.makes);
    forget_if_over(id, request);
    point();
}

// ---- events -------------------------------------------------------------------------------------------------------

namespace {

TapiLine& line_of_event(HTAPILINE handle) {
    for (TapiLine& line : tapi_lines)
        if (line.handle == handle && line.life != Life::closed) return line;
    give_up("an event for a line that is not open");
}

void require(bool holds, const TapiLine& line, const char* complaint) {
    if (!holds) give_up(line.name + ": " + complaint);
}

void on_new_call(TapiLine& line, DWORD_PTR provider_call, HTAPICALL* place) {
    require(*place == nullptr, line, "a new call is offered while the record has one");
    require(!line.provider_handle || reinterpret_cast<HDRVLINE>(provider_call) == line.provider_handle, line,
            "a new call of another line");
    // TAPI takes no call any more for a line that it is closing.
    if (line.life == Life::closing || chance().percent(10)) return;
    const bool had_call = line.call.handle && !line.call.is_closing && !line.call.is_being_made;
    require(!had_call, line, "a new call is offered although TAPI has not closed the last one");
    line.call = {};
    line.call.handle = new_call_handle();
    line.call.is_incoming = true;
    *place = line.call.handle;
}

// Who speaks decides what may be said.
bool speaks(const char* thread, const TapiLine& line) {
    return name_of(running()).compare(0, std::string::npos, std::string(thread) + " of " + line.name) == 0;
}

void check_state(const TapiLine& line, uint32_t state) {
    const TapiCall& call = line.call;
    const bool is_first = call.state == 0 || call.state == LINECALLSTATE_UNKNOWN;
    switch (state) {
        case LINECALLSTATE_OFFERING:
            require(speaks("ring_det_thread", line), line, "OFFERING by another thread");
            // Also of a call that is being made: the line's thread takes any call that it finds in the record behind a
            // pause for one that TAPI has given it.
            require(is_first || !call.is_incoming, line, "OFFERING of a call that had a state");
            break;
        case LINECALLSTATE_ACCEPTED:
            require(call.requests_under_way > 0, line, "ACCEPTED, although nobody accepts");
            break;
        case LINECALLSTATE_CONNECTED:
            require(call.requests_under_way > 0 || speaks("out_call_thread", line), line,
                    "CONNECTED, although nobody answers or dials");
            break;
        case LINECALLSTATE_DIALING:
        case LINECALLSTATE_DIALTONE:
        case LINECALLSTATE_PROCEEDING:
        case LINECALLSTATE_BUSY:
        case LINECALLSTATE_RINGBACK:
        case LINECALLSTATE_SPECIALINFO:
            require(!call.is_incoming && speaks("out_call_thread", line), line,
                    "a state of dialling by another thread");
            break;
        case LINECALLSTATE_DISCONNECTED:
            require(speaks("out_call_thread", line) || speaks("fax thread", line), line,
                    "DISCONNECTED by another thread");
            break;
        case LINECALLSTATE_IDLE:
            break;
        default:
            require(false, line, "an unknown call state");
    }
}

void on_call_state(TapiLine& line, HTAPICALL handle, uint32_t state, uint32_t mode) {
    require(holds_lock_of(line.name), line, "a call state is told without the line's lock");
    require(handle != nullptr && handle == line.call.handle, line, "a state of another call");
    require(state != line.call.state, line, "the same call state twice");
    check_state(line, state);
    const bool has_mode = state == LINECALLSTATE_OFFERING || state == LINECALLSTATE_CONNECTED ||
                          state == LINECALLSTATE_BUSY || state == LINECALLSTATE_SPECIALINFO ||
                          state == LINECALLSTATE_DISCONNECTED;
    require((mode != 0) == has_mode, line, "a mode that does not go with the state");
    // After the end only a request or a fax that was under way may speak.
    if (line.call.state == LINECALLSTATE_IDLE)
        require(line.call.requests_under_way > 0 || speaks("fax thread", line), line, "a state after IDLE");
    line.call.state = state;
}

// The status of a fax that has just ended, against what the board has told of it.
void check_published_fax(const TapiLine& line) {
    const harness::SharedRecord& record = shared_record(line);
    const Session& session = session_of(FIRST_CHANNEL + line.index);
    require(session.remote_id == record.szRemoteId, line, "the shared record has another remote station");
    require(session.pages == record.dwPageCount, line, "the shared record has another number of pages");
}

void on_fax_notification(TapiLine& line, DWORD_PTR kind, DWORD_PTR status, DWORD_PTR line_status) {
    require(faxes_running(line) > 0, line, "a fax notification without a fax");
    if (kind == 3) {
        require(status == 0 && line_status == 0, line, "a progress notification with a result");
        return;
    }
    require(kind == 1, line, "an unknown fax notification");
    require(speaks("fax thread", line), line, "the end of a fax told by another thread");
    ++line.faxes_ended;
    require(line.faxes_ended <= line.faxes_begun, line, "more ends of faxes than begins");
    line.last_status = static_cast<uint32_t>(status);
    line.last_line_status = static_cast<uint32_t>(line_status);
    line.results_overlap = faxes_running(line) > 1;
    if (line.fax_is_undisturbed) check_published_fax(line);
}

}  // namespace

void CALLBACK on_event(HTAPILINE handle, HTAPICALL call, DWORD message, DWORD_PTR parameter1, DWORD_PTR parameter2,
                       DWORD_PTR parameter3) {
    harness::add_entry({harness::EVENT, text("message %lu(line 0x%llX, call 0x%llX, 0x%llX, 0x%llX, 0x%llX)", message,
                                             reinterpret_cast<uint64_t>(handle), reinterpret_cast<uint64_t>(call),
                                             parameter1, parameter2, parameter3)});
    TapiLine& line = line_of_event(handle);
    switch (message) {
        case LINE_NEWCALL:
            on_new_call(line, parameter1, reinterpret_cast<HTAPICALL*>(parameter2));
            break;
        case LINE_CALLSTATE:
            on_call_state(line, call, static_cast<uint32_t>(parameter1), static_cast<uint32_t>(parameter2));
            break;
        case LINE_CALLDEVSPECIFIC:
            on_fax_notification(line, parameter1, parameter2, parameter3);
            break;
        case LINE_CALLINFO:
            require(call == line.call.handle, line, "information about another call");
            if (parameter1 == LINECALLINFOSTATE_CALLEDID)
                line.call.called = arrived_call(FIRST_CHANNEL + line.index).called;
            break;
        case LINE_LINEDEVSTATE:
            require(call == nullptr || call == line.call.handle, line, "a line state with another call");
            break;
        case LINE_ADDRESSSTATE:
            require(call == nullptr, line, "an address state with a call");
            break;
        default:
            require(false, line, "an unknown message");
    }
    point();
    if (chance().one_in(500)) throw message;
}

}  // namespace chaos
