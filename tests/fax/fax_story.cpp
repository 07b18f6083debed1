#include "fax_story.h"

using namespace harness;

View whole_request() {
    return on_this_thread(whole_story());
}

Lines inside(const std::string& function, const std::vector<Lines>& parts) {
    return joined({{of_line(8, function)}, joined(parts), {of_line(9, function)}});
}

Lines inside_with_result(const std::string& function, int result, const std::vector<Lines>& parts) {
    return joined({{of_line(8, function)}, joined(parts), {of_line(9, text("%s(%d)", function.c_str(), result))}});
}

Lines lock_is_taken() {
    return inside("lock_line", {{"WaitForSingleObject(MUTEX1, INFINITE)"}});
}

Lines locked(const std::vector<Lines>& parts) {
    return joined({lock_is_taken(), joined(parts), inside("unlock_line", {{"ReleaseMutex(MUTEX1)"}})});
}

Lines accepted_request(DRV_REQUESTID id, const std::string& command, const Lines& done, uint32_t result) {
    return joined({
        {of_line(16, "TSPI_lineDevSpecific"), "[4] Dev Specific cmd " + command},
        locked({done,
                {text("[4] TSPI_lineDevSpecific() Async completion requestID= 0x%lX: result= 0x%X", id, result),
                 text("completion(request=0x%lX, result=0x%X)", id, result)}}),
        {of_line(17, text("TSPI_lineDevSpecific(%lu) Good", id))},
    });
}

const Lines& published() {
    static const Lines story = inside("UpdateSharedMemory", {{"DornLineUnitGet(CHAN4)"}});
    return story;
}

const Lines& told_of_progress() {
    static const Lines story =
        inside("Send_CallDevSpecific",
               {{"[4] Send_CallDevSpecific 3,0,0", "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)"}});
    return story;
}

Lines told_of_the_end(uint32_t status, uint32_t line_status) {
    return inside("Send_CallDevSpecific",
                  {{text("[4] Send_CallDevSpecific 1,%X,%X", status, line_status),
                    text("LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x%X, 0x%X)", status, line_status)}});
}

Lines job_is_over(uint32_t mode) {
    return joined({
        {"DornLineUnitGet(CHAN4)"},
        inside("SetCallState",
               {locked({{of_line(4, text("Sending LINE_CALLSTATE, dwCallState=0x4000, dwCallStateMode=0x%X", mode)),
                         text("LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x%X, 0x20)", mode)}})}),
        inside("send_linedevstate", {{of_line(4, "Sending LINE_LINEDEVSTATE, newstate=0x800, Parm2=0x0, Parm3=0x0"),
                                      "LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)"}}),
        inside("send_addrstate", {{of_line(4, "Sending LINE_ADDRESSSTATE addr=0x0, newstate=0x20, Parm3=0x0"),
                                   "LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)"}}),
        locked({}),
    });
}
