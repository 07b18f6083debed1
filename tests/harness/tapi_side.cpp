#include "tapi_side.h"

#include <iterator>

#include "journal.h"
#include "text.h"
#include "waiting.h"

namespace harness {

TapiSide tapi;

namespace {

struct Name {
    DWORD value;
    const char* name;
};

constexpr Name kCallStates[] = {
    {LINECALLSTATE_IDLE, "IDLE"},           {LINECALLSTATE_OFFERING, "OFFERING"},
    {LINECALLSTATE_ACCEPTED, "ACCEPTED"},   {LINECALLSTATE_DIALTONE, "DIALTONE"},
    {LINECALLSTATE_DIALING, "DIALING"},     {LINECALLSTATE_RINGBACK, "RINGBACK"},
    {LINECALLSTATE_BUSY, "BUSY"},           {LINECALLSTATE_SPECIALINFO, "SPECIALINFO"},
    {LINECALLSTATE_CONNECTED, "CONNECTED"}, {LINECALLSTATE_PROCEEDING, "PROCEEDING"},
    {LINECALLSTATE_UNKNOWN, "UNKNOWN"},     {LINECALLSTATE_DISCONNECTED, "DISCONNECTED"},
};
constexpr Name kLineStates[] = {{LINEDEVSTATE_RINGING, "RINGING"}, {LINEDEVSTATE_NUMCALLS, "NUMCALLS"}};
constexpr Name kAddressStates[] = {{LINEADDRESSSTATE_NUMCALLS, "NUMCALLS"}};
constexpr Name kCallInfoStates[] = {{LINECALLINFOSTATE_RATE, "RATE"},
                                    {LINECALLINFOSTATE_CALLERID, "CALLERID"},
                                    {LINECALLINFOSTATE_CALLEDID, "CALLEDID"}};

std::string hexadecimal(DWORD_PTR value) {
    return text("0x%llX", static_cast<unsigned long long>(value));
}

template <size_t N>
std::string named(const Name (&names)[N], DWORD_PTR value) {
    for (const Name& known : names)
        if (known.value == value) return known.name;
    return hexadecimal(value);
}

// The place where a new call's handle is wanted: within the line's record, shown without its offset.
std::string place_in(DWORD_PTR record, DWORD_PTR place) {
    constexpr DWORD_PTR kRecordSize = 8192;
    return place > record && place < record + kRecordSize ? "&htCall" : hexadecimal(place);
}

std::string parameters_of(const LineEvent& event) {
    const DWORD_PTR* given = event.parameters;
    std::string first = hexadecimal(given[0]), second = hexadecimal(given[1]), third = hexadecimal(given[2]);
    switch (event.message) {
        case LINE_CALLSTATE:
            first = named(kCallStates, given[0]);
            break;
        case LINE_LINEDEVSTATE:
            first = named(kLineStates, given[0]);
            break;
        case LINE_ADDRESSSTATE:
            second = named(kAddressStates, given[1]);
            break;
        case LINE_CALLINFO:
            first = named(kCallInfoStates, given[0]);
            break;
        case LINE_NEWCALL:
            first = pointer_text(reinterpret_cast<void*>(given[0]));
            second = place_in(given[0], given[1]);
            break;
        default:
            break;
    }
    return first + ", " + second + ", " + third;
}

std::string message_name(DWORD message) {
    switch (message) {
        case LINE_ADDRESSSTATE:
            return "LINE_ADDRESSSTATE";
        case LINE_CALLINFO:
            return "LINE_CALLINFO";
        case LINE_CALLSTATE:
            return "LINE_CALLSTATE";
        case LINE_LINEDEVSTATE:
            return "LINE_LINEDEVSTATE";
        case LINE_NEWCALL:
            return "LINE_NEWCALL";
        case LINE_CALLDEVSPECIFIC:
            return "LINE_CALLDEVSPECIFIC";
        default:
            return text("message %lu", message);
    }
}

// Handles look like addresses, so that they show in full in a trace.
template <class Handle>
Handle made_up(unsigned long long family, unsigned number) {
    return reinterpret_cast<Handle>(static_cast<uintptr_t>(family + number * 0x10));
}

}  // namespace

HTAPILINE TapiSide::line_handle(unsigned index) {
    auto handle = made_up<HTAPILINE>(0x117E00000000ULL, index);
    name_pointer(handle, text("HTLINE%u", index + 1));
    return handle;
}

HTAPICALL TapiSide::new_call_handle() {
    int number;
    {
        std::lock_guard<std::mutex> holding(world());
        number = ++calls_given;
    }
    auto handle = made_up<HTAPICALL>(0xCA1100000000ULL, static_cast<unsigned>(number));
    name_pointer(handle, text("HTCALL%d", number));
    return handle;
}

void CALLBACK tapi_event(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR parameter1, DWORD_PTR parameter2,
                         DWORD_PTR parameter3) {
    LineEvent event = {line, call, message, {parameter1, parameter2, parameter3}};
    add_entry({EVENT, message_name(message) + "(" + pointer_text(line) + ", " + pointer_text(call) + ", " +
                          parameters_of(event) + ")"});
    if (tapi.on_event) tapi.on_event(event);
    if (message != LINE_NEWCALL) return;
    if (tapi.refused_new_calls > 0) {
        --tapi.refused_new_calls;
        return;
    }
    *reinterpret_cast<HTAPICALL*>(parameter2) = tapi.new_call_handle();
}

void CALLBACK tapi_completion(DRV_REQUESTID request, LONG result) {
    add_entry({COMPLETION, text("completion(request=0x%lX, result=0x%lX)", request, static_cast<DWORD>(result))});
    if (tapi.on_completion) tapi.on_completion(request, result);
}

}  // namespace harness
