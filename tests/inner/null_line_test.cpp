// Every function that works on a line says so when it is given none, and does nothing.
#include "inner_fixture.h"

using namespace harness;

namespace {

struct Refusal {
    const char* function;
    const char* complaint;
    int64_t answer;
};
constexpr int64_t kFaxCompleted = 0x20000008;
constexpr int64_t kDriverNotOpen = 10LL << 32 | 2;  // line_status 10, status 2

class NullLine : public InnerFixture, public testing::WithParamInterface<Refusal> {};

}  // namespace

TEST_P(NullLine, IsRefusedWithAComplaint) {
    const Refusal& refusal = GetParam();
    const std::string name = refusal.function;
    EXPECT_EQ(without_line(refusal.function), refusal.answer);
    EXPECT_TRUE(reads(all_of(TRACE | DRIVER | EVENT | WINDOWS).all_levels(),
                      {"[8] " + name, std::string("[2] ") + refusal.complaint, "[9] " + name}));
}

INSTANTIATE_TEST_SUITE_P(
    , NullLine,
    testing::Values(Refusal{"lock_line", "lock_line() pLine=NULL", 0},
                    Refusal{"unlock_line", "unlock_line() pLine=NULL", 0},
                    Refusal{"SetCallState", "SetCallState pLine=NULL", 0},
                    Refusal{"send_linedevstate", "send_linedevstate pLine=NULL", 0},
                    Refusal{"send_addrstate", "send_addrstate pLine=NULL", 0},
                    Refusal{"send_linecallinfo", "send_linecallinfo pLine=NULL", 0},
                    Refusal{"send_linenewcall", "send_linenewcall pLine=NULL", 0},
                    Refusal{"Send_CallDevSpecific", "Send_CallDevSpecific pLine=NULL", 0},
                    Refusal{"UpdateSharedMemory", "UpdateSharedMemory pLine=NULL", 0},
                    // This one names the function that it asks for the code.
                    Refusal{"UpdateFaxStatus", "GetFaxExtendedStatusCode pLine=NULL", 0},
                    Refusal{"GetFaxExtendedStatusCode", "GetFaxExtendedStatusCode pLine=NULL", kFaxCompleted},
                    Refusal{"LumLineResetReg", "LumLineResetReg pLine=NULL", -1},
                    Refusal{"SendStraightTIFF", "SendStraightTIFF pLine=NULL", kDriverNotOpen}),
    [](const testing::TestParamInfo<Refusal>& tested) { return std::string(tested.param.function); });
