// Tests of the shell command runner: exit statuses and the inherited output.
#include "VantrelBase/Core/Os/Command.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

using VantrelBase::Core::Os::Command;

TEST(CommandTest, ExitStatusIsReturned)
{
    Command command;
    EXPECT_EQ(command.Execute("exit 0"), 0);
    EXPECT_EQ(command.Execute("exit 3"), 3);
    EXPECT_EQ(command.Execute("true"), 0);
    EXPECT_EQ(command.Execute("false"), 1);
}

TEST(CommandTest, LineRunsThroughTheShell)
{
    Command command;
    EXPECT_EQ(command.Execute("test \"$(echo a b | wc -w)\" -eq 2 && exit 7"), 7);
    EXPECT_EQ(command.Execute("no-such-command-for-vantrel-tests 2>/dev/null"), 127);
}

TEST(CommandTest, SignalEndingTheCommandGives128PlusItsNumber)
{
    Command command;
    EXPECT_EQ(command.Execute("kill -TERM $$"), 128 + SIGTERM);
    EXPECT_EQ(command.Execute("kill -KILL $$"), 128 + SIGKILL);
}

TEST(CommandTest, OutputGoesToTheCallersStandardOutput)
{
    // The command's output is not captured: it appears on the caller's own standard output.
    Command command;
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    const int status = command.Execute("echo vantrel-command-output");
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output, "vantrel-command-output\n");
}

TEST(CommandTest, EnvironmentIsInherited)
{
    ASSERT_EQ(::setenv("VANTREL_COMMAND_TEST", "42", 1), 0);
    Command command;
    EXPECT_EQ(command.Execute("test \"$VANTREL_COMMAND_TEST\" = 42"), 0);
    ::unsetenv("VANTREL_COMMAND_TEST");
}
