#include "ui_fixture.h"

namespace harness {

namespace {

constexpr DWORD kErrorOfTheLog = 4711;

Lines whole(const std::string& function, const std::string& internal, const Lines& inside, const std::string& result,
            const std::string& verdict) {
    return joined({{"DornInitialize()", "[12] " + function, "[8] " + internal},
                   inside,
                   {"[9] " + internal + "(" + result + ")", "[13] " + function + verdict, "DornShutdown()"}});
}

}  // namespace

LONG CALLBACK unused_callback(DWORD_PTR, DWORD, LPVOID, DWORD) {
    problem("the callback was called");
    return 0;
}

void UiFixture::SetUp() {
    ProviderFixture::SetUp();
    driver.on.QorvLogIsInterested = [](uint32_t client, int level) {
        int interested = ScriptedDriver::usual().QorvLogIsInterested(client, level);
        SetLastError(kErrorOfTheLog);
        return interested;
    };
    driver.on.QorvLogLogMsg = [](uint32_t, int, const char*, const char*, uint32_t) { SetLastError(kErrorOfTheLog); };
}

void UiFixture::TearDown() {
    for (const auto& module : windows.modules) EXPECT_EQ(module.second.loaded, 0) << narrow(module.first.c_str());
    EXPECT_TRUE(windows.memory.local_blocks.empty());
    ProviderFixture::TearDown();
}

void UiFixture::forget_what_is_held() {
    for (auto& module : windows.modules) module.second.loaded = 0;
    windows.memory.local_blocks.clear();
}

Lines whole_configuration(const Lines& inside, const std::string& result, const std::string& verdict) {
    return whole("TUISPI_lineConfigDialog", "display_prop_sheet", inside, result, verdict);
}

Lines whole_installation(const Lines& inside, const std::string& result, const std::string& verdict) {
    return whole("TUISPI_providerInstall", "ProviderInstall", inside, result, verdict);
}

}  // namespace harness
