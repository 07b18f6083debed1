// The programs on the whole road: exit statuses, reports, and what a run leaves behind.
#include <windows.h>

#include <atomic>

#include "end_to_end.h"
#include "own_process.h"
#include "owned.h"
#include "run_program.h"
#include "text.h"

class Program : public EndToEnd {
  protected:
    void SetUp() override { SetEnvironmentVariableW(L"QORV_SOFTBOARD", wide(folder.file("softboard.ini")).c_str()); }

    void given_ini(const std::string& ini) {
        write_text(folder.file("softboard.ini"), ini + "\n[log]\nfile = " + folder.file("calddlld.log") + "\n");
    }

    ProgramRun faxhost(const std::string& arguments) { return run_program(FAXHOST, arguments); }

    static bool says(const std::string& output, const std::string& text) {
        return output.find(text) != std::string::npos;
    }
};

TEST_F(Program, ListsTheLines) {
    given_ini("[module.2]\nchannels = 2\nfirst_channel = 20\nfirst_unit = 7\n");
    const ProgramRun run = faxhost("lines");
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    EXPECT_TRUE(says(run.output, "     0  Halvorsund Line #1      0x00010014       20      2400  in service\n"))
        << run.output;
    EXPECT_TRUE(says(run.output, "     1  Halvorsund Line #2      0x00010015       21      2400  in service\n"))
        << run.output;
}

TEST_F(Program, TellsWhatTheLinesCanDoByTheConstantsNames) {
    given_ini("");
    const ProgramRun run = faxhost("lines");
    EXPECT_TRUE(says(run.output, "\nlines 0 to 3\n")) << run.output;
    for (const char* fact :
         {"  provider              Vantreli Halvorsund Telephony Service Provider\n",
          "  extension             0x580F6780 0x101D580E 0x8000F880 0x4A3D13C8, version 0x00020000\n",
          "  device class          tapi/line\n", "  media modes           LINEMEDIAMODE_G3FAX\n",
          "  device flags          LINEDEVCAPFLAGS_CLOSEDROP | LINEDEVCAPFLAGS_DIALDIALTONE\n",
          "  busy modes            LINEBUSYMODE_STATION | LINEBUSYMODE_TRUNK\n",
          "  device status         LINEDEVSTATUSFLAGS_CONNECTED | LINEDEVSTATUSFLAGS_INSERVICE, 0 active calls\n",
          "  address status        LINEADDRFEATURE_MAKECALL, 0 active calls\n"})
        EXPECT_TRUE(says(run.output, fact)) << fact << run.output;
    EXPECT_TRUE(says(faxhost("lines --json").output,
                     "{\"type\": \"capabilities\", \"device_ids\": [0, 1, 2, 3], \"provider\": \"Vantreli"));
}

TEST_F(Program, TellsOfACallWithItsEvents) {
    given_ini("[station.far]\nnumber = 200\nname = Far machine\ncalls = 101\nfile = " + three_pages() + "\n");
    const ProgramRun run = faxhost("events --line 1 --seconds 3");
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    for (const char* fact :
         {"LINE_CALLSTATE  LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE, LINEMEDIAMODE_G3FAX\n", "call on line 1\n",
          "  call state            LINECALLSTATE_OFFERING, LINEOFFERINGMODE_ACTIVE\n", "  called                101\n",
          "  caller                200\n", "  caller name           Far machine\n",
          "  caller ID flags       LINECALLPARTYID_NAME | LINECALLPARTYID_ADDRESS\n",
          "  origin                LINECALLORIGIN_OUTBOUND\n"})
        EXPECT_TRUE(says(run.output, fact)) << fact << run.output;
}

// Stops at the dialog of a faxhost and asks it to go.
static BOOL CALLBACK close_dialog(HWND window, LPARAM closed) {
    char caption[64] = {};
    GetWindowTextA(window, caption, sizeof caption);
    if (std::string(caption) != "Halvorsund software board" || !IsWindowVisible(window)) return TRUE;
    DWORD process_id = 0;
    GetWindowThreadProcessId(window, &process_id);
    const OwnedHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
    char program[MAX_PATH] = {};
    DWORD size = MAX_PATH;
    QueryFullProcessImageNameA(process.get(), 0, program, &size);
    if (std::string(program).find("faxhost.exe") == std::string::npos) return TRUE;
    if (PostMessageA(window, WM_CLOSE, 0, 0)) *reinterpret_cast<bool*>(closed) = true;
    return FALSE;
}

