// What a reception tells about the call and the remote station: numbers, identifiers, the routing text.
#include "fax_fixture.h"

using namespace harness;

namespace {

// Each test says which call comes in.
class ReceptionNumbers : public FaxFixture {
  protected:
    void receive_call(const CallData& data) {
        take_call(0, data);
        open_file();
        new_chapter();
    }

    std::wstring called() const { return shared_record(0).wszCalledId; }
    std::wstring caller() const { return shared_record(0).wszCallerId; }

    // Writes the remote information by its offsets, as a driver may have it.
    static void remote_station(const std::string& identifier, const std::string& second_text) {
        driver.on.DornFaxGetRemoteInfo = [=](DornLine*, DornFaxRecord* record) {
            auto* bytes = reinterpret_cast<uint8_t*>(record);
            std::memcpy(bytes + 200, identifier.data(), identifier.size());
            std::memcpy(bytes + 477, second_text.data(), second_text.size());
            return 0;
        };
    }

    // The called number's field after a reception of this call from such a station.
    std::wstring called_after(const CallData& data, const std::string& second_text) {
        remote_station("REMOTE", second_text);
        receive_call(data);
        receive_fax();
        return called();
    }

    // A note of the status that the fax service reads at every notification.
    void note_status() const {
        tapi.on_event = [this](const LineEvent& event) {
            if (event.message != LINE_CALLDEVSPECIFIC) return;
            note("remote=" + std::string(shared_record(0).szRemoteId) + " called=" + narrow(called().c_str()) +
                 " caller=" + narrow(caller().c_str()) + (line_is_locked() ? " locked" : ""));
        };
    }
};

const char* const kProgress = "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x3, 0x0, 0x0)";
const char* const kEnd = "LINE_CALLDEVSPECIFIC(HTLINE1, HTCALL1, 0x1, 0x0, 0x0)";

}  // namespace

TEST_F(ReceptionNumbers, AreToldFirstUnderTheLineLockAndThenWithTheRemoteStation) {
    remote_station("REMOTE", "  77");
    receive_call({"5551234", "", "5550100", "SENDER"});
    note_status();
    receive_fax();
    EXPECT_TRUE(reads(all_of(EVENT | NOTE).only({"LINE_CALLDEVSPECIFIC<*>", "remote=<*>"}),
                      {
                          kProgress,
                          "remote= called=5551234 caller=5550100 locked",
                          kProgress,
                          "remote=REMOTE called=5551234|77 caller=5550100",
                          kEnd,
                          "remote=REMOTE called=5551234|77 caller=5550100",
                      }));
}

TEST_F(ReceptionNumbers, AreToldBeforeTheBoardsHandlerIsSet) {
    receive_call({"5551234", "", "", ""});
    receive_fax();
    EXPECT_TRUE(reads_in_order(
        of_the_job(all_of(EVENT | DRIVER | DRIVER_QUERY)),
        {kProgress, "DornLineIncomingCmdFuncAccess(CHAN4)", "DornLineCapCheck(CHAN4, 20)", kProgress, kEnd}));
}

TEST_F(ReceptionNumbers, AreNotToldOfACallWithoutAny) {
    receive_call({});
    note_status();
    receive_fax();
    EXPECT_TRUE(
        reads(all_of(NOTE), {"remote=REMOTE STATION called= caller=", "remote=REMOTE STATION called= caller="}));
}

TEST_F(ReceptionNumbers, MayBeTheCallersAlone) {
    receive_call({"", "", "5550100", ""});
    note_status();
    receive_fax();
    EXPECT_TRUE(
        reads(all_of(NOTE), {"remote= called= caller=5550100 locked", "remote=REMOTE STATION called= caller=5550100",
                             "remote=REMOTE STATION called= caller=5550100"}));
}

TEST_F(ReceptionNumbers, MayFillTheirFields) {
    receive_call({std::string(255, '1'), "", std::string(255, '2'), ""});
    receive_fax();
    EXPECT_EQ(called(), std::wstring(255, L'1'));
    EXPECT_EQ(caller(), std::wstring(255, L'2'));
}

TEST_F(ReceptionNumbers, KeepTwentyBytesOfTheRemoteIdentifier) {
    remote_station("01234567890123456789WHAT FOLLOWS", "");
    receive_call({});
    receive_fax();
    EXPECT_STREQ(shared_record(0).szRemoteId, "01234567890123456789");
    EXPECT_EQ(shared_record(0).padding0, 0);
}

TEST_F(ReceptionNumbers, ArePublishedWithTheRemoteIdentifierBeforeTheTraining) {
    receive_call({"5551234", "", "", ""});
    before(driver.on.DornFaxWaitForTraining, [this] {
        EXPECT_STREQ(shared_record(0).szRemoteId, "REMOTE STATION");
        EXPECT_EQ(called(), L"5551234");
    });
    receive_fax();
    EXPECT_TRUE(holds(driver_calls(), "DornFaxWaitForTraining(CHAN4)"));
}

