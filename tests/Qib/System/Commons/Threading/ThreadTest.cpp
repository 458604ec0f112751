// Tests of the host thread: start, bounded join, termination wherever the thread waits.
#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <atomic>

using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;

TEST(ThreadTest, TerminateEndsThreadBlockedInSleep)
{
    std::atomic<bool> unwound{false};
    struct Sentinel
    {
        std::atomic<bool>& flag;
        ~Sentinel() { flag = true; }
    };
    Thread thread(ThreadSettings("Sleeper"), [&](void*) {
        Sentinel sentinel{unwound};
        Thread::Sleep(60000);
    }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.IsRunning());
    Thread::SetJoinLimit(50);
    EXPECT_FALSE(thread.Join());
    thread.Terminate();
    Thread::SetJoinLimit(1000);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_TRUE(unwound);
}
