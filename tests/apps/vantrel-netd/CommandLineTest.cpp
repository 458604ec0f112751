// Tests of the daemon's command line.
#include "CommandLine.hpp"

#include <gtest/gtest.h>

#include <tuple>

using VantrelNetd::CommandLine;

// The other options are taken over in every run of the binary in the daemon's process tests.
TEST(CommandLineTest, LevelNamesAndShortOptionsAreTakenOver)
{
    const CommandLine::Result result = CommandLine::Parse({"--check", "--log-level", "debug", "-c", "site.toml"});
    ASSERT_TRUE(result.Run) << result.Text;
    EXPECT_EQ(std::make_tuple(result.Values.Check, result.Values.LogLevel, result.Values.ConfigFile),
              std::make_tuple(true, 7, std::string("site.toml")));
}

// More bad command lines run the binary in DaemonProcessTest.
TEST(CommandLineTest, BadCommandLinesExit64WithOneLineNamingTheProblem)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--config"}, "config"},
        {{"--config", "a.toml", "--tftp-root", "/srv"}, "tftp-root"},
        {{"stray"}, "stray"},
    };
    for (const auto& [arguments, named] : cases)
    {
        const CommandLine::Result result = CommandLine::Parse(arguments);
        EXPECT_FALSE(result.Run) << named;
        EXPECT_EQ(result.ExitStatus, 64) << named;
        EXPECT_NE(result.Text.find(named), std::string::npos) << result.Text;
        EXPECT_EQ(result.Text.find('\n'), std::string::npos) << result.Text;
    }
}
