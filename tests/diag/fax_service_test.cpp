// Whether the fax service is installed, which the provider asks when it starts.
#include "harness.h"
#include "line_fixture.h"

using namespace harness;

namespace {

class FaxServiceCheck : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        enumerate();
        new_chapter();
    }
};

View of_the_fax_check() {
    return all_of(TRACE | WINDOWS)
        .levels({4, 8, 9})
        .only({"<*>IsFaxServicePresent<*>", "<*>OS_VERSION_XP<*>", "OpenSCManager<*>", "OpenService<*>",
               "CloseService<*>", "<*>manager_handle<*>", "<*>schService<*>", "<*>dwOpenService<*>",
               "<*>os_recognition<*>"});
}

// What follows when the start goes on: the version for the segment, and the host service.
const Lines kGoesOn = {
    "[8] os_recognition",
    "[9] os_recognition(5)",
    "OpenSCManagerW(null, null, 0x4)",
    "OpenServiceW(\"calder\", 0x4)",
    "CloseServiceHandle(\"calder\")",
    "CloseServiceHandle(manager)",
};

const char* const kNew = "[4] OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE";
const char* const kOld = "[4] not OS_VERSION_XP ||OS_VERSION_NETSERVER || OS_VERSION_FUTURE";

}  // namespace

TEST_F(FaxServiceCheck, LeavesItsHandlesOpenWhenTheServiceIsThere) {
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[8] IsFaxServicePresent",         "[8] os_recognition",         "[9] os_recognition(5)",      kNew,
        "OpenSCManagerW(null, null, 0x4)", "OpenServiceW(\"Fax\", 0x4)", "[9] IsFaxServicePresent(1)",
    };
    EXPECT_TRUE(reads(of_the_fax_check(), joined({expected, kGoesOn})));
    EXPECT_EQ(windows.services.open_handles, 2);
}

TEST_F(FaxServiceCheck, DoesNotCareWhetherTheServiceRuns) {
    windows.services.state[L"Fax"] = SERVICE_PAUSED;
    EXPECT_EQ(initialise(), 0);
}

TEST_F(FaxServiceCheck, FailsWhenTheServiceDoesNotExist) {
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "[8] IsFaxServicePresent",
        "[8] os_recognition",
        "[9] os_recognition(5)",
        kNew,
        "OpenSCManagerW(null, null, 0x4)",
        "OpenServiceW(\"Fax\", 0x4)",
        "[4] schService == NULL, Fax",
        "[4] dwOpenService==ERROR_SERVICE_DOES_NOT_EXIST",
        "CloseServiceHandle(manager)",
        "[9] IsFaxServicePresent(0)",
        "[4] IsFaxServicePresent()==FALSE",
    };
    EXPECT_TRUE(reads(of_the_fax_check(), expected));
    EXPECT_EQ(windows.services.open_handles, 0);
}

TEST_F(FaxServiceCheck, FailsWhenTheServiceCannotBeOpenedForAnotherReason) {
    windows.services.state.erase(L"Fax");
    windows.services.open_error = ERROR_ACCESS_DENIED;
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "[8] IsFaxServicePresent",         "[8] os_recognition",
        "[9] os_recognition(5)",           kNew,
        "OpenSCManagerW(null, null, 0x4)", "OpenServiceW(\"Fax\", 0x4)",
        "[4] schService == NULL, Fax",     "CloseServiceHandle(manager)",
        "[9] IsFaxServicePresent(0)",      "[4] IsFaxServicePresent()==FALSE",
    };
    EXPECT_TRUE(reads(of_the_fax_check(), expected));
    EXPECT_EQ(windows.services.open_handles, 0);
}

TEST_F(FaxServiceCheck, FailsWithoutTheServiceManager) {
    windows.services.manager_error = ERROR_ACCESS_DENIED;
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    const Lines expected = {
        "[8] IsFaxServicePresent",         "[8] os_recognition",
        "[9] os_recognition(5)",           kNew,
        "OpenSCManagerW(null, null, 0x4)", "[4] manager_handle == NULL",
        "[9] IsFaxServicePresent(0)",      "[4] IsFaxServicePresent()==FALSE",
    };
    EXPECT_TRUE(reads(of_the_fax_check(), expected));
}

TEST_F(FaxServiceCheck, IsNotMadeOnWindows2000) {
    windows.version = {5, 0};
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), 0);
    const Lines expected = {
        "[8] IsFaxServicePresent",       "[8] os_recognition",
        "[9] os_recognition(2)",         kOld,
        "[9] IsFaxServicePresent(1)",    "[8] os_recognition",
        "[9] os_recognition(2)",         "OpenSCManagerW(null, null, 0x4)",
        "OpenServiceW(\"calder\", 0x4)", "CloseServiceHandle(\"calder\")",
        "CloseServiceHandle(manager)",
    };
    EXPECT_TRUE(reads(of_the_fax_check(), expected));
}

TEST_F(FaxServiceCheck, IsNotMadeOnASystemOlderThanThat) {
    windows.version = {4, 0};
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds(traces(), kOld));
}

TEST_F(FaxServiceCheck, IsNotMadeWhenTheVersionCannotBeRead) {
    windows.version.failures = 2;
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), 0);
    EXPECT_TRUE(holds(traces(), kOld));
}

class FaxServiceCheckByVersion : public FaxServiceCheck, public testing::WithParamInterface<DWORD> {};

TEST_P(FaxServiceCheckByVersion, IsMadeFromWindowsXPOn) {
    windows.version = {5, GetParam()};
    windows.services.state.erase(L"Fax");
    EXPECT_EQ(initialise(), failed(LINEERR_RESOURCEUNAVAIL));
    EXPECT_TRUE(holds(traces(), kNew));
}

INSTANTIATE_TEST_SUITE_P(XPServer2003AndLater, FaxServiceCheckByVersion, testing::Values(1, 2, 3));
