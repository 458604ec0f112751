// Tests of the daemon's command line.
#include "CommandLine.hpp"

#include <gtest/gtest.h>

using VantrelNetd::CommandLine;

TEST(CommandLineTest, NoArgumentsRunTheBuiltInDefault)
{
    const CommandLine::Result result = CommandLine::Parse(std::vector<std::string>{});
    ASSERT_TRUE(result.Run);
    EXPECT_TRUE(result.Values.ConfigFile.empty());
    EXPECT_EQ(result.Values.TftpRoot, "./tftpboot");
    EXPECT_EQ(result.Values.LogLevel, -1);
    EXPECT_FALSE(result.Values.Check);
}

TEST(CommandLineTest, OptionsAreTakenOver)
{
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
    EXPECT_TRUE(status.Values.Status);
    EXPECT_TRUE(status.Values.Json);
    EXPECT_EQ(status.Values.SocketPath, "/run/x.sock");
    EXPECT_EQ(status.Values.ConfigFile, "a");
}

TEST(CommandLineTest, HelpAndVersionPrintAndExitZero)
{
    const CommandLine::Result help = CommandLine::Parse({"--help"});
    EXPECT_FALSE(help.Run);
    EXPECT_EQ(help.ExitStatus, 0);
    EXPECT_NE(help.Text.find("--config"), std::string::npos);
    EXPECT_NE(help.Text.find("Examples:"), std::string::npos);

    const CommandLine::Result version = CommandLine::Parse({"--version"});
    EXPECT_FALSE(version.Run);
    EXPECT_EQ(version.ExitStatus, 0);
    EXPECT_EQ(version.Text.rfind("vantrel-netd ", 0), 0U) << version.Text;
}

TEST(CommandLineTest, BadCommandLinesExit64WithOneLineNamingTheProblem)
{
    struct Case
    {
        std::vector<std::string> arguments;
        const char* named;
    };
    const Case cases[] = {
        {{"--bogus"}, "--bogus"},
        {{"--log-level", "loud"}, "loud"},
        {{"--config"}, "config"},
        {{"--config", "a.toml", "--tftp-root", "/srv"}, "tftp-root"},
        {{"--check"}, "--check"},
        {{"stray"}, "stray"},
    };
    for (const Case& item : cases)
    {
        const CommandLine::Result result = CommandLine::Parse(item.arguments);
        EXPECT_FALSE(result.Run) << item.named;
        EXPECT_EQ(result.ExitStatus, 64) << item.named;
        EXPECT_NE(result.Text.find(item.named), std::string::npos) << result.Text;
        EXPECT_EQ(result.Text.find('\n'), std::string::npos) << result.Text;
    }
}
