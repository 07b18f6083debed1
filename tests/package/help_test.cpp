// --help and --version of every program and --help of every command: there, and in one style.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "run_program.h"

namespace {

struct Program {
    const char* path;
    std::string name;
    std::vector<std::string> commands;
};

const Program PROGRAMS[] = {
    {QORVSETUP, "qorvsetup", {"install", "remove", "check"}},
    {CALDER, "calder", {"install", "remove", "run"}},
    {FAXHOST, "faxhost", {"lines", "send", "receive", "loopback", "status", "events", "configure"}},
};

// What the program says when it is asked for something that always succeeds.
std::string answer(const Program& program, const std::string& arguments) {
    const ProgramRun run = run_program(program.path, arguments);
    EXPECT_EQ(0u, run.exit_status) << program.name << " " << arguments;
    EXPECT_EQ("", run.errors) << program.name << " " << arguments;
    return run.output;
}

bool says(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string longest_line(const std::string& text) {
    std::string longest;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        if (end - start > longest.size()) longest = text.substr(start, end - start);
        start = end + 1;
    }
    return longest;
}

constexpr size_t CONSOLE_WIDTH = 120;

}  // namespace

TEST(EveryProgram, TellsItsVersion) {
    for (const Program& program : PROGRAMS)
        EXPECT_EQ(program.name + " " QORV_VERSION "\n", answer(program, "--version"));
}

TEST(EveryProgram, RefusesMoreThanItsVersion) {
    for (const Program& program : PROGRAMS) {
        const ProgramRun run = run_program(program.path, "--version now");
        EXPECT_EQ(2u, run.exit_status) << program.name;
        EXPECT_EQ("", run.output) << program.name;
        EXPECT_TRUE(says(run.errors, "see " + program.name + " --help\n")) << run.errors;
    }
}

TEST(EveryProgram, SaysInItsHelpWhatItIsAndWhatItTakes) {
    for (const Program& program : PROGRAMS) {
        const std::string help = answer(program, "--help");
        EXPECT_EQ(0u, help.find(program.name + " - ")) << help;
        for (const std::string& command : program.commands)
            EXPECT_TRUE(says(help, "\n  " + program.name + " " + command + " ")) << command << "\n" << help;
        EXPECT_TRUE(says(help, "\n  " + program.name + " [COMMAND] --help ")) << help;
        EXPECT_TRUE(says(help, "\n  " + program.name + " --version ")) << help;
        EXPECT_TRUE(says(help, "\nExit status: 0 ")) << help;
        EXPECT_GT(CONSOLE_WIDTH, longest_line(help).size()) << longest_line(help);
        for (const char* asked_otherwise : {"-h", "help"}) EXPECT_EQ(help, answer(program, asked_otherwise));
    }
}

TEST(EveryCommand, HasAHelpOfItsOwn) {
    for (const Program& program : PROGRAMS) {
        const std::string whole = answer(program, "--help");
        for (const std::string& command : program.commands) {
            const std::string help = answer(program, command + " --help");
            EXPECT_EQ(0u, help.find(program.name + " - ")) << help;
            EXPECT_TRUE(says(help, "\n  " + program.name + " " + command + " ")) << help;
            EXPECT_TRUE(says(help, "\nExit status: 0 ")) << help;
            for (const std::string& other : program.commands) {
                if (other == command) continue;
                EXPECT_FALSE(says(help, "\n  " + program.name + " " + other + " ")) << help;
            }
            EXPECT_GT(CONSOLE_WIDTH, longest_line(help).size()) << longest_line(help);
            EXPECT_NE(whole, help);
        }
    }
}