TEST_F(Program, ShowsTheConfigurationDialogUntilItIsClosed) {
    given_ini("");
    bool closed = false;
    std::atomic<bool> gone = false;
    const OwnedThread closing = thread_start([&] {
        // Time and again: the first time may be too early for a dialog that is still being made.
        while (!gone) {
            EnumWindows(close_dialog, reinterpret_cast<LPARAM>(&closed));
            Sleep(10);
        }
    });
    const ProgramRun run = faxhost("configure");
    gone = true;
    WaitForSingleObject(closing.get(), INFINITE);
    EXPECT_TRUE(closed);
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    EXPECT_EQ("", run.output + run.errors);
}

TEST_F(Program, SaysWhenThereIsNoConfigurationDialog) {
    const TemporaryFolder elsewhere;
    for (const char* file : {PROVIDER, FAXHOST})
        ASSERT_TRUE(
            CopyFileA(file, elsewhere.file(std::string(file).substr(std::string(file).rfind('/') + 1)).c_str(), FALSE));
    ASSERT_TRUE(CopyFileA(DRIVER, elsewhere.file("calddlld.dll").c_str(), FALSE));
    const ProgramRun run = run_program(elsewhere.file("faxhost.exe"), "configure");
    EXPECT_EQ(4u, run.exit_status);
    EXPECT_TRUE(says(run.errors,
                     "faxhost: LINEERR_OPERATIONFAILED: the board's configuration dialog cannot be shown; check that "
                     "there is a screen, and that qorvconf.cpl lies beside this program"))
        << run.errors;
}

TEST_F(Program, LoopsAFaxBackAndReportsIt) {
    given_ini("");
    const ProgramRun run =
        faxhost("loopback " + three_pages() + " " + folder.file("out.tif") + " --events --header ACME");
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    EXPECT_TRUE(says(run.output, "pages     3 sent, 3 received")) << run.output;
    EXPECT_TRUE(says(run.output, "stamp     0536870920 FS_COMPLETED"));
    EXPECT_TRUE(says(run.output, "identical: page 1, 2, 3"));
    EXPECT_TRUE(says(run.output, "LINECALLSTATE_CONNECTED, LINECONNECTEDMODE_ACTIVE, LINEMEDIAMODE_G3FAX"));
    EXPECT_EQ("", run.errors);
}

TEST_F(Program, LoopsBackManyTimesAndLeavesNothingBehind) {
    given_ini("");
    const ProgramRun run =
        faxhost("loopback " + three_pages() + " " + folder.file("out.tif") + " --repeat 3 --completion event --json");
    EXPECT_EQ(0u, run.exit_status) << run.errors << run.output;
    EXPECT_TRUE(says(run.output, "{\"type\": \"counts\"")) << run.output;
    EXPECT_FALSE(says(run.output, "\"remote_id\": \"\"")) << run.output;
}

TEST_F(Program, ShowsTheProvidersTrace) {
    given_ini("");
    const ProgramRun run = faxhost("lines --trace 14,15");
    EXPECT_TRUE(says(run.output, "TSPI_providerInit(0) Good")) << run.output;
    EXPECT_FALSE(says(run.output, "TSPI_lineOpen"));
    EXPECT_FALSE(says(run.output, "Check if calder is running"));
}

TEST_F(Program, ReceivesIntoAFolder) {
    given_ini("[station.far]\nnumber = 200\ncalls = 101\nfile = " + three_pages() + "\n");
    const TemporaryFolder inbox;
    const ProgramRun run = faxhost("receive --line 1 --dir " + inbox.path);
    EXPECT_EQ(0u, run.exit_status) << run.errors;
    ASSERT_EQ(1u, inbox.files().size());
    expect_pages(drawn_pages(3), inbox.files()[0]);
}

struct Refusal {
    const char* arguments;
    unsigned long exit_status;
    const char* error;
};

TEST_F(Program, EndsInOneLineWhateverGoesWrong) {
    given_ini("[station.far]\nnumber = 200\nbusy = yes\n");
    constexpr Refusal refusals[] = {
        {"send --line 9 --to 101 ", 4, "faxhost: LINEERR_BADDEVICEID: there is no line 9"},
        {"send --line 0 --to 999 ", 1, "faxhost: FS_BAD_ADDRESS: 999: nobody has this number"},
        {"send --line 0 --to 200 ", 1, "faxhost: FS_BUSY: 200: is busy"},
    };
    for (const Refusal& refusal : refusals) {
        const ProgramRun run = faxhost(refusal.arguments + three_pages());
        EXPECT_EQ(refusal.exit_status, run.exit_status);
        EXPECT_EQ(0u, run.errors.find(refusal.error)) << run.errors;
        EXPECT_EQ(run.errors.size() - 1, run.errors.find('\n')) << run.errors;
    }
}

TEST_F(Program, IsKeptOutByAnotherHost) {
    given_board("");
    const ProgramRun run = faxhost("lines");
    EXPECT_EQ(4u, run.exit_status);
    EXPECT_EQ(0u, run.errors.find("faxhost: LINEERR_INUSE: another host is using the provider")) << run.errors;
}
