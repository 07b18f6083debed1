// Every call that may change something fails once, and the machine stops at every one: an installation is made as a
// whole or not at all.
#include "setup_fixture.h"

namespace {

constexpr int TO_THE_END = 1000000;

}  // namespace

class SetupFailures : public SetupFixture {
  protected:
    // Installs again and again, from the same beginning, with the first, the second, ... call failing, alone or with
    // all calls behind it, until the installation needs no more calls. `judge` looks at each outcome.
    template <typename Judge>
    void with_every_call_failing(bool and_all_behind, Judge judge) {
        for (int call = 1;; ++call) {
            let_fail(call, and_all_behind ? TO_THE_END : call);
            const SetupOutcome outcome = install();
            const bool failed = machine.changes >= call;
            let_fail(-1, -1);
            SCOPED_TRACE("call " + std::to_string(call) + ", " + machine.failed_call + ": " + outcome.error);
            if (!failed) {
                EXPECT_EQ(SETUP_GOOD, outcome.status);
                EXPECT_GT(call, 30);
                return;
            }
            judge(outcome);
            if (HasFailure()) return;
        }
    }

    // What works. A file over which another one was put, and the note of it, may stay when it cannot be deleted.
    Lines state() {
        Lines lines = machine.snapshot();
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) {
                                       return line.find(".old") != std::string::npos ||
                                              line.find(" Changes: ") != std::string::npos;
                                   }),
                    lines.end());
        return lines;
    }
};

TEST_F(SetupFailures, OfAnyCallLeaveTheMachineAsItWas) {
    const Lines before = machine.snapshot();
    with_every_call_failing(false, [&](const SetupOutcome& outcome) {
        if (outcome.status == SETUP_GOOD) {
            EXPECT_EQ(SETUP_GOOD, remove().status);
        } else {
            EXPECT_NE("", outcome.error);
            EXPECT_NE(std::string::npos, outcome.error.find("everything was undone"));
        }
        EXPECT_TRUE(same(before, machine.snapshot()));
    });
}

TEST_F(SetupFailures, OfAnyCallOfAnUpgradeLeaveTheOlderVersionAtWork) {
    install();
    const Lines before = state();
    make_package(2);
    with_every_call_failing(false, [&](const SetupOutcome& outcome) {
        if (outcome.status == SETUP_GOOD) {
            EXPECT_EQ("qorvtsp|Provider|2", machine.content("system\\qorvtsp.tsp"));
            make_package(1);
            EXPECT_EQ(SETUP_GOOD, remove().status);
            install();
            make_package(2);
        } else {
            EXPECT_NE(std::string::npos, outcome.error.find("everything was undone"));
        }
        EXPECT_TRUE(same(before, state()));
    });
}

TEST_F(SetupFailures, ThatCutAnInstallationShortAreUndoneByTheNextRemoval) {
    const Lines before = machine.snapshot();
    with_every_call_failing(true, [&](const SetupOutcome&) {
        const SetupOutcome outcome = remove();
        EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
        EXPECT_TRUE(same(before, machine.snapshot()));
    });
}

TEST_F(SetupFailures, ThatCutAnUpgradeShortAreMadeGoodByTheNextInstallation) {
    install();
    make_package(2);
    install();
    const Lines upgraded = state();
    make_package(1);
    remove();
    install();
    const Lines before = state();
    make_package(2);
    with_every_call_failing(true, [&](const SetupOutcome&) {
        const SetupOutcome outcome = install();
        EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
        EXPECT_TRUE(same(upgraded, state()));
        make_package(1);
        EXPECT_EQ(SETUP_GOOD, remove().status);
        install();
        EXPECT_TRUE(same(before, state()));
        make_package(2);
    });
}

TEST_F(SetupFailures, ThatCutAnUpgradeShortAreUndoneAlsoWhenItsServicesAreGone) {
    const Lines before = machine.snapshot();
    install();
    make_package(2);
    with_every_call_failing(true, [&](const SetupOutcome&) {
        machine.services.clear();
        const SetupOutcome outcome = remove();
        EXPECT_EQ(SETUP_GOOD, outcome.status) << outcome.error;
        EXPECT_TRUE(same(before, machine.snapshot()));
        make_package(1);
        install();
        make_package(2);
    });
}
