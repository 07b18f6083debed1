// TAPI as the provider sees it: the handles it gives, its event procedure and its completion procedure, both written to
// the journal.
//
//     tapi.refused_new_calls = 2;                       the next two LINE_NEWCALLs get no call handle
//     tapi.on_event = [](const LineEvent& event) { if (event.message == LINE_NEWCALL) throw 1; };
#pragma once

#include <windows.h>
// tapi.h wants windows.h first.
#include <tapi.h>
#include <tspi.h>

#include <functional>
#include <string>

namespace harness {

struct LineEvent {
    HTAPILINE line;
    HTAPICALL call;
    DWORD message;
    DWORD_PTR parameters[3];
};

struct TapiSide {
    // How many LINE_NEWCALLs are left without a call handle.
    int refused_new_calls = 0;
    // Called after the event is in the journal and before a new call gets its handle; on the provider's thread.
    std::function<void(const LineEvent&)> on_event = nullptr;
    std::function<void(DRV_REQUESTID request, LONG result)> on_completion = nullptr;

    int calls_given = 0;

    // TAPI's handle of a line, named HTLINE1 for index 0 and so on.
    HTAPILINE line_handle(unsigned index);
    // A new call handle, named HTCALL1, HTCALL2, ... in the order in which they are given.
    HTAPICALL new_call_handle();
};

extern TapiSide tapi;

void CALLBACK tapi_event(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR parameter1, DWORD_PTR parameter2,
                         DWORD_PTR parameter3);
void CALLBACK tapi_completion(DRV_REQUESTID request, LONG result);

}  // namespace harness
