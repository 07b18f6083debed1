// The names of constants, and the mapping of job results to the fax service's codes.
#include "names.h"

#include <gtest/gtest.h>

#include "failure.h"
#include "fax_status.h"

TEST(Names, NamesLineErrors) {
    EXPECT_EQ("LINEERR_INUSE", lineerr_name(static_cast<int32_t>(0x8000000F)));
    EXPECT_EQ("LINEERR_OPERATIONFAILED", lineerr_name(static_cast<int32_t>(0x80000048)));
    EXPECT_EQ("0", lineerr_name(0));
    EXPECT_EQ("0x80001234", lineerr_name(static_cast<int32_t>(0x80001234)));
}

TEST(Names, NamesTheModeThatGoesWithACallState) {
    EXPECT_EQ("LINEBUSYMODE_TRUNK", call_state_mode_name(LINECALLSTATE_BUSY, 2));
    EXPECT_EQ("LINEDISCONNECTMODE_UNKNOWN", call_state_mode_name(LINECALLSTATE_DISCONNECTED, 2));
    EXPECT_EQ("LINESPECIALINFO_CUSTIRREG", call_state_mode_name(LINECALLSTATE_SPECIALINFO, 2));
    EXPECT_EQ("", call_state_mode_name(LINECALLSTATE_IDLE, 0));
}

TEST(Names, PutsEventsIntoWords) {
    EXPECT_EQ("LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE, LINEMEDIAMODE_G3FAX",
              event_parameters_text(LINE_CALLSTATE, 0x100, 1, 0x20));
    EXPECT_EQ("LINEDEVSTATE_RINGING, mode 1, count 4", event_parameters_text(LINE_LINEDEVSTATE, 2, 1, 4));
    EXPECT_EQ("LINEDEVSTATE_NUMCALLS", event_parameters_text(LINE_LINEDEVSTATE, 0x800, 0, 0));
    EXPECT_EQ("address 0, LINEADDRESSSTATE_NUMCALLS", event_parameters_text(LINE_ADDRESSSTATE, 0, 0x20, 0));
    EXPECT_EQ("LINECALLINFOSTATE_CALLERID", event_parameters_text(LINE_CALLINFO, 0x8000, 0, 0));
    EXPECT_EQ("progress", event_parameters_text(LINE_CALLDEVSPECIFIC, 3, 0, 0));
    EXPECT_EQ("job ended, KX_STATUS_ERROR / APIERR_FILEIO", event_parameters_text(LINE_CALLDEVSPECIFIC, 1, 2, 1));
    EXPECT_EQ("LINE_NEWCALL", message_name(LINE_NEWCALL));
}

TEST(Names, NamesJobResults) {
    EXPECT_EQ("KX_STATUS_OK", kx_result_text(0, 0));
    EXPECT_EQ("KX_STATUS_ERROR / APIERR_LOCK_FAILED", kx_result_text(2, 17));
    EXPECT_EQ("KX_STATUS_TIMEOUT / API_TO_SILENCE", kx_result_text(6, 1));
    EXPECT_EQ("KX_STATUS_ALERT", kx_result_text(7, 0));
    EXPECT_EQ("KX_STATUS_ERROR_HANGUP / line_status 5", kx_result_text(4, 5));
    EXPECT_EQ("KX_STATUS 1", kx_result_text(1, 0));
    EXPECT_STREQ("?? Unknown ??", kx_status_name(1));
    EXPECT_STREQ("?? Unknown ??", kx_line_status_name(7, 0));
}

struct ResultAndCode {
    uint32_t status;
    uint32_t line_status;
    uint32_t code;
    const char* name;
};

TEST(Names, MapsJobResultsToTheCodesOfTheFaxService) {
    constexpr ResultAndCode rows[] = {
        {0, 0, 0x20000008, "FS_COMPLETED"},     {0, 9, 0x20000008, "FS_COMPLETED"},
        {2, 1, 0x20000800, "FS_FATAL_ERROR"},   {2, 2, 0x20000800, "FS_FATAL_ERROR"},
        {2, 0, 0x20001000, "FS_NOT_FAX_CALL"},  {4, 3, 0x20000400, "FS_DISCONNECTED"},
        {7, 0, 0x20200000, "FS_USER_ABORT"},    {6, 0, 0x20001000, "FS_NOT_FAX_CALL"},
        {99, 1, 0x20001000, "FS_NOT_FAX_CALL"},
    };
    for (const ResultAndCode& row : rows) {
        EXPECT_EQ(row.code, fs_code_of(row.status, row.line_status)) << row.status << ", " << row.line_status;
        EXPECT_STREQ(row.name, fs_code_name(row.code));
    }
}

TEST(Names, TellsFailuresInOneLine) {
    EXPECT_EQ(
        "KX_STATUS_ERROR_HANGUP: sending failed; the other end hung up; send again the pages that did not go through",
        failure_line(job_failure(4, 0, "sending")));
    EXPECT_EQ("no command given; see faxhost --help",
              failure_line({EXIT_USAGE, "", "no command given", "see faxhost --help"}));
    EXPECT_EQ("LINEERR_INUSE: the provider refused while calling; the line has a call already; wait until it is over",
              failure_line(line_error_failure(static_cast<int32_t>(0x8000000F), "calling", EXIT_FAX_FAILED)));
}

TEST(Names, NamesTheFlagsOfAValue) {
    EXPECT_EQ("LINEBUSYMODE_STATION | LINEBUSYMODE_TRUNK", flag_names(FlagKind::busy_modes, 3));
    EXPECT_EQ("LINECALLFEATURE_ACCEPT | LINECALLFEATURE_ANSWER | LINECALLFEATURE_DIAL | LINECALLFEATURE_DROP",
              flag_names(FlagKind::call_features, 0xC5));
    EXPECT_EQ("0", flag_names(FlagKind::media_modes, 0));
    EXPECT_EQ("LINEADDRESSMODE_ADDRESSID | 0x80000000", flag_names(FlagKind::address_modes, 0x80000001));
}
