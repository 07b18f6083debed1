// The command line: what is taken, and by which words a mistake is refused.
#include "arguments.h"

#include <gtest/gtest.h>

static Arguments parsed(const std::vector<std::string>& words) {
    Arguments arguments;
    const Failure failure = parse_arguments(words, arguments);
    EXPECT_FALSE(failure) << failure_line(failure);
    return arguments;
}

static std::string refusal(const std::vector<std::string>& words) {
    Arguments arguments;
    const Failure failure = parse_arguments(words, arguments);
    EXPECT_EQ(EXIT_USAGE, failure.exit_status);
    return failure.text;
}

TEST(Arguments, TakesASendWithAllItsOptions) {
    const Arguments arguments = parsed({"send", "--line", "2", "--to", "+49 555 0100", "a.tif", "--header", "ACME",
                                        "--id", "555 1234", "--timeout", "30", "--completion", "event", "--json"});
    EXPECT_EQ(Command::send, arguments.command);
    EXPECT_EQ(2u, arguments.line);
    EXPECT_EQ("+49 555 0100", arguments.number);
    EXPECT_TRUE(arguments.header_given);
    EXPECT_EQ("ACME", arguments.header);
    EXPECT_EQ("555 1234", arguments.id);
    EXPECT_EQ(30u, arguments.timeout);
    EXPECT_EQ(Completion::event, arguments.completion);
    EXPECT_TRUE(arguments.json);
}

TEST(Arguments, MakesFileNamesFullPaths) {
    const Arguments arguments = parsed({"loopback", "a.tif", "b.tif"});
    ASSERT_EQ(2u, arguments.files.size());
    EXPECT_EQ(":\\", arguments.files[0].substr(1, 2));
    EXPECT_NE(std::string::npos, arguments.files[1].find("b.tif"));
}

TEST(Arguments, ReadsToAsALineInALoopbackAndAsANumberOtherwise) {
    EXPECT_EQ(3u, parsed({"loopback", "a.tif", "b.tif", "--to", "3"}).to_line);
    EXPECT_EQ("3", parsed({"send", "--line", "0", "--to", "3", "a.tif"}).number);
}

TEST(Arguments, ReadsTraceLevelsAsNumbersAndRanges) {
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 4, 14}), parsed({"lines", "--trace", "1-4,14"}).trace_levels);
    EXPECT_EQ(17u, parsed({"lines", "--trace", "all"}).trace_levels.size());
}

TEST(Arguments, RefusesTraceLevelsThatAreNone) {
    for (const char* levels : {"", "0", "18", "4-1", "1-", "x", "1,,2"}) {
        EXPECT_EQ("\"" + std::string(levels) + "\" is no value for --trace", refusal({"lines", "--trace", levels}));
    }
}

TEST(Arguments, RefusesWhatIsMissing) {
    EXPECT_EQ("no command given", refusal({}));
    EXPECT_EQ("faxhost send needs --line", refusal({"send", "a.tif", "--to", "1"}));
    EXPECT_EQ("faxhost send needs --to", refusal({"send", "--line", "0", "a.tif"}));
    EXPECT_EQ("faxhost receive needs --dir", refusal({"receive", "--line", "0"}));
    EXPECT_EQ("faxhost loopback takes 2 file names, not 1", refusal({"loopback", "a.tif"}));
    EXPECT_EQ("--line lacks its N", refusal({"send", "--line"}));
}

TEST(Arguments, RefusesWhatIsNotKnown) {
    EXPECT_EQ("there is no command \"fly\"", refusal({"fly"}));
    EXPECT_EQ("faxhost lines has no option --rings", refusal({"lines", "--rings", "2"}));
    EXPECT_EQ("\"two\" is no value for --rings", refusal({"receive", "--rings", "two"}));
    EXPECT_EQ("\"0\" is no value for --rings", refusal({"receive", "--rings", "0"}));
    EXPECT_EQ("\"maybe\" is no value for --completion", refusal({"lines", "--completion", "maybe"}));
}

TEST(Arguments, RefusesTextsThatTheProviderHasNoRoomFor) {
    parsed({"loopback", "a.tif", "b.tif", "--header", std::string(49, 'x')});
    refusal({"loopback", "a.tif", "b.tif", "--header", std::string(50, 'x')});
    refusal({"loopback", "a.tif", "b.tif", "--id", std::string(50, 'x')});
}

TEST(Arguments, RefusesALoopbackThatCannotBe) {
    EXPECT_EQ("a loopback needs two lines, --from and --to", refusal({"loopback", "a.tif", "b.tif", "--to", "0"}));
    EXPECT_EQ("the received file would overwrite the one that is sent", refusal({"loopback", "a.tif", "A.TIF"}));
}

TEST(Arguments, AsksForTheVersionAlone) {
    EXPECT_TRUE(parsed({"--version"}).version);
    EXPECT_EQ("there is no command \"--version\"", refusal({"--version", "lines"}));
    EXPECT_EQ("faxhost lines has no option --version", refusal({"lines", "--version"}));
}

TEST(Arguments, AsksForHelpWhateverElseIsThere) {
    EXPECT_TRUE(parsed({"--help"}).help);
    EXPECT_TRUE(parsed({"send", "--help"}).help);
    EXPECT_NE(std::string::npos, help_text({"send", "--help"}).find("--to NUMBER"));
    EXPECT_EQ(std::string::npos, help_text({"send", "--help"}).find("--rings"));
    EXPECT_NE(std::string::npos, help_text({"--help"}).find("faxhost loopback FILE.tif OUT.tif"));
}
