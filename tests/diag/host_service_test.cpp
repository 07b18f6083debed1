// Whether the board's host service counts as running, seen through the enumeration of the lines.
#include "harness.h"

using namespace harness;

namespace {

class HostServiceCheck : public ProviderFixture {};

View of_the_check() {
    return all_of(TRACE | WINDOWS)
        .levels({4, 8, 9})
        .only({"<*>QORV_IsRunning<*>", "<*>calder<*>", "OpenSCManager<*>", "CloseService<*>", "<*>OpenSCManager <*>"});
}

const char* const kOpened = "OpenSCManagerW(null, null, 0x4)";
const char* const kClosed = "CloseServiceHandle(manager)";

struct ServiceState {
    DWORD state;
    bool runs;
};

std::ostream& operator<<(std::ostream& out, const ServiceState& one) {
    return out << one.state;
}

class StateOfTheHostService : public HostServiceCheck, public testing::WithParamInterface<ServiceState> {};

}  // namespace

TEST_P(StateOfTheHostService, DecidesWhetherItCountsAsRunning) {
    windows.services.state[L"calder"] = GetParam().state;
    EXPECT_EQ(enumerate(), GetParam().runs ? 0 : failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[8] QORV_IsRunning",
        "[4] Check if calder is running",
        kOpened,
        "OpenServiceW(\"calder\", 0x4)",
        "QueryServiceStatus(\"calder\")",
        GetParam().runs ? "[4] calder is running." : "[4] calder is not running.",
        "CloseServiceHandle(\"calder\")",
        kClosed,
        GetParam().runs ? "[9] QORV_IsRunning(1)" : "[9] QORV_IsRunning(0)",
    };
    EXPECT_TRUE(reads(of_the_check(), expected));
    EXPECT_EQ(windows.services.open_handles, 0);
}

INSTANTIATE_TEST_SUITE_P(EachState, StateOfTheHostService,
                         testing::Values(ServiceState{SERVICE_STOPPED, false},
                                         ServiceState{SERVICE_START_PENDING, true},
                                         ServiceState{SERVICE_STOP_PENDING, false}, ServiceState{SERVICE_RUNNING, true},
                                         ServiceState{SERVICE_CONTINUE_PENDING, false},
                                         ServiceState{SERVICE_PAUSE_PENDING, false},
                                         ServiceState{SERVICE_PAUSED, false}));

TEST_F(HostServiceCheck, FailsWithoutTheServiceManager) {
    windows.services.manager_error = ERROR_ACCESS_DENIED;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[8] QORV_IsRunning",    "[4] Check if calder is running", kOpened, "[4] Could not OpenSCManager 5.",
        "[9] QORV_IsRunning(0)",
    };
    EXPECT_TRUE(reads(of_the_check(), expected));
}

TEST_F(HostServiceCheck, FailsWhenTheServiceCannotBeOpened) {
    windows.services.state.erase(L"calder");
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[8] QORV_IsRunning",
        "[4] Check if calder is running",
        kOpened,
        "OpenServiceW(\"calder\", 0x4)",
        "[4] Could not open Service calder to check status",
        kClosed,
        "[9] QORV_IsRunning(0)",
    };
    EXPECT_TRUE(reads(of_the_check(), expected));
    EXPECT_EQ(windows.services.open_handles, 0);
}

TEST_F(HostServiceCheck, FailsWhenTheServiceTellsNoState) {
    windows.services.query_works = false;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    const Lines expected = {
        "[8] QORV_IsRunning",
        "[4] Check if calder is running",
        kOpened,
        "OpenServiceW(\"calder\", 0x4)",
        "QueryServiceStatus(\"calder\")",
        "[4] Unable to check calder service state.",
        "CloseServiceHandle(\"calder\")",
        kClosed,
        "[9] QORV_IsRunning(0)",
    };
    EXPECT_TRUE(reads(of_the_check(), expected));
    EXPECT_EQ(windows.services.open_handles, 0);
}

TEST_F(HostServiceCheck, IsMadeAnewEachTime) {
    EXPECT_EQ(enumerate(), 0);
    windows.services.state[L"calder"] = SERVICE_STOPPED;
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
}
