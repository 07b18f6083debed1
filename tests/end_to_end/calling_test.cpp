// Calls that never become faxes.
#include "end_to_end.h"
#include "text.h"

class Calling : public EndToEnd {
  protected:
    // The failure of a call to 200, on a board with this station.
    std::string call(const std::string& station, const std::string& number = "200") {
        given_board("[board]\nno_answer_ms = 500\n[station.far]\nnumber = 200\n" + station);
        const std::unique_ptr<Line> line = open_line(0);
        const Fax fax = send(*line, number, three_pages());
        EXPECT_EQ(EXIT_FAX_FAILED, fax.failure.exit_status);
        text = fax.failure.text;
        return fax.failure.name;
    }

    std::string text;  // of the failure
};

TEST_F(Calling, ABusyMachineIsTold) {
    EXPECT_EQ("FS_BUSY", call("busy = yes\n"));
    EXPECT_EQ("200: is busy (LINECALLSTATE_BUSY, LINEBUSYMODE_STATION)", text);
}

TEST_F(Calling, AMachineThatDoesNotAnswerIsTold) {
    EXPECT_EQ("FS_NO_ANSWER", call("answers = no\n"));
}

TEST_F(Calling, ANumberThatNobodyHasIsTold) {
    EXPECT_EQ("FS_BAD_ADDRESS", call("", "999"));
}

TEST_F(Calling, ALineWithoutDialToneIsTold) {
    EXPECT_EQ("FS_NO_DIAL_TONE", call("[channel.0]\ndial_tone = no\n"));
}

TEST_F(Calling, ANumberThatTheProviderRefusesIsTold) {
    EXPECT_EQ("LINEERR_DIALQUIET", call("", "2@00"));
}

TEST_F(Calling, IsInterruptedWhileItRings) {
    given_board("");
    const std::unique_ptr<Line> line = open_line(0);
    const OwnedThread user = thread_start([this] { SetEvent(stop.get()); });
    EXPECT_EQ(EXIT_INTERRUPTED, send(*line, "101", three_pages()).failure.exit_status);
}

TEST_F(Calling, ALineThatIsNotThereIsRefused) {
    given_board("");
    Line line;
    const Failure failure = line_open(line, *provider, 4, false);
    EXPECT_EQ(
        "LINEERR_BADDEVICEID: there is no line 4: the provider has the lines 0 to 3; faxhost lines shows the device "
        "IDs there are",
        failure_line(failure));
}

TEST_F(Calling, ASecondHostIsKeptOut) {
    given_board("");
    Provider second;
    const Failure failure = provider_start(second, {wide(full_path(PROVIDER)), 0});
    EXPECT_EQ("LINEERR_INUSE", failure.name);
}
