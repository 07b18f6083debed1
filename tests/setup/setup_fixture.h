// Installations and removals on a machine of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "exit_status.h"
#include "pretended_machine.h"
#include "setup.h"

using Lines = std::vector<std::string>;

class SetupFixture : public testing::Test {
  protected:
    void SetUp() override { make_package(1); }

    // What the ZIP holds, of a version of the product.
    void make_package(int version) const {
        machine.write_program("qorvtsp.tsp", "Provider", version);
        machine.write_program("calddlld.dll", "Software board", version);
        machine.write_program("qorvconf.cpl", "Dialog", version);
        machine.write_program("calder.exe", "Host service", version);
    }

    SetupOutcome install(bool software_board = true, bool fax_stand_in = true) {
        machine.changes = 0;
        return setup_install({machine.path("package"), software_board, fax_stand_in});
    }

    SetupOutcome remove() {
        machine.changes = 0;
        return setup_remove();
    }

    // From now on this call of those that may change something fails, or all up to another one.
    void let_fail(int first, int last) {
        machine.first_failing = first;
        machine.last_failing = last;
    }

    PretendedMachine machine;
};

// Tells the lines in which two snapshots differ.
inline testing::AssertionResult same(const Lines& expected, const Lines& found) {
    testing::AssertionResult result = expected == found ? testing::AssertionSuccess() : testing::AssertionFailure();
    const auto tell = [&result](const char* what, const Lines& lines, const Lines& others) {
        for (const std::string& line : lines) {
            if (std::find(others.begin(), others.end(), line) == others.end()) result << what << line << "\n";
        }
    };
    tell("missing: ", expected, found);
    tell("more: ", found, expected);
    return result;
}

inline bool contains(const Lines& lines, const std::string& part) {
    for (const std::string& line : lines) {
        if (line.find(part) != std::string::npos) return true;
    }
    return false;
}
