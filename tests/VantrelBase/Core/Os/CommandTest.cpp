// Tests of the shell command runner: exit statuses, the shell's features and the inherited output.
#include "VantrelBase/Core/Os/Command.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

using VantrelBase::Core::Os::Command;

TEST(CommandTest, StatusIsTheExitStatusOr128PlusTheEndingSignal)
{
    ASSERT_EQ(::setenv("VANTREL_COMMAND_TEST", "42", 1), 0);
    const std::pair<const char*, int> cases[] = {
        {"exit 0", 0},
        {"exit 3", 3},
        {"false", 1},
        {"test \"$(echo a b | wc -w)\" -eq 2 && exit 7", 7},
        {"test \"$VANTREL_COMMAND_TEST\" = 42 && exit 9", 9},
        {"no-such-command-for-vantrel-tests 2>/dev/null", 127},
        {"kill -TERM $$", 128 + SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL},
    };
    Command command;
    for (const auto& [line, status] : cases)
    {
        EXPECT_EQ(command.Execute(line), status) << line;
    }
    ::unsetenv("VANTREL_COMMAND_TEST");
}

TEST(CommandTest, OutputGoesToTheCallersStandardOutput)
{
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Command().Execute("echo vantrel-command-output"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "vantrel-command-output\n");
}