TEST_F(ReceptionNumbers, HaveTheSecondTextBehindABar) {
    EXPECT_EQ(called_after({"5551234", "", "", ""}, "  77"), L"5551234|77");
}

TEST_F(ReceptionNumbers, HaveTheSecondTextBehindABarWithoutACalledNumber) {
    EXPECT_EQ(called_after({}, "77"), L"|77");
}

TEST_F(ReceptionNumbers, HaveTheSecondTextBehindABarAfterACallersNumberAlone) {
    EXPECT_EQ(called_after({"", "", "5550100", ""}, "77"), L"|77");
}

TEST_F(ReceptionNumbers, ArePublishedStepByStep) {
    remote_station("REMOTE", "77");
    receive_call({"5551234", "", "5550100", ""});
    driver.on.QorvLogLogMsg = [this](uint32_t, int level, const char* line, const char*, uint32_t) {
        if (level == 9 && std::strstr(line, ": UpdateSharedMemory"))
            note(text("remote=%s called=%s caller=%s", shared_record(0).szRemoteId, narrow(called().c_str()).c_str(),
                      narrow(caller().c_str()).c_str()));
    };
    receive_fax();
    EXPECT_TRUE(reads(all_of(NOTE), {"remote= called= caller=", "remote= called=5551234 caller=5550100",
                                     "remote=REMOTE called=5551234 caller=5550100",
                                     "remote=REMOTE called=5551234|77 caller=5550100"}));
}

TEST_F(ReceptionNumbers, KeepBlanksInsideAndBehindTheSecondText) {
    EXPECT_EQ(called_after({"5551234", "", "", ""}, "   7 7 "), L"5551234|7 7 ");
}

TEST_F(ReceptionNumbers, HaveNothingBehindTheBarForASecondTextOfBlanks) {
    EXPECT_EQ(called_after({"5551234", "", "", ""}, "    "), L"5551234|");
}

TEST_F(ReceptionNumbers, HaveNoBarWithoutASecondText) {
    EXPECT_EQ(called_after({"5551234", "", "", ""}, ""), L"5551234");
}

TEST_F(ReceptionNumbers, TakeASecondTextThatFillsItsField) {
    EXPECT_EQ(called_after({"5551234", "", "", ""}, std::string(63, '7')), L"5551234|" + std::wstring(63, L'7'));
}

TEST_F(ReceptionNumbers, TakeASecondTextThatLeavesRoomForTheBar) {
    EXPECT_EQ(called_after({std::string(200, '1'), "", "", ""}, std::string(54, '7')),
              std::wstring(200, L'1') + L"|" + std::wstring(54, L'7'));
    EXPECT_EQ(shared_record(0).wszCallerId[0], 0);
}

TEST_F(ReceptionNumbers, LeaveOutASecondTextThatIsAsLongAsTheRoom) {
    EXPECT_EQ(called_after({std::string(200, '1'), "", "", ""}, std::string(55, '7')), std::wstring(200, L'1'));
}

TEST_F(ReceptionNumbers, MeasureTheSecondTextWithoutItsLeadingBlanks) {
    EXPECT_EQ(called_after({std::string(200, '1'), "", "", ""}, "   " + std::string(54, '7')),
              std::wstring(200, L'1') + L"|" + std::wstring(54, L'7'));
}

TEST_F(ReceptionNumbers, LeaveNoRoomBehindTheLongestNumber) {
    EXPECT_EQ(called_after({std::string(255, '1'), "", "", ""}, " "), std::wstring(255, L'1'));
}

TEST_F(ReceptionNumbers, PutTheRoutingTextIntoASecondTag) {
    CallData data;
    data.information = "TO%3A ME%20";
    receive_call(data);
    receive_fax();
    EXPECT_TRUE(reads(driver_calls().only({"DornFaxRcvPageTiff(<*>"}),
                      {"DornFaxRcvPageTiff(CHAN4, TIFF1, 305:2[11] \"0536870920\\x00\", 337:2[8] \"TO: ME \\x00\")",
                       "DornFaxRcvPageTiff(CHAN4, TIFF1)"}));
}

TEST_F(ReceptionNumbers, PutTheLongestRoutingTextIntoTheTagWhole) {
    CallData data;
    data.information = std::string(1383, 'r');
    receive_call(data);
    receive_fax();
    EXPECT_TRUE(holds(driver_calls(), "DornFaxRcvPageTiff(CHAN4, TIFF1, 305:2[11] \"0536870920\\x00\", 337:2[1384] \"" +
                                          std::string(1383, 'r') + "\\x00\")"));
}
