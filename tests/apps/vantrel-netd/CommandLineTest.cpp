// Tests of the daemon's command line.
#include "CommandLine.hpp"

#include <gtest/gtest.h>

#include <tuple>

using VantrelNetd::CommandLine;

// The other options, and bad command lines, are shown by the runs of the binary in the daemon's
// process tests.
TEST(CommandLineTest, LevelNamesAndShortOptionsAreTakenOver)
{
    const CommandLine::Result result = CommandLine::Parse({"--check", "--log-level", "debug", "-c", "site.toml"});
    ASSERT_TRUE(result.Run) << result.Text;
    EXPECT_EQ(std::make_tuple(result.Values.Check, result.Values.LogLevel, result.Values.ConfigFile),
              std::make_tuple(true, 7, std::string("site.toml")));
}
