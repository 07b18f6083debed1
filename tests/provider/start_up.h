// The fixture of the start-up tests: lines are enumerated, TSPI_providerInit is still to come. And what start-up and
// enumeration do on the way, Windows' part included, as lists to put together.
#pragma once

#include "harness.h"
#include "line_fixture.h"

namespace harness {

class StartUp : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        ASSERT_EQ(enumerate(), 0);
        new_chapter();
    }

    // What TSPI_providerInit's own thread did.
    View own(const View& view) const { return view.on_thread(GetCurrentThreadId()); }
};

// Everything that happened, function entries and exits and Windows' part included; not the trace's own dealings with
// the driver's log.
inline View everything() {
    return all_of(TRACE | DRIVER | EVENT_LOG | WINDOWS).all_levels();
}

constexpr char kStartUpEntry[] =
    "[14] TSPI_providerInit: dwTSPIVersion(0x20000), dwPermanentProviderID(3), dwLineDeviceIDBase(7), "
    "dwPhoneDeviceIDBase(0), dwNumLines(2), dwNumPhones(0), lpfnCompletionProc(COMPLETION_PROC), "
    "lpdwTSPIOptions(OPTIONS)";
constexpr char kFaxServiceFound[] = "[4] OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE";
constexpr char kResetStarted[] = "[4] TSPI_providerInit: _beginthread ResetChannelThread started";

// The Windows version is asked for and is 6.1.
inline const Lines kVersionAsked = {
    "[8] os_recognition",
    "GetVersionExW(284 bytes)",
    "[4] Future Version ",
    "[9] os_recognition(5)",
};
inline const Lines kFaxServiceAsked = joined({
    {"[8] IsFaxServicePresent"},
    kVersionAsked,
    {kFaxServiceFound, "OpenSCManagerW(null, null, 0x4)", "OpenServiceW(\"Fax\", 0x4)"},
});
inline const Lines kFaxServiceThere = joined({kFaxServiceAsked, {"[9] IsFaxServicePresent(1)"}});
// The shared segment is about to be created, and is.
inline const Lines kSegmentDescribed = joined({
    kVersionAsked,
    {"ConvertStringSecurityDescriptor(\"O:NSG:NSD:(A;;GR;;;NS)\", 1)"},
});
inline const Lines kSegmentCreated = joined({
    kSegmentDescribed,
    {"[4] Creating Shared Memory HalvorsundMSFTSPSharedMemory",
     "CreateFileMappingW(page file, {24, \"O:NSG:NSD:(A;;GR;;;NS)\", 1}, 0x4, 0, 4307072, "
     "\"HalvorsundMSFTSPSharedMemory\")"},
});
inline const Lines kMappingAsked = joined({kSegmentCreated, {"MapViewOfFile(MAPPING, 0xF001F, 0, 0, whole)"}});
inline const Lines kSegmentMapped = joined({kMappingAsked, {"[4] Mapped Shared Memory HalvorsundMSFTSPSharedMemory"}});
// How every start begins: until the fax service is found, until the segment is mapped.
inline const Lines kBegun = joined({{"DornInitialize()", kStartUpEntry}, kFaxServiceThere});
inline const Lines kMapped = joined({kBegun, kSegmentMapped});
// The host service is asked for, and what it is found to be.
inline Lines host_service(const std::string& finding, const std::string& answer) {
    return {
        "[8] QORV_IsRunning",
        "[4] Check if calder is running",
        "OpenSCManagerW(null, null, 0x4)",
        "OpenServiceW(\"calder\", 0x4)",
        "QueryServiceStatus(\"calder\")",
        "[4] calder " + finding,
        "CloseServiceHandle(\"calder\")",
        "CloseServiceHandle(manager)",
        "[9] QORV_IsRunning(" + answer + ")",
    };
}
inline const Lines kHostServiceRuns = host_service("is running.", "1");
// How a start goes on that comes to the resets.
inline const Lines kReadyForResets = joined({kMapped, kHostServiceRuns});
// What a line of the highest level does: the panic file has no folder.
constexpr char kPanicFile[] = "fopen(\"\\temp\\QorvTspPanic.txt\", \"a\") failed";
// The host service is down: a line of the highest level, and the panic file has no folder.
inline const Lines kHostServiceStopped = joined({
    host_service("is not running.", "0"),
    {kPanicFile, "[1] Calder Host Service is not running!"},
});
// An entry of the event log without a string, or with one, until it is handed over.
inline Lines event_log_entry(const std::string& category, const std::string& id, const std::string& string = "") {
    const bool has_string = !string.empty();
    return {
        "[8] report_event",
        "RegisterEventSourceW(null, \"Halvorsund Telephony Service Provider\")",
        "[4] intNumCharscopied =0",
        "[4] TempMsg =",
        "[4] StringArray[0] =",
        "[4] report_event (ERROR): dwIdEvent= " + id + ", num_strings= " + (has_string ? "0x1" : "0x0") +
            ", pszStrings= 0x<*> ",
        has_string ? "[4] report_event (ERROR): " + string + " " : "[4] report_event (ERROR): pszStrings= NULL",
        "event log(category=" + category + ", " + id + ", \"\"" + (has_string ? ", \"" + string + "\"" : "") + ")",
        "DeregisterEventSource()",
        "[9] report_event(0)",
    };
}
inline Lines event_log_entry_with_number(const std::string& category, const std::string& id,
                                         const std::string& number) {
    return joined({{"[8] report_event_num"}, event_log_entry(category, id, number), {"[9] report_event_num(0)"}});
}
// An entry for which the source of the entries cannot be opened.
inline const Lines kNoEventLog = {
    "[8] report_event",
    "RegisterEventSourceW(null, \"Halvorsund Telephony Service Provider\")",
    "[9] report_event(-2)",
};

}  // namespace harness
