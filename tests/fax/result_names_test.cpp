// The names of results for the trace, asked directly: no request leads to them.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "fax/qorv_fax.h"

namespace {

const std::wstring kUnknown = L"?? Unknown ??";

const std::map<uint32_t, std::wstring> kStatuses = {
    {0, L"KX_STATUS_OK"},
    {2, L"KX_STATUS_ERROR"},
    {3, L"KX_STATUS_ERROR_DIAL"},
    {4, L"KX_STATUS_ERROR_HANGUP"},
    {5, L"KX_STATUS_USER_TERMINATED"},
    {6, L"KX_STATUS_TIMEOUT"},
    {7, L"KX_STATUS_ALERT"},
    {8, L"KX_STATUS_VV"},
};

const std::map<std::pair<uint32_t, uint32_t>, std::wstring> kDetails = {
    {{2, 0}, L"APIERR_UNCLASSIFIED"},
    {{2, 1}, L"APIERR_FILEIO"},
    {{2, 2}, L"APIERR_FILEFORMAT"},
    {{2, 3}, L"APIERR_BOARDCAPABILITY"},
    {{2, 4}, L"APIERR_NOTCONNECTED"},
    {{2, 5}, L"APIERR_BADPARAMETER"},
    {{2, 6}, L"APIERR_MEMORY"},
    {{2, 7}, L"APIERR_BADSTATE"},
    {{2, 8}, L"APIERR_TOOSOON"},
    {{2, 9}, L"APIERR_BUSY"},
    {{2, 10}, L"APIERR_DRV_OPEN_ERROR"},
    {{2, 11}, L"APIERR_DRV_IOCTL_ERROR"},
    {{2, 12}, L"APIERR_VERSION"},
    {{2, 13}, L"APIERR_INVALID_PORT"},
    {{2, 14}, L"APIERR_RINGING"},
    {{2, 15}, L"APIERR_INFOPKT_NESTING"},
    {{2, 16}, L"APIERR_MAX_TAGS"},
    {{2, 17}, L"APIERR_LOCK_FAILED"},
    {{6, 0}, L"API_TO_TIME"},
    {{6, 1}, L"API_TO_SILENCE"},
};

template <class Key>
std::wstring name_in(const std::map<Key, std::wstring>& names, const Key& key) {
    auto found = names.find(key);
    return found == names.end() ? kUnknown : found->second;
}

}  // namespace

TEST(ResultNames, OfEveryStatus) {
    for (uint32_t status : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 0x80000002u, 0xFFFFFFFFu})
        EXPECT_EQ(KX_STATUS_name(status), name_in(kStatuses, status)) << status;
}

TEST(ResultNames, OfEveryDetailByItsStatus) {
    for (uint32_t status = 0; status < 10; ++status) {
        for (uint32_t detail = 0; detail < 20; ++detail)
            EXPECT_EQ(line_status_name(status, detail), name_in(kDetails, {status, detail})) << status << "/" << detail;
        EXPECT_EQ(line_status_name(status, 0xFFFFFFFF), kUnknown) << status;
    }
}
