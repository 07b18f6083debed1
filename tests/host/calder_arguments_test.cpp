// calder's command line: what is taken, and what is refused.
#include <gtest/gtest.h>

#include "command_line.h"

TEST(CalderArguments, TakesItsCommands) {
    EXPECT_EQ(CalderCommand::install, parse_calder_arguments({"install"}).command);
    EXPECT_EQ(CalderCommand::remove, parse_calder_arguments({"remove"}).command);
    EXPECT_EQ(CalderCommand::run, parse_calder_arguments({"run"}).command);
    EXPECT_EQ(CalderCommand::service, parse_calder_arguments({"service"}).command);
    EXPECT_EQ(CalderCommand::version, parse_calder_arguments({"--version"}).command);
}

TEST(CalderArguments, TakesTheStandInWithInstallAlone) {
    EXPECT_FALSE(parse_calder_arguments({"install"}).fax_stand_in);
    EXPECT_TRUE(parse_calder_arguments({"install", "--fax-stand-in"}).fax_stand_in);
    EXPECT_EQ("what is --fax-stand-in?", parse_calder_arguments({"run", "--fax-stand-in"}).error);
    EXPECT_EQ("what is --fax-stand-in?", parse_calder_arguments({"--fax-stand-in"}).error);
}

TEST(CalderArguments, RefusesWhatIsNotKnown) {
    EXPECT_EQ("no command given", parse_calder_arguments({}).error);
    EXPECT_EQ("what is fly?", parse_calder_arguments({"fly"}).error);
    EXPECT_EQ("what is now?", parse_calder_arguments({"remove", "now"}).error);
    EXPECT_EQ("what is now?", parse_calder_arguments({"install", "--fax-stand-in", "now"}).error);
    EXPECT_EQ("what is service?", parse_calder_arguments({"service", "now"}).error);
    EXPECT_EQ("what is --version?", parse_calder_arguments({"--version", "now"}).error);
}

TEST(CalderArguments, AsksForHelpWhateverElseIsThere) {
    const std::string whole = parse_calder_arguments({"--help"}).help;
    EXPECT_EQ(whole, parse_calder_arguments({"-h"}).help);
    EXPECT_EQ(whole, parse_calder_arguments({"fly", "--help"}).help);
    const CalderArguments install = parse_calder_arguments({"install", "--everything", "--help"});
    EXPECT_EQ(CalderCommand::help, install.command);
    EXPECT_EQ("", install.error);
    EXPECT_NE(std::string::npos, install.help.find("--fax-stand-in"));
    EXPECT_EQ(std::string::npos, parse_calder_arguments({"run", "--help"}).help.find("--fax-stand-in"));
}
