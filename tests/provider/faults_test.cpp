// Every kind of hardware fault inside an exported function ends that function, and nothing else.
#include "start_up.h"

using namespace harness;

namespace {

struct Fault {
    DWORD code;
    const char* name;
};

std::ostream& operator<<(std::ostream& out, const Fault& one) {
    return out << one.name;
}

class HardwareFaults : public ProviderFixture, public testing::WithParamInterface<Fault> {};

}  // namespace

TEST_P(HardwareFaults, AreCaughtLikeExceptions) {
    driver.on.DornModuleInfo = [](void*, DornModuleInfoRecord*) {
        return RaiseException(GetParam().code, 0, 0, nullptr), 0;
    };
    SetLastError(0);
    EXPECT_EQ(enumerate(), failed(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(GetLastError(), 1064u);
    EXPECT_TRUE(
        reads_in_order(everything(), {"DornModuleInfo(2)", kPanicFile, "[1] TSPI_providerEnumDevices: Exception"}));
    driver.on.DornModuleInfo = ScriptedDriver::usual().DornModuleInfo;
    EXPECT_EQ(enumerate(), 0);
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, HardwareFaults,
                         testing::Values(Fault{0xC0000005, "access violation"}, Fault{0xC0000006, "in-page error"},
                                         Fault{0x80000002, "misalignment"}, Fault{0xC000001D, "illegal instruction"},
                                         Fault{0xC0000096, "privileged instruction"},
                                         Fault{0xC0000094, "division by zero"}, Fault{0xC0000095, "overflow"},
                                         Fault{0xC000008C, "array bounds"}, Fault{0xC000008E, "float division by zero"},
                                         Fault{0xC0000090, "invalid float operation"}));
