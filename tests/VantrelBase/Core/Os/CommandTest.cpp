// Tests of the shell command runner: exit statuses, the shell's features and the inherited output.
#include "VantrelBase/Core/Os/Command.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

using VantrelBase::Core::Os::Command;

TEST(CommandTest, StatusIsTheExitStatusOr128PlusTheEndingSignalAndOutputIsTheCallers)
{
    ASSERT_EQ(::setenv("VANTREL_COMMAND_TEST", "42", 1), 0);
    const std::pair<const char*, int> cases[] = {
        {"echo vantrel-command-output", 0},
        {"test \"$VANTREL_COMMAND_TEST\" = 42 && exit 9", 9},
        {"no-such-command-for-vantrel-tests 2>/dev/null", 127},
        {"kill -TERM $$", 128 + SIGTERM},
    };
    Command command;
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    for (const auto& [line, status] : cases)
    {
        EXPECT_EQ(command.Execute(line), status) << line;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "vantrel-command-output\n");
    ::unsetenv("VANTREL_COMMAND_TEST");
}
