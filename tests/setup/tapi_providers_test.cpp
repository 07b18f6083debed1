// TAPI's list of providers.
#include "tapi_providers.h"

#include <gtest/gtest.h>
// tapi.h wants windows.h first, which replaced.h includes.
#include "replaced.h"

#include <tapi.h>

TEST(TapiProviders, AreTheirIdsAndFileNames) {
    Replaced replaced;
    replaced.tapi.providers = {{1, L"unimdm.tsp"}, {7, L"C:\\x\\qorvtsp.tsp"}};
    const TapiProviders list = tapi_providers();
    EXPECT_EQ(0u, list.error);
    ASSERT_EQ(2u, list.providers.size());
    EXPECT_EQ(1u, list.providers[0].permanent_id);
    EXPECT_EQ(L"unimdm.tsp", list.providers[0].file_name);
    EXPECT_EQ(7u, list.providers[1].permanent_id);
    EXPECT_EQ(L"C:\\x\\qorvtsp.tsp", list.providers[1].file_name);
    EXPECT_EQ(1, replaced.tapi.asked);
}

TEST(TapiProviders, MayBeNone) {
    const Replaced replaced;
    const TapiProviders list = tapi_providers();
    EXPECT_EQ(0u, list.error);
    EXPECT_TRUE(list.providers.empty());
}

TEST(TapiProviders, AreReadOnceMoreWithTheRoomThatTheyNeed) {
    Replaced replaced;
    for (uint32_t id = 1; id <= 20; ++id) replaced.tapi.providers.push_back({id, std::wstring(100, L'x') + L".tsp"});
    const TapiProviders list = tapi_providers();
    ASSERT_EQ(20u, list.providers.size());
    EXPECT_EQ(20u, list.providers[19].permanent_id);
    EXPECT_EQ(std::wstring(100, L'x') + L".tsp", list.providers[19].file_name);
    EXPECT_EQ(2, replaced.tapi.asked);
}

TEST(TapiProviders, GiveTapisErrorWhenTheyCannotBeHad) {
    Replaced replaced;
    replaced.tapi.error = static_cast<LONG>(LINEERR_OPERATIONFAILED);
    EXPECT_EQ(uint32_t{LINEERR_OPERATIONFAILED}, tapi_providers().error);
}

TEST(TapiProviders, AreUnavailableWhenTapiLacksTheFunction) {
    Replaced replaced;
    replaced.found("lineGetProviderListW", nullptr);
    EXPECT_EQ(uint32_t{LINEERR_OPERATIONUNAVAIL}, tapi_providers().error);
}

TEST(TapiProviders, AreUnavailableWithoutTapi) {
    Replaced replaced;
    replaced.imported("LoadLibraryExW", reinterpret_cast<void*>(+[](const wchar_t* name, HANDLE, DWORD flags) {
                          EXPECT_STREQ(L"tapi32.dll", name);
                          EXPECT_EQ(0x800u, flags) << "the system folder only";
                          return HMODULE{nullptr};
                      }));
    EXPECT_EQ(uint32_t{LINEERR_OPERATIONUNAVAIL}, tapi_providers().error);
}

TEST(TapiProviders, AreFoundByTheirFileNameAlone) {
    TapiProviders list;
    list.providers = {{1, L"C:\\qorvtsp.tsp\\other.tsp"}, {2, L"myqorvtsp.tsp"}, {3, L"C:\\x\\QORVTSP.TSP"}};
    ASSERT_NE(nullptr, find_provider(list, L"qorvtsp.tsp"));
    EXPECT_EQ(3u, find_provider(list, L"qorvtsp.tsp")->permanent_id);
    EXPECT_EQ(2u, find_provider(list, L"myqorvtsp.tsp")->permanent_id);
    EXPECT_EQ(nullptr, find_provider(list, L"absent.tsp"));
}
