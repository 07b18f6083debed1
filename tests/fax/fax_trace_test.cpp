// The functions that a job goes through, as their entries and exits show them, with the driver's calls and TAPI's
// events in their places.
#include "board_report_fixture.h"

using namespace harness;

namespace {

// A function on LINE1 from its entry to its exit, and what happens in between.
Lines inside(const std::string& function, const std::vector<Lines>& parts = {}) {
    return joined({{of_line(8, function)}, joined(parts), {of_line(9, function) + "<*>"}});
}

Lines locked(const std::vector<Lines>& parts) {
    return joined({inside("lock_line"), joined(parts), inside("unlock_line")});
}

// The report handler does not know the line yet.
Lines inside_report(const std::vector<Lines>& parts) {
    return joined({{"[8] <*>InterruptFromLUM"}, joined(parts), {"[9] <*>InterruptFromLUM<*>"}});
}

const Lines kPublish = inside("UpdateSharedMemory");
const Lines kProgress = inside("Send_CallDevSpecific", {{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)"}});
const Lines kEnd = joined({
    inside("Send_CallDevSpecific", {{"LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)"}}),
    inside("SetCallState", {locked({{"LINE_CALLSTATE(HTLINE1, HTCALL1, DISCONNECTED, 0x1, 0x20)"}})}),
    inside("send_linedevstate", {{"LINE_LINEDEVSTATE(HTLINE1, HTCALL1, NUMCALLS, 0x0, 0x0)"}}),
    inside("send_addrstate", {{"LINE_ADDRESSSTATE(HTLINE1, 0, 0x0, NUMCALLS, 0x0)"}}),
    locked({}),
});

View functions() {
    return all_of(TRACE | DRIVER | EVENT | COMPLETION).levels({8, 9});
}

class FaxTrace : public FaxFixture {};
using ReportTrace = BoardReportFixture;

}  // namespace

TEST_F(FaxTrace, OfATransmissionShowsItsFunctions) {
    place_call(0);
    open_file();
    new_chapter();
    send_fax({"HEADER", "", 1});
    EXPECT_TRUE(reads(of_the_job(functions()),
                      inside("Thread_Send_Fax",
                             {
                                 locked({kPublish}),
                                 {"DornFaxHeader(CHAN4, 0, 2, \"HEADER        \")", "DornFaxSetLocalId(CHAN4, \"\")"},
                                 inside("SendStraightTIFF",
                                        {
                                            {"DornLineCapCheck(CHAN4, 20)", "DornFaxBeginSendTiff(CHAN4, TIFF1)",
                                             "DornFaxGetRemoteInfo(CHAN4)"},
                                            locked({kPublish}),
                                            kProgress,
                                            {"DornFaxWaitForTraining(CHAN4)", "DornFaxNextPageTiff(CHAN4, TIFF1)",
                                             "DornFaxSendPageTiff(CHAN4, TIFF1)", "DornFaxNextPageTiff(CHAN4, TIFF1)",
                                             "DornFaxEndOfDocument(CHAN4)"},
                                        }),
                                 kEnd,
                             })));
}

TEST_F(FaxTrace, OfAReceptionShowsItsFunctions) {
    take_call(0, {"5551234", "", "", ""});
    driver.channel(4).second_id = "77";
    open_file();
    new_chapter();
    receive_fax();
    EXPECT_TRUE(reads(
        of_the_job(functions()),
        inside("Thread_Receive_Fax",
               {
                   locked({kPublish, kPublish, kProgress}),
                   {"DornLineCapCheck(CHAN4, 20)", "DornFaxSetReceiveFmt(CHAN4, 19)",
                    "DornFaxSetLocalId(CHAN4, \"+1 555 0100\")", "DornFaxBeginReceive(CHAN4)",
                    "DornFaxGetRemoteInfo(CHAN4)"},
                   locked({kPublish, kPublish}),
                   kProgress,
                   {"DornFaxWaitForTraining(CHAN4)", "DornFaxRcvPageTiff(CHAN4, TIFF1, 305:2[11] \"0536870920\\x00\")",
                    "DornFaxRcvPageTiff(CHAN4, TIFF1)", "DornFaxEndReception(CHAN4)"},
                   kEnd,
               })));
}

TEST_F(FaxTrace, OfTheStampShowsItsFunctions) {
    take_call(0);
    open_file();
    shared_record(0).status = KX_STATUS_ERROR_HANGUP;
    driver.on.DornTiffWriteRes = [](DornTiffRecord* record) { return put_value(record, 0, KX_STATUS_ERROR), 0; };
    new_chapter();
    close_file(FAXRECEIVE);
    EXPECT_TRUE(reads(functions(),
                      locked({
                          {"DornTiffClose(TIFF1)"},
                          inside("UpdateFaxStatus",
                                 {
                                     inside("GetFaxExtendedStatusCode"),
                                     {"DornTiffOpen(\"" + file() + "\", \"r+\")", "DornTiffReadIFD(TIFF2, 0x20000400)"},
                                     inside("RebuildPlaceholderTiff",
                                            {{"DornTiffClose(TIFF2)", "DornTiffOpen(\"" + file() + "\", \"w+\")",
                                              "DornTiffWriteImage(TIFF3, \"\\x00\\x00\\x00\\x00\")",
                                              "DornTiffWriteImage(TIFF3, end)", "DornTiffWriteRes(TIFF3, 0)"}}),
                                     {"DornTiffClose(TIFF3)"},
                                 }),
                          {"completion(request=0x13, result=0x0)"},
                      })));
}

TEST_F(FaxTrace, OfAStatusRequestShowsThePublishing) {
    take_call(0);
    new_chapter();
    command(CommandBlock(GETSTATUS));
    EXPECT_TRUE(reads(functions(), locked({kPublish, {"completion(request=0x12, result=0x0)"}})));
}

TEST_F(ReportTrace, OfAFrameShowsTheLock) {
    driver.channel(4).dcs[2] = 7;
    frame(RECEIVED, {DCS});
    EXPECT_TRUE(reads(
        functions(),
        inside_report({locked({inside("send_linecallinfo", {{"LINE_CALLINFO(HTLINE1, HTCALL1, RATE, 0x0, 0x0)"}})})})));
}

TEST_F(ReportTrace, OfACountedPageShowsThePublishingUnderTheLock) {
    announce_more_pages();
    new_chapter();
    page_end();
    EXPECT_TRUE(reads(functions(), inside_report({locked({kPublish}), kProgress})));
}

TEST_F(ReportTrace, OfAPageThatDoesNotCountShowsNoLock) {
    page_end();
    EXPECT_TRUE(reads(functions(), inside_report({})));
}
