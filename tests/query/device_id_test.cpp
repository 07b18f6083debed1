// The identifier of the device behind a line or call.
#include <cstring>

#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

// A VARSTRING with room behind it, every byte rubbish but for the total size.
struct Answer {
    union {
        VARSTRING fixed;
        uint8_t bytes[64];
    };

    explicit Answer(DWORD total_size) {
        std::memset(bytes, 0xCC, sizeof(bytes));
        fixed.dwTotalSize = total_size;
    }
    DWORD value() const {
        DWORD value;
        std::memcpy(&value, bytes + 24, sizeof(value));
        return value;
    }
    bool untouched_from(size_t offset) const {
        for (size_t i = offset; i < sizeof(bytes); ++i)
            if (bytes[i] != 0xCC) return false;
        return true;
    }
};

class DeviceId : public LineFixture {
  protected:
    LONG ask(HDRVLINE asked, HDRVCALL asked_call, DWORD select, VARSTRING* id, const wchar_t* device_class) {
        return tsp.TSPI_lineGetID(asked, 0, asked_call, select, id, device_class, nullptr);
    }
    LONG ask_line(Answer& answer, const wchar_t* device_class = L"tapi/line") {
        return ask(line(0), nullptr, LINECALLSELECT_LINE, &answer.fixed, device_class);
    }
};

}  // namespace

TEST_F(DeviceId, IsTheLinesForTheClassOfLines) {
    Answer answer(64);
    EXPECT_EQ(ask_line(answer), 0);
    EXPECT_EQ(answer.fixed.dwTotalSize, 64u);
    EXPECT_EQ(answer.fixed.dwNeededSize, 28u);
    EXPECT_EQ(answer.fixed.dwUsedSize, 28u);
    EXPECT_EQ(answer.fixed.dwStringFormat, static_cast<DWORD>(STRINGFORMAT_BINARY));
    EXPECT_EQ(answer.fixed.dwStringSize, 4u);
    EXPECT_EQ(answer.fixed.dwStringOffset, 24u);
    EXPECT_EQ(answer.value(), kDeviceIdBase);
    EXPECT_TRUE(answer.untouched_from(28));
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] " + kNoCall + "TSPI_lineGetID",
                                                 "[8] " + kNoCall + "IsValidLine",
                                                 "[9] " + kNoCall + "IsValidLine(1)",
                                                 "[4] TSPI_lineGetID -> lpszDeviceClass = tapi/line",
                                                 "[17] " + kNoCall + "TSPI_lineGetID(0) Good",
                                             }));
}

TEST_F(DeviceId, BelongsToTheLineThatIsAsked) {
    open_waiting_line(1);
    Answer answer(28);
    EXPECT_EQ(ask(line(1), nullptr, LINECALLSELECT_LINE, &answer.fixed, L"tapi/line"), 0);
    EXPECT_EQ(answer.value(), kDeviceIdBase + 1);
}

TEST_F(DeviceId, MayBeAskedForInCapitals) {
    Answer answer(28);
    EXPECT_EQ(ask_line(answer, L"TAPI/LINE"), 0);
    EXPECT_EQ(answer.value(), kDeviceIdBase);
    EXPECT_TRUE(answer.untouched_from(28));
    EXPECT_TRUE(holds(traces(), "[4] TSPI_lineGetID -> lpszDeviceClass = TAPI/LINE"));
}

TEST_F(DeviceId, DoesNotExistForOtherClasses) {
    for (const wchar_t* other : {L"comm/datamodem", L"wave/in", L"tapi/phone", L"tapi/lin", L"tapi/lines", L""}) {
        Answer answer(64);
        EXPECT_EQ(ask_line(answer, other), failed(LINEERR_NODEVICE));
        EXPECT_TRUE(answer.untouched_from(sizeof(DWORD)));
    }
    new_chapter();
    Answer answer(64);
    EXPECT_EQ(ask_line(answer, L"comm/datamodem"), failed(LINEERR_NODEVICE));
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] " + kNoCall + "TSPI_lineGetID",
                                                 "[8] " + kNoCall + "IsValidLine",
                                                 "[9] " + kNoCall + "IsValidLine(1)",
                                                 "[4] TSPI_lineGetID -> lpszDeviceClass = comm/datamodem",
                                                 "[17] " + kNoCall + "TSPI_lineGetID(-2147483582) Failed",
                                             }));
}

TEST_F(DeviceId, SaysWhatRoomItNeeds) {
    for (DWORD total : {12ul, 24ul, 27ul}) {
        Answer answer(total);
        EXPECT_EQ(ask_line(answer), 0);
        EXPECT_EQ(answer.fixed.dwNeededSize, 28u);
        EXPECT_EQ(answer.fixed.dwUsedSize, 12u);
        EXPECT_TRUE(answer.untouched_from(12)) << total;
    }
}

TEST_F(DeviceId, CanBeAskedForByTheCall) {
    Answer answer(28);
    EXPECT_EQ(ask(nullptr, call(0), LINECALLSELECT_CALL, &answer.fixed, L"tapi/line"), 0);
    EXPECT_EQ(answer.value(), kDeviceIdBase);
}

TEST_F(DeviceId, CanBeAskedForByTheAddress) {
    Answer answer(28);
    EXPECT_EQ(tsp.TSPI_lineGetID(line(0), 77, nullptr, LINECALLSELECT_ADDRESS, &answer.fixed, L"tapi/line", nullptr),
              0);
    EXPECT_EQ(answer.value(), kDeviceIdBase);
}

TEST_F(DeviceId, NeedsAValidLine) {
    Answer answer(28);
    EXPECT_EQ(ask(nullptr, call(0), LINECALLSELECT_LINE, &answer.fixed, L"tapi/line"), failed(LINEERR_INVALLINEHANDLE));
    EXPECT_EQ(ask(nullptr, call(0), LINECALLSELECT_ADDRESS, &answer.fixed, L"tapi/line"),
              failed(LINEERR_INVALLINEHANDLE));
    EXPECT_TRUE(answer.untouched_from(sizeof(DWORD)));
    const Lines expected = {
        "[16] TSPI_lineGetID",
        "[8] IsValidLine",
        "[9] IsValidLine(0)",
        "[4] TSPI_lineGetID - Invalid handle.",
        "[17] TSPI_lineGetID(-2147483605) Failed",
    };
    EXPECT_TRUE(reads(traces().all_levels(), joined({expected, expected})));
}

TEST_F(DeviceId, NeedsAValidCall) {
    Answer answer(28);
    EXPECT_EQ(ask(line(0), nullptr, LINECALLSELECT_CALL, &answer.fixed, L"tapi/line"), failed(LINEERR_INVALCALLHANDLE));
    EXPECT_TRUE(reads(traces().all_levels(), {
                                                 "[16] TSPI_lineGetID",
                                                 "[8] IsValidLine",
                                                 "[9] IsValidLine(0)",
                                                 "[4] TSPI_lineGetID - Invalid handle.",
                                                 "[17] TSPI_lineGetID(-2147483624) Failed",
                                             }));
}

TEST_F(DeviceId, CatchesAFaultInTheCallersRecord) {
    EXPECT_TRUE(reports_an_exception(
        "TSPI_lineGetID", [this] { return ask(line(0), nullptr, LINECALLSELECT_LINE, nullptr, L"tapi/line"); }));
}
