// The names of a job's result, its status and the detail that goes with it.
#include "inner_fixture.h"

namespace {

class ResultName : public InnerFixture {};

constexpr uint32_t kError = 2;
constexpr uint32_t kTimeout = 6;
constexpr wchar_t kUnknown[] = L"?? Unknown ??";

}  // namespace

TEST_F(ResultName, OfEveryStatus) {
    const std::vector<std::wstring> names = {
        L"KX_STATUS_OK",           kUnknown,
        L"KX_STATUS_ERROR",        L"KX_STATUS_ERROR_DIAL",
        L"KX_STATUS_ERROR_HANGUP", L"KX_STATUS_USER_TERMINATED",
        L"KX_STATUS_TIMEOUT",      L"KX_STATUS_ALERT",
        L"KX_STATUS_VV",           kUnknown,
    };
    for (uint32_t status = 0; status < names.size(); ++status) EXPECT_EQ(KX_STATUS_name(status), names[status]);
    EXPECT_STREQ(KX_STATUS_name(0xFFFFFFFF), kUnknown);
}

TEST_F(ResultName, OfEveryDetailOfAnError) {
    const std::vector<std::wstring> names = {
        L"APIERR_UNCLASSIFIED",
        L"APIERR_FILEIO",
        L"APIERR_FILEFORMAT",
        L"APIERR_BOARDCAPABILITY",
        L"APIERR_NOTCONNECTED",
        L"APIERR_BADPARAMETER",
        L"APIERR_MEMORY",
        L"APIERR_BADSTATE",
        L"APIERR_TOOSOON",
        L"APIERR_BUSY",
        L"APIERR_DRV_OPEN_ERROR",
        L"APIERR_DRV_IOCTL_ERROR",
        L"APIERR_VERSION",
        L"APIERR_INVALID_PORT",
        L"APIERR_RINGING",
        L"APIERR_INFOPKT_NESTING",
        L"APIERR_MAX_TAGS",
        L"APIERR_LOCK_FAILED",
        kUnknown,
    };
    for (uint32_t detail = 0; detail < names.size(); ++detail)
        EXPECT_EQ(line_status_name(kError, detail), names[detail]);
    EXPECT_STREQ(line_status_name(kError, 0xFFFFFFFF), kUnknown);
}

TEST_F(ResultName, OfEveryDetailOfATimeout) {
    EXPECT_STREQ(line_status_name(kTimeout, 0), L"API_TO_TIME");
    EXPECT_STREQ(line_status_name(kTimeout, 1), L"API_TO_SILENCE");
    EXPECT_STREQ(line_status_name(kTimeout, 2), kUnknown);
}

TEST_F(ResultName, IsUnknownForTheDetailOfAnyOtherStatus) {
    for (uint32_t status : {0, 1, 3, 4, 5, 7, 8, 9}) EXPECT_STREQ(line_status_name(status, 0), kUnknown) << status;
}
