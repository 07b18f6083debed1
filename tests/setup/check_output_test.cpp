// How check's results are told, and its exit status.
#include <gtest/gtest.h>

#include "check.h"
#include "exit_status.h"

namespace {

const std::vector<CheckResult> ONE_OF_EACH = {
    {"provider", Verdict::good, "it is there", ""},
    {"channels", Verdict::not_tried, "in use", "stop it"},
    {"panic file", Verdict::attention, "no folder", "mkdir C:\\temp"},
    {"fax service", Verdict::wrong, "there is none", "add it"},
};

// The results up to and with this verdict.
std::vector<CheckResult> up_to(Verdict verdict) {
    const auto count = static_cast<size_t>(verdict) + 1;
    return {ONE_OF_EACH.begin(), ONE_OF_EACH.begin() + count};
}

}  // namespace

TEST(CheckOutput, AlignsTheVerdictsAndPutsAdviceOnALineOfItsOwn) {
    EXPECT_EQ(
        "ok         provider: it is there\n"
        "not tried  channels: in use\n"
        "           stop it\n"
        "attention  panic file: no folder\n"
        "           mkdir C:\\temp\n"
        "wrong      fax service: there is none\n"
        "           add it",
        check_lines(ONE_OF_EACH, false));
}

TEST(CheckOutput, ColoursTheVerdictAlone) {
    EXPECT_EQ(
        "\x1b[32mok\x1b[0m         provider: it is there\n"
        "not tried  channels: in use\n"
        "           stop it\n"
        "\x1b[33mattention\x1b[0m  panic file: no folder\n"
        "           mkdir C:\\temp\n"
        "\x1b[31mwrong\x1b[0m      fax service: there is none\n"
        "           add it",
        check_lines(ONE_OF_EACH, true));
}

TEST(CheckOutput, IsOneJsonObjectForPrograms) {
    EXPECT_EQ(R"({"status": "wrong", "checks": [)"
              R"({"name": "provider", "status": "ok", "text": "it is there", "advice": ""}, )"
              R"({"name": "channels", "status": "not tried", "text": "in use", "advice": "stop it"}, )"
              R"({"name": "panic file", "status": "attention", "text": "no folder", "advice": "mkdir C:\\temp"}, )"
              R"({"name": "fax service", "status": "wrong", "text": "there is none", "advice": "add it"}]})",
              check_json(ONE_OF_EACH));
}

TEST(CheckOutput, StatesTheWorstInJson) {
    EXPECT_EQ(0u, check_json(up_to(Verdict::not_tried)).find(R"({"status": "ok", )"));
    EXPECT_EQ(0u, check_json(up_to(Verdict::attention)).find(R"({"status": "attention", )"));
}

TEST(CheckOutput, ExitsByTheWorst) {
    EXPECT_EQ(SETUP_GOOD, check_status(up_to(Verdict::good)));
    EXPECT_EQ(SETUP_GOOD, check_status(up_to(Verdict::not_tried)));
    EXPECT_EQ(SETUP_ATTENTION, check_status(up_to(Verdict::attention)));
    EXPECT_EQ(SETUP_FAILED, check_status(up_to(Verdict::wrong)));
}
