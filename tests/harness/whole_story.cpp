#include "whole_story.h"

namespace harness {

View whole_story() {
    return all_of(~static_cast<unsigned>(DRIVER_LOG))
        .all_levels()
        .without({"[4] lock_line()<*>", "[4] unlock_line()<*>", "QorvLog<*>", "Reg<*>", "fopen(<*>",
                  "[8] report_event<*>", "[4] intNumCharscopied<*>", "[4] TempMsg<*>", "[4] StringArray<*>",
                  "[4] report_event<*>", "DeregisterEventSource()", "[9] report_event<*>"});
}

View of_ring_det_thread(const View& view) {
    auto steps = entries(all_of(TRACE | DRIVER | WINDOWS)
                             .only({"[4] LumLineWaitForCall<*>", "[4] Ring_det received error!",
                                    "DornLineWaitForCallISDN(<*>", "WaitForSingleObject(RING_DET_WAIT, INFINITE)"}));
    return view.on_thread(steps.empty() ? 0 : steps.back().thread);
}

testing::AssertionResult this_thread_did(const Lines& expected) {
    testing::AssertionResult result = reads(on_this_thread(whole_story()), expected);
    new_chapter();
    return result;
}

Lines function(const std::string& name, const Lines& steps, const std::string& of_the_line) {
    return joined({{"[8] " + of_the_line + name}, steps, {"[9] " + of_the_line + name}});
}

Lines lock_taken(const std::string& of_the_line) {
    return function("lock_line", {"WaitForSingleObject(LOCK, INFINITE)"}, of_the_line);
}

Lines lock_given_back(const std::string& of_the_line) {
    return function("unlock_line", {"ReleaseMutex(LOCK)"}, of_the_line);
}

Lines handle_is_valid(const std::string& of_the_line) {
    return {"[8] " + of_the_line + "IsValidLine", "[9] " + of_the_line + "IsValidLine(1)"};
}

namespace {

// A message with the call at hand, between the entry and the exit of its sender.
Lines sent(const std::string& sender, const std::string& trace, const std::string& event) {
    return function(sender, {"[4] " + kCall + "Sending " + trace, event});
}

Lines in_call_state(const Lines& steps) {
    return function("SetCallState", joined({lock_taken(), steps, lock_given_back()}));
}

}  // namespace

Lines call_state_sent(unsigned state, const std::string& shown, unsigned mode) {
    return in_call_state(
        {text("[4] %sSending LINE_CALLSTATE, dwCallState=0x%X, dwCallStateMode=0x%X", kCall.c_str(), state, mode),
         text("LINE_CALLSTATE(HTLINE1, HTCALL1, %s, 0x%X, 0x20)", shown.c_str(), mode)});
}

Lines call_state_kept() {
    return in_call_state({});
}

Lines number_of_calls_sent() {
    return joined({sent("send_linedevstate", "LINE_LINEDEVSTATE, newstate=0x800, Parm2=0x0, Parm3=0x0",
                        "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)"),
                   sent("send_addrstate", "LINE_ADDRESSSTATE addr=0x0, newstate=0x20, Parm3=0x0",
                        "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)")});
}

Lines call_end_sent() {
    return joined({call_state_sent(0x1, "IDLE"), number_of_calls_sent()});
}

Lines call_info_sent(unsigned state, const std::string& shown) {
    return sent("send_linecallinfo", text("LINE_CALLINFO callinfo_state=0x%X", state),
                "LINE_CALLINFO(HTLINE1, HTCALL1, " + shown + ", 0x0, 0x0)");
}

Lines ring_sent(unsigned count) {
    return sent("send_linedevstate", text("LINE_LINEDEVSTATE, newstate=0x2, Parm2=0x1, Parm3=0x%X", count),
                text("LINE_LINEDEVSTATE(HTLINE1, HTCALL1, RINGING, 0x1, 0x%X)", count));
}

Lines channel_reset(const std::string& of_the_line, bool clears_a_call) {
    const Lines clearing = {"DornLineTerminateCallISDN(CHAN4)"};
    return joined(
        {{"[8] " + of_the_line + "LumLineResetReg", "DornLineUnitGet(CHAN4)", "DornLineIncomingCmdFuncAccess(CHAN4)"},
         clears_a_call ? clearing : Lines{},
         {"[8] get_value_sz", "[9] get_value_sz(0)"},
         kReset,
         {"DornLineIncomingCmdFuncAccess(CHAN4)", "[9] " + of_the_line + "LumLineResetReg(0)"}});
}

Lines ring_count_looked_up() {
    return joined({{"[8] findNringsFromLineID"}, kNoRingCount, {"[9] findNringsFromLineID(1)"}});
}

Lines refused_request(const std::string& name, const std::string& of_the_line, DWORD error) {
    return joined({{"[16] " + of_the_line + name},
                   handle_is_valid(of_the_line),
                   lock_taken(of_the_line),
                   lock_given_back(of_the_line),
                   {text("[17] %s%s(%ld) Failed", of_the_line.c_str(), name.c_str(), failed(error))}});
}

Lines close_begun(const Lines& file_closed) {
    return joined({{"[16] " + kCall + "TSPI_lineCloseCall"},
                   handle_is_valid(),
                   lock_taken(),
                   {"DornLineUnitGet(CHAN4)", "[4] Closing call on line 15"},
                   file_closed,
                   kAlert,
                   lock_given_back(),
                   lock_taken()});
}

Lines handed_back(bool clears_a_call) {
    return joined({lock_given_back(),
                   channel_reset(kCall, clears_a_call),
                   lock_taken(),
                   {"SetEvent(RING_DET_WAIT)", "[8] " + kNoCall + "UpdateSharedMemory", "DornLineUnitGet(CHAN4)",
                    "[9] " + kNoCall + "UpdateSharedMemory", "SetEvent(RING_DET_WAIT)"},
                   lock_given_back(kNoCall),
                   {"[17] " + kNoCall + "TSPI_lineCloseCall(0) Good"}});
}

}  // namespace harness
