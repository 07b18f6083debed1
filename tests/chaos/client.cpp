#include "client.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>

#include "../fax/command_block.h"
#include "board.h"
#include "journal.h"
#include "objects.h"
#include "text.h"

namespace chaos {

using harness::text;

harness::ProviderExports provider;

namespace {

struct Count {
    uint64_t made = 0, taken = 0;
};
std::map<std::string, Count> counts;

LONG counted(const char* operation, LONG result) {
    Count& count = counts[operation];
    ++count.made;
    if (result >= 0) ++count.taken;
    return result;
}

// A call of the provider on a line, as the model must know of it while it lasts.
class Asking {
  public:
    Asking(TapiLine& line, uint32_t TapiLine::*counter, const char* what, const char* thread = "")
        : counter_(line.*counter), doing_(what, line.name, thread) {
        harness::note(text("%s: %s on %s", name_of(running()).c_str(), what, line.name.c_str()));
        ++counter_;
    }
    ~Asking() { --counter_; }
    Asking(const Asking&) = delete;
    Asking& operator=(const Asking&) = delete;

  private:
    uint32_t& counter_;
    Doing doing_;
};

struct Request {
    Request(TapiLine& line, const char* what, const char* thread = "")
        : asking(line, &TapiLine::requests_under_way, what, thread), id(new_request(line, what)) {}
    LONG returned(const char* operation, LONG result, bool completed_by_now = true) {
        request_returned(id, result, completed_by_now);
        return counted(operation, result);
    }
    Asking asking;
    DRV_REQUESTID id;
};

bool is_current(const TapiLine& line, HTAPICALL handle) {
    return line.call.handle == handle;
}

bool can_ask(const TapiLine& line) {
    return line.life == Life::open;
}

bool has_call(const TapiLine& line) {
    return can_ask(line) && line.call.handle && !line.call.is_being_made && !line.call.is_closing;
}

// ---- lines --------------------------------------------------------------------------------------------------------

bool open_line(TapiLine& line) {
    if (line.life != Life::closed) return false;
    const Asking asking(line, &TapiLine::requests_under_way, "TSPI_lineOpen", "ring_det_thread");
    line.life = Life::opening;
    line.handle = new_line_handle(line);
    line.provider_handle = nullptr;
    line.call = {};
    line.faxes_begun = line.faxes_ended = 0;
    line.faxes_have_met = false;
    HDRVLINE opened = nullptr;
    const LONG result =
        provider.TSPI_lineOpen(DEVICE_ID_BASE + line.index, line.handle, &opened, TSPI_VERSION, on_event);
    counted("open", result);
    line.provider_handle = result == 0 ? opened : nullptr;
    line.life = result == 0 ? Life::open : Life::closed;
    return true;
}

bool may_be_closed(const TapiLine& line) {
    return can_ask(line) && line.requests_under_way == 0 && unfinished_requests(line) == 0 && faxes_running(line) == 0;
}

bool close_line(TapiLine& line) {
    if (!may_be_closed(line)) return false;
    const Asking asking(line, &TapiLine::requests_under_way, "TSPI_lineClose");
    line.life = Life::closing;
    const LONG result = counted("close", provider.TSPI_lineClose(line.provider_handle));
    if (result != 0) give_up(text("%s cannot be closed: %ld", line.name.c_str(), result));
    line.life = Life::closed;
    return true;
}

// Another thread is closing the line's call: the two closes have to get on with each other.
bool close_line_as_well(TapiLine& line) {
    return line.closes_under_way > 0 && close_line(line);
}

// ---- calls --------------------------------------------------------------------------------------------------------

std::wstring some_address() {
    constexpr const wchar_t* ADDRESSES[] = {L"5551234", L"T 555  1234", L"p555 1", L"555;", L";",
                                            L"",        L"12$34",       L"?",      L"@",    L"555,,1W!"};
    if (chance().one_in(10)) return std::wstring(chance().below(400), L'5');
    return ADDRESSES[chance().below(std::size(ADDRESSES))];
}

bool make_call(TapiLine& line) {
    if (!can_ask(line) || line.makes_under_way > 0) return false;
    const bool is_free = !line.call.handle;
    if (!is_free && !chance().one_in(20)) return false;
    Request request(line, "TSPI_lineMakeCall", "out_call_thread");
    const HTAPICALL handle = new_call_handle();
    makes_call(request.id, handle);
    line.handle_being_made = handle;
    if (is_free) line.call = {handle, false, true};
    const std::wstring address = some_address();
    LINECALLPARAMS parameters = {};
    parameters.dwMediaMode = LINEMEDIAMODE_G3FAX;
    HDRVCALL made = nullptr;
    ++line.makes_under_way;
    const LONG result =
        request.returned("make call", provider.TSPI_lineMakeCall(request.id, line.provider_handle, handle, &made,
                                                                 chance().one_in(8) ? nullptr : address.c_str(), 49,
                                                                 chance().percent(50) ? &parameters : nullptr));
    --line.makes_under_way;
    // A call for which the line's thread did not stand aside stays the line's; it has to be closed.
    const bool stays = result == static_cast<LONG>(LINEERR_RESOURCEUNAVAIL);
    if (stays && !is_current(line, handle)) line.call = {handle};
    if (!is_current(line, handle)) return true;
    line.call.is_being_made = false;
    if (result < 0 && !stays) line.call = {};
    return true;
}

// Not before the worker that has got the dial tone has ended: it would take the next one's claim to the line along.
bool dial(TapiLine& line) {
    if (!has_call(line) || line.call.is_incoming) return false;
    if (line.call.state != LINECALLSTATE_DIALTONE && !chance().one_in(10)) return false;
    if (alive("out_call_thread of " + line.name) + line.dials_under_way > 0) return false;
    Request request(line, "TSPI_lineDial", "out_call_thread");
    const std::wstring address = some_address();
    ++line.dials_under_way;
    request.returned("dial", provider.TSPI_lineDial(request.id, line.provider_call(), address.c_str(), 49));
    --line.dials_under_way;
    return true;
}

template <class Function>
bool take_call(TapiLine& line, const char* operation, Function function) {
    if (!has_call(line) || (!line.call.is_incoming && !chance().one_in(10))) return false;
    const bool is_offered = line.call.state == LINECALLSTATE_OFFERING || line.call.state == LINECALLSTATE_ACCEPTED;
    if (!is_offered && !chance().one_in(10)) return false;
    Request request(line, operation);
    const HTAPICALL handle = line.call.handle;
    ++line.call.requests_under_way;
    request.returned(operation, function(request.id, line.provider_call(), nullptr, 0));
    if (is_current(line, handle)) --line.call.requests_under_way;
    return true;
}

bool accept(TapiLine& line) {
    return take_call(line, "accept", provider.TSPI_lineAccept);
}

bool answer(TapiLine& line) {
    return take_call(line, "answer", provider.TSPI_lineAnswer);
}

bool drop(TapiLine& line) {
    if (!has_call(line)) return false;
    Request request(line, "TSPI_lineDrop", "drop_call_thread");
    const std::string drop_thread = "drop_call_thread of " + line.name;
    const bool is_alone = line.closes_under_way + line.drops_under_way + alive(drop_thread) == 0;
    const bool has_worker = !is_alone || line.dials_under_way + alive("out_call_thread of " + line.name) > 0;
    const size_t dropped = started(drop_thread);
    const uint32_t begun = ++line.endings_begun;
    ++line.drops_under_way;
    const LONG result = provider.TSPI_lineDrop(request.id, line.provider_call(), nullptr, 0);
    --line.drops_under_way;
    const bool is_undisturbed = line.endings_begun == begun && line.dials_under_way == 0;
    if (!has_worker && is_undisturbed && started(drop_thread) != dropped)
        give_up(line.name + ": a drop has a thread although no worker is busy");
    // The end of one drop, or of a close, wakes everybody who waits for a drop.
    request.returned("drop", result, is_alone && is_undisturbed);
    return true;
}

// Behind the result of the last fax the record of a line without a call is empty.
void check_clear_record(const TapiLine& line) {
    const harness::SharedRecord& record = shared_record(line);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    const bool is_clear = std::all_of(bytes + offsetof(harness::SharedRecord, szRemoteId), bytes + sizeof record,
                                      [](uint8_t byte) { return byte == 0; });
    if (!is_clear) give_up(line.name + ": the shared record still tells of the call that was closed");
}

// The result stays that of the last fax.
void check_published_result(const TapiLine& line) {
    const harness::SharedRecord& record = shared_record(line);
    const bool is_known = faxes_running(line) == 0 && line.faxes_ended > 0 && !line.results_overlap;
    if (is_known && (record.status != line.last_status || record.line_status != line.last_line_status))
        give_up(
            text("%s: the shared record has the result %u, %u", line.name.c_str(), record.status, record.line_status));
}

bool close_call(TapiLine& line) {
    const bool once_more = can_ask(line) && line.call.is_closing && chance().one_in(10);
    if (!has_call(line) && !once_more) return false;
    const Asking asking(line, &TapiLine::closes_under_way, "TSPI_lineCloseCall");
    const HTAPICALL handle = line.call.handle;
    line.call.is_closing = true;
    line.fax_is_undisturbed = false;
    const uint32_t faxes = line.faxes_begun;
    const bool without_fax = faxes_running(line) == 0;
    ++line.endings_begun;
    const LONG result = counted("close call", provider.TSPI_lineCloseCall(line.provider_call()));
    if (result == static_cast<LONG>(LINEERR_NOMEM) && shortages.of_memory > 0)
        line.call.stays = true;
    else if (result != 0)
        give_up(text("%s: a call cannot be closed: %ld", line.name.c_str(), result));
    // Who comes second does not wait for the first, which may be the close of the line.
    if (line.call.stays || line.closes_under_way > 1 || line.life != Life::open) return true;
    if (without_fax && line.faxes_begun == faxes) check_clear_record(line);
    if (!is_current(line, handle)) return true;
    // A call that is just being made may be the line's next.
    line.call = {};
    if (line.makes_under_way > 0) line.call = {line.handle_being_made, false, true};
    return true;
}

// ---- queries ------------------------------------------------------------------------------------------------------

void expect_good(const TapiLine& line, const char* query, LONG result) {
    if (counted(query, result) != 0) give_up(text("%s: %s returned %ld", line.name.c_str(), query, result));
}

bool query_call(TapiLine& line) {
    if (!has_call(line)) return false;
    const Asking asking(line, &TapiLine::requests_under_way, "a query of the call");
    const HTAPICALL handle = line.call.handle;
    const size_t called = std::min<size_t>(line.call.called.size(), 255);
    LINECALLSTATUS status = {};
    expect_good(line, "call status", provider.TSPI_lineGetCallStatus(line.provider_call(), &status));
    DWORD address = 9;
    expect_good(line, "call address", provider.TSPI_lineGetCallAddressID(line.provider_call(), &address));
    struct {
        LINECALLINFO fixed;
        wchar_t texts[800];
    } info = {};
    info.fixed.dwTotalSize = sizeof info;
    info.fixed.dwUsedSize = sizeof info.fixed;
    expect_good(line, "call information", provider.TSPI_lineGetCallInfo(line.provider_call(), &info.fixed));
    if (called == 0 || !is_current(line, handle) || line.call.is_closing) return true;
    const DWORD size = info.fixed.dwCalledIDSize;
    if (size != (called + 1) * sizeof(wchar_t))
        give_up(text("%s: the called number of %zu digits has %lu bytes", line.name.c_str(), called, size));
    return true;
}

bool query_line(TapiLine& line) {
    if (!can_ask(line)) return false;
    const Asking asking(line, &TapiLine::requests_under_way, "a query of the line");
    LINEADDRESSSTATUS address = {};
    expect_good(line, "address status", provider.TSPI_lineGetAddressStatus(line.provider_handle, 0, &address));
    LINEDEVSTATUS device = {};
    expect_good(line, "line status", provider.TSPI_lineGetLineDevStatus(line.provider_handle, &device));
    check_published_result(line);
    if (address.dwNumActiveCalls > 1 || device.dwNumActiveCalls > 1) give_up(line.name + ": more than one call");
    struct {
        LINEDEVCAPS fixed;
        wchar_t texts[200];
    } caps = {};
    caps.fixed.dwTotalSize = sizeof caps;
    caps.fixed.dwUsedSize = 252;
    expect_good(line, "line capabilities",
                provider.TSPI_lineGetDevCaps(DEVICE_ID_BASE + line.index, TSPI_VERSION, 0, &caps.fixed));
    LINEADDRESSCAPS address_caps = {};
    expect_good(line, "address capabilities",
                provider.TSPI_lineGetAddressCaps(DEVICE_ID_BASE + line.index, 0, TSPI_VERSION, 0, &address_caps));
    struct {
        VARSTRING fixed;
        DWORD id;
    } device_id = {};
    device_id.fixed.dwTotalSize = sizeof device_id;
    expect_good(line, "identifier",
                provider.TSPI_lineGetID(line.provider_handle, 0, nullptr, LINECALLSELECT_LINE, &device_id.fixed,
                                        L"tapi/line", nullptr));
    DWORD number = 0;
    expect_good(line, "addresses", provider.TSPI_lineGetNumAddressIDs(line.provider_handle, &number));
    expect_good(line, "media", provider.TSPI_lineSetDefaultMediaDetection(line.provider_handle, LINEMEDIAMODE_G3FAX));
    LINECALLPARAMS parameters = {};
    expect_good(line, "conditional media",
                provider.TSPI_lineConditionalMediaDetection(line.provider_handle, LINEMEDIAMODE_G3FAX, &parameters));
    expect_good(line, "status messages", provider.TSPI_lineSetStatusMessages(line.provider_handle, 0, 0));
    return true;
}

// ---- command blocks -----------------------------------------------------------------------------------------------

// Returns what the command's result is.
uint32_t send_command(TapiLine& line, CommandBlock block, LONG completes_with = 0) {
    const auto command = value_at<int32_t>(block.data(), 0);
    const std::string operation = text("command %d", command);
    Request request(line, operation.c_str(), "fax thread");
    if (chance().one_in(20)) {
        block = block.by_event(chance().next());
        expect_no_completion(request.id);
    }
    expect_completion_with(request.id, completes_with);
    const LONG result = request.returned(
        operation.c_str(), provider.TSPI_lineDevSpecific(request.id, line.provider_handle, 0, line.provider_call(),
                                                         block.data(), CommandBlock::size()));
    if (result < 0) give_up(text("%s: %s returned %ld", line.name.c_str(), operation.c_str(), result));
    if (block.device_id_base() != DEVICE_ID_BASE) give_up(line.name + ": the base of the device IDs was not told");
    return block.result();
}

bool open_file(TapiLine& line) {
    send_command(line, CommandBlock::open(std::string(chance().below(250), 'x') + ".tif", "r+"));
    return true;
}

bool close_file(TapiLine& line) {
    send_command(line, CommandBlock::close(chance().below(6)));
    return true;
}

// Mostly as the fax service does: one fax at a time, on a connected call.
bool begin_fax(TapiLine& line, Command command) {
    const bool is_usual = line.call.state == LINECALLSTATE_CONNECTED && faxes_running(line) == 0;
    if (!has_call(line) || (!is_usual && !chance().one_in(10))) return false;
    if (chance().percent(90)) open_file(line);
    if (!has_call(line)) return true;
    const FaxTexts texts = {std::string(chance().below(50), 'H'), std::string(chance().below(50), 'L'),
                            chance().below(2)};
    if (line.faxes_begun != line.faxes_ended) line.faxes_have_met = true;
    line.fax_is_undisturbed = !line.faxes_have_met;
    ++line.faxes_begun;
    if (send_command(line, CommandBlock::fax(command, texts)) != 0) --line.faxes_begun;
    return true;
}

bool fax(TapiLine& line) {
    return begin_fax(line, chance().percent(50) ? FAXSEND : FAXRECEIVE);
}

bool command(TapiLine& line) {
    if (!can_ask(line)) return false;
    switch (chance().below(5)) {
        case 0:
            return open_file(line);
        case 1:
            return close_file(line);
        case 2:
            send_command(line, CommandBlock(ABORT));
            return true;
        case 3:
            send_command(line, CommandBlock(GETSTATUS));
            return true;
        default:
            send_command(line, CommandBlock(chance().percent(50) ? 7 : -1),
                         static_cast<LONG>(LINEERR_OPERATIONUNAVAIL));
            return true;
    }
}

bool pause(TapiLine&) {
    sleep(chance().below(chance().one_in(5) ? 30000 : 1000));
    return true;
}

// Makes the operation on a line if the line is ready for it, and returns whether it did.
struct Operation {
    bool (*make)(TapiLine&);
    uint32_t weight;
};
constexpr Operation OPERATIONS[] = {
    {open_line, 12}, {close_line, 2}, {make_call, 10}, {dial, 8}, {accept, 6},   {answer, 16}, {drop, 4},
    {close_call, 4}, {query_call, 4}, {query_line, 3}, {fax, 16}, {command, 12}, {pause, 24},  {close_line_as_well, 20},
};

const Operation& some_operation() {
    uint32_t all = 0;
    for (const Operation& operation : OPERATIONS) all += operation.weight;
    uint32_t chosen = chance().below(all);
    const Operation* operation = OPERATIONS;
    for (; chosen >= operation->weight; ++operation) chosen -= operation->weight;
    return *operation;
}

}  // namespace

void play_tapi(uint32_t operations) {
    for (uint32_t made = 0; made < operations;) {
        TapiLine& line = tapi_lines[chance().below(static_cast<uint32_t>(tapi_lines.size()))];
        if (some_operation().make(line)) ++made;
        point();
    }
}

void close_everything() {
    for (TapiLine& line : tapi_lines) {
        if (line.life == Life::closed) continue;
        while (faxes_running(line) > 0 || unfinished_requests(line) > 0) {
            send_command(line, CommandBlock(ABORT));
            sleep(1000);
        }
        if (has_call(line)) close_call(line);
        close_line(line);
        if (line.life != Life::closed) give_up(line.name + " could not be closed");
    }
}

bool everything_was_taken() {
    return std::all_of(counts.begin(), counts.end(), [](const auto& count) { return count.second.taken > 0; });
}

std::string operations_made() {
    std::string made;
    for (const auto& [operation, count] : counts)
        made += text("  %-22s %8llu, taken %8llu\n", operation.c_str(), count.made, count.taken);
    return made;
}

}  // namespace chaos
