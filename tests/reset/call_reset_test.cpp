// The reset of a channel that has a call: the call is cleared first, and its release awaited.
#include <cstring>
#include <memory>
#include <vector>

#include "harness.h"

using namespace harness;

namespace {

// A call on LINE1 has been answered; closing it resets the channel.
class CallReset : public ProviderFixture {
  protected:
    void SetUp() override {
        ProviderFixture::SetUp();
        start_provider();
        open_waiting_line(0);
        bring_a_call();
        new_chapter();
    }
    virtual void bring_a_call() { take_call(0); }

    // What the close does with the channel, behind its alerts.
    Lines reset() {
        EXPECT_EQ(tsp.TSPI_lineCloseCall(call(0)), 0);
        return lines(driver_calls().on_thread(GetCurrentThreadId()).without({"DornLineAlert(<*>"}));
    }

    // The driver answers the clearing of the call like this.
    static void clearing_reports(uint32_t status, uint32_t sub_status) {
        driver.on.DornLineTerminateCallISDN = [=](DornLine*, DornLineResultRecord* record) {
            write(record, 0, status, sub_status);
            return 0;
        };
    }

    struct Release {
        uint32_t status, line_status;
    };
    // ... and the waits for its release like these, one after the other.
    static void releases_report(const std::vector<Release>& releases) {
        driver.on.DornCallWaitForRelease = [releases, next = std::make_shared<size_t>(0)](DornLine*,
                                                                                          DornCallRecord* record) {
            const Release& release = releases.at((*next)++);
            write(record, 302, release.status, release.line_status);
            return 0;
        };
    }

    // The reset with so many waits in it.
    static Lines with_waits(size_t count) {
        Lines calls(count, "DornCallWaitForRelease(CHAN4)");
        calls.insert(calls.begin(), "DornLineTerminateCallISDN(CHAN4)");
        calls.push_back("DornLineReset(CHAN4, \"C:\\boards\\kxcall.cfg\")");
        return calls;
    }

  private:
    static void write(void* record, size_t offset, uint32_t first, uint32_t second) {
        const uint32_t values[] = {first, second};
        std::memcpy(static_cast<uint8_t*>(record) + offset, values, sizeof(values));
    }
};

// The call is still being offered.
class OfferedCallReset : public CallReset {
    void bring_a_call() override { offer_call(0); }
};

}  // namespace

TEST_F(CallReset, ClearsTheCallBeforeItResetsTheChannel) {
    EXPECT_EQ(reset(), with_waits(0));
}

TEST_F(CallReset, WaitsForTheReleaseThatIsPending) {
    clearing_reports(KX_STATUS_ALERT, 1);
    releases_report({{KX_STATUS_OK, 0}});
    EXPECT_EQ(reset(), with_waits(1));
}

TEST_F(CallReset, WaitsAgainAsLongAsTheReleaseIsPending) {
    clearing_reports(KX_STATUS_ALERT, 1);
    releases_report({{KX_STATUS_ALERT, 1}, {KX_STATUS_ALERT, 1}, {KX_STATUS_ALERT, 1}, {KX_STATUS_ERROR, 1}});
    EXPECT_EQ(reset(), with_waits(4));
}

TEST_F(CallReset, EndsTheWaitsWithAnAlertOfAnotherKind) {
    clearing_reports(KX_STATUS_ALERT, 1);
    releases_report({{KX_STATUS_ALERT, 1}, {KX_STATUS_ALERT, 0}});
    EXPECT_EQ(reset(), with_waits(2));
}

TEST_F(CallReset, DoesNotWaitAfterAnAlertOfAnotherKind) {
    clearing_reports(KX_STATUS_ALERT, 2);
    EXPECT_EQ(reset(), with_waits(0));
}

TEST_F(CallReset, DoesNotWaitAfterAFailureToClear) {
    clearing_reports(KX_STATUS_ERROR, 1);
    EXPECT_EQ(reset(), with_waits(0));
}

TEST_F(CallReset, DoesNotLookAtTheReturnValues) {
    driver.on.DornLineTerminateCallISDN = [](DornLine*, DornLineResultRecord*) { return -1; };
    EXPECT_EQ(reset(), with_waits(0));
}

TEST_F(CallReset, ClearsTheCallButLeavesTheChannelWithoutACallConfiguration) {
    windows.registry.remove(kHostParameters);
    EXPECT_EQ(reset(), Lines{"DornLineTerminateCallISDN(CHAN4)"});
    EXPECT_TRUE(holds(traces(), "[2] Exiting:LumLineResetReg unable to locate kxcall.cfg(-1)"));
    EXPECT_TRUE(holds(traces().levels({9}), "[9] <*>LumLineResetReg(-1)"));
}

TEST_F(CallReset, TracesTheErrorTextOfAFailure) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord* record) {
        const uint32_t status = 0xABCDEF;
        std::memcpy(reinterpret_cast<uint8_t*>(record) + 60, &status, sizeof(status));
        return -5;
    };
    driver.channel(4).error_text = "100% broken %s";
    Lines calls = with_waits(0);
    calls.push_back("DornErrorMessage(CHAN4)");
    EXPECT_EQ(reset(), calls);
    EXPECT_TRUE(holds(traces(), "[2] LumLineReset: 100% broken %s: status ABCDEF."));
    EXPECT_TRUE(holds(traces().levels({9}), "[9] <*>LumLineResetReg(-1)"));
    EXPECT_EQ(windows.registry.open_keys, 0);
}

TEST_F(CallReset, TakesAResultThatIsNotNegativeForGood) {
    driver.channel(4).reset_result = 7;
    driver.channel(4).reset_status = 9;
    EXPECT_EQ(reset(), with_waits(0));
    EXPECT_TRUE(holds(traces().levels({9}), "[9] <*>LumLineResetReg(0)"));
}

TEST_F(CallReset, GivesTheDriverThePathByItsOffset) {
    driver.on.DornLineReset = [](DornLine*, DornResetRecord* record) {
        const char* path;
        std::memcpy(&path, reinterpret_cast<uint8_t*>(record) + 44, sizeof(path));
        EXPECT_STREQ(path, "C:\\boards\\kxcall.cfg");
        return 0;
    };
    EXPECT_EQ(reset(), with_waits(0));
    EXPECT_EQ(entries(driver_calls().only({"DornLineReset(<*>"})).at(0).record.size(), 221u);
}

TEST_F(OfferedCallReset, ClearsTheCallToo) {
    EXPECT_EQ(reset(), with_waits(0));
}

TEST_F(OfferedCallReset, ClearsTheCallAlsoOnceItIsAccepted) {
    EXPECT_GT(tsp.TSPI_lineAccept(next_request(), call(0), nullptr, 0), 0);
    EXPECT_EQ(reset(), with_waits(0));
}
