// Tests of the daemon's command line.
#include "CommandLine.hpp"

#include <gtest/gtest.h>

using VantrelNetd::CommandLine;

TEST(CommandLineTest, OptionsAreTakenOverAndNoneServeTheDefaultFolder)
{
    EXPECT_EQ(CommandLine::Parse(std::vector<std::string>{}).Values.TftpRoot, "./tftpboot");
    const CommandLine::Result result = CommandLine::Parse(
        {"--config", "site.toml", "--check", "--log-level", "debug", "--log-file", "/tmp/x.log", "--user", "tftp"});
    ASSERT_TRUE(result.Run) << result.Text;
    EXPECT_EQ(result.Values.ConfigFile, "site.toml");
    EXPECT_TRUE(result.Values.Check);
    EXPECT_EQ(result.Values.LogLevel, 7);
    EXPECT_EQ(result.Values.LogFile, "/tmp/x.log");
    EXPECT_EQ(result.Values.User, "tftp");
    EXPECT_FALSE(result.Values.Status);

    const CommandLine::Result status = CommandLine::Parse({"status", "--json", "--socket", "/run/x.sock", "-c", "a"});
    ASSERT_TRUE(status.Run) << status.Text;
    EXPECT_TRUE(status.Values.Status && status.Values.Json);
    EXPECT_EQ(status.Values.SocketPath, "/run/x.sock");
    EXPECT_EQ(status.Values.ConfigFile, "a");
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
