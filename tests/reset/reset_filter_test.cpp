// The reset filter: what becomes of the board's reports while a channel is being reset.
#include <functional>
#include <vector>

#include "harness.h"

using namespace harness;

namespace {

struct PassedOn {
    DornLine* line;
    uint32_t report_class, type, sub_code, unit;
};
std::vector<PassedOn> passed_on;

void earlier_handler(DornLine* line, DornReport* report, uint32_t unit) {
    passed_on.push_back({line, report->dwClass, report->dwType, report->dwSubCode, unit});
}

// Stands for another channel's handler.
std::vector<uint32_t> units_of_the_other;
void other_handler(DornLine*, DornReport*, uint32_t unit) {
    units_of_the_other.push_back(unit);
}

class ResetFilter : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
        passed_on.clear();
        units_of_the_other.clear();
    }

    // Opens LINE1, whose channel has a handler, and does this in the middle of its reset.
    void during_a_reset(const std::function<void()>& what) {
        driver.channel(4).handler = earlier_handler;
        driver.on.DornLineReset = [what](DornLine*, DornResetRecord*) { return what(), 0; };
        open_line(0);
        EXPECT_TRUE(holds(driver_calls(), "DornLineReset(CHAN4, <*>"));
        EXPECT_EQ(driver.channel(4).handler, &earlier_handler);
    }

    static const char* handler_name(DornIncomingCmdFunc handler) {
        if (!handler) return "none";
        return handler == &earlier_handler ? "the earlier handler" : "the filter";
    }
};

}  // namespace

TEST_F(ResetFilter, NeutralisesOneReportAndPassesItsNeighboursOn) {
    during_a_reset([] {
        for (uint32_t report_class : {10u, 11u, 12u})
            for (uint32_t type : {7u, 8u, 9u})
                for (uint32_t sub_code : {1u, 2u, 3u}) {
                    bool swallowed = report_class == 11 && type == 8 && sub_code == 2;
                    passed_on.clear();
                    DornReport after = driver.report(4, report_class, type, sub_code);
                    EXPECT_EQ(after.dwClass, swallowed ? 0 : report_class);
                    EXPECT_EQ(after.dwType, type);
                    EXPECT_EQ(after.dwSubCode, sub_code);
                    EXPECT_EQ(passed_on.size(), swallowed ? 0u : 1u);
                }
    });
}

TEST_F(ResetFilter, PassesTheLineTheReportAndTheUnitOn) {
    during_a_reset([] { driver.report(4, 9, 8, 5); });
    ASSERT_EQ(passed_on.size(), 1u);
    const PassedOn& report = passed_on[0];
    EXPECT_EQ(report.line, driver.line_of(4));
    EXPECT_EQ(report.report_class, 9u);
    EXPECT_EQ(report.type, 8u);
    EXPECT_EQ(report.sub_code, 5u);
    EXPECT_EQ(report.unit, 14u);
}

TEST_F(ResetFilter, PassesTheReportsOfTwoResetsAtOnceToTheirOwnHandlers) {
    EXPECT_EQ(shut_down(), 0);
    driver.channel(4).handler = earlier_handler;
    driver.channel(5).handler = other_handler;
    new_chapter();
    driver.on.DornLineReset = [](DornLine* line, DornResetRecord*) {
        EXPECT_TRUE(wait_until([] { return count(driver_calls(), "DornLineReset(<*>") == 2; }));
        driver.report(driver.channel_of(line).number, 9, 8, 5);
        return 0;
    };
    EXPECT_EQ(initialise(), 0);
    ASSERT_EQ(passed_on.size(), 1u);
    EXPECT_EQ(passed_on[0].unit, 14u);
    EXPECT_EQ(units_of_the_other, std::vector<uint32_t>{15});
    EXPECT_EQ(driver.channel(4).handler, &earlier_handler);
    EXPECT_EQ(driver.channel(5).handler, &other_handler);
}

TEST_F(ResetFilter, IsInPlaceWhileTheCallIsClearedToo) {
    open_waiting_line(0);
    take_call(0);
    driver.channel(4).handler = earlier_handler;
    driver.on.DornLineTerminateCallISDN = [](DornLine*, DornLineResultRecord*) {
        note(std::string("cleared with ") + handler_name(driver.channel(4).handler));
        return 0;
    };
    driver.on.DornLineReset = [](DornLine*, DornResetRecord*) {
        note(std::string("reset with ") + handler_name(driver.channel(4).handler));
        return 0;
    };
    EXPECT_EQ(tsp.TSPI_lineCloseCall(call(0)), 0);
    EXPECT_TRUE(reads(all_of(NOTE), {"cleared with the filter", "reset with the filter"}));
    EXPECT_EQ(driver.channel(4).handler, &earlier_handler);
    driver.channel(4).handler = nullptr;
}

TEST_F(ResetFilter, IsTakenOutWithoutACallConfiguration) {
    open_waiting_line(0);
    take_call(0);
    driver.channel(4).handler = earlier_handler;
    windows.registry.remove(kHostParameters);
    EXPECT_EQ(tsp.TSPI_lineCloseCall(call(0)), 0);
    EXPECT_EQ(driver.channel(4).handler, &earlier_handler);
    driver.channel(4).handler = nullptr;
}

TEST_F(ResetFilter, LeavesAnEmptySlotEmpty) {
    open_waiting_line(0);
    EXPECT_EQ(driver.channel(4).handler, nullptr);
}

TEST_F(ResetFilter, IsNotPutIntoTheSlotOfAUnitFrom1024On) {
    driver.channel(4).unit = 1024;
    during_a_reset([] {
        EXPECT_STREQ(handler_name(driver.channel(4).handler), "the earlier handler");
        EXPECT_EQ(driver.report(4, 11, 8, 2).dwClass, 11u);
    });
    EXPECT_EQ(passed_on.size(), 1u);
}

TEST_F(ResetFilter, ServesTheHighestUnitOfItsTable) {
    driver.channel(4).unit = 1023;
    during_a_reset([] {
        EXPECT_EQ(driver.report(4, 11, 8, 2).dwClass, 0u);
        driver.report(4, 11, 8, 3);
    });
    ASSERT_EQ(passed_on.size(), 1u);
    EXPECT_EQ(passed_on[0].unit, 1023u);
}

TEST_F(ResetFilter, HasNobodyToPassReportsToOnceTheResetIsOver) {
    DornIncomingCmdFunc filter = nullptr;
    during_a_reset([&] { filter = driver.channel(4).handler; });
    ASSERT_NE(filter, nullptr);
    passed_on.clear();
    DornReport report = {};
    report.dwClass = 9;
    // Of its own unit, of one that has had no reset, and of one behind its table.
    for (uint32_t unit : {14u, 15u, 0xFFFFFFFFu}) filter(driver.line_of(4), &report, unit);
    EXPECT_TRUE(passed_on.empty());
    EXPECT_EQ(report.dwClass, 9u);
}
