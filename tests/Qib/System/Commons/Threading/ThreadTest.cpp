// Tests of the host thread: start, termination, errors in the body, names, signal masks and precise
// sleeps (the bounded join is shown by the server base's stop).
#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Threading/Mutex.hpp"
#include "Support/Concurrency.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::Log;
using Qib::System::Commons::Threading::Mutex;
using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;
using Clock = std::chrono::steady_clock;

// Priority, affinity and stack size are requests: what the system refuses does not stop the body.
TEST(ThreadTest, RunsTheBodyOnceWithAsynchronousSignalsBlockedUnderItsCutSystemName)
{
    const auto& signals = VantrelTest::AsynchronousSignals();
    char systemName[64] = {};
    long openInside = -1;
    bool faultsOpen = false;
    Thread thread(ThreadSettings("VantrelBase.Net.Bootp.BootpServer", 50, 1UL, 256UL * 1024UL), [&](void*) {
        pthread_getname_np(pthread_self(), systemName, sizeof(systemName));
        openInside = std::count_if(signals.begin(), signals.end(), [](int n) { return !VantrelTest::IsBlockedHere(n); });
        faultsOpen = !VantrelTest::IsBlockedHere(SIGSEGV);
    }, nullptr);
    thread.Start();
    EXPECT_THROW(thread.Start(), Qib::Exception);
    ASSERT_TRUE(VantrelTest::Eventually([&] { return !thread.IsRunning(); }));
    thread.Terminate(); // ended but not joined: terminating it only reaps it
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_STREQ(systemName, "VantrelBase.Net");
    EXPECT_EQ(openInside, 0);
    EXPECT_TRUE(faultsOpen);
    EXPECT_FALSE(VantrelTest::IsBlockedHere(SIGUSR1)); // the caller's mask is left as it was
    EXPECT_TRUE(thread.Join()); // joining a reaped thread reports the ended body at once
    Thread(ThreadSettings("Idle"), [](void*) {}, nullptr).Terminate(); // never started: nothing to end
}

namespace
{

// Sets a flag when destroyed: proves that a terminated thread's stack was unwound.
struct Sentinel
{
    std::atomic<bool>& flag;
    ~Sentinel() { flag = true; }
};

// How the test ends the thread; without one the thread ends itself.
using Ending = std::pair<const char*, void (*)(std::unique_ptr<Thread>& thread)>;

} // namespace

using ThreadEndingTest = testing::TestWithParam<Ending>;

// The thread ends where it waits by unwinding its stack, which releases its locks (waiting in a system
// call is shown by the pool's tests).
TEST_P(ThreadEndingTest, EndsTheThreadWhereItWaitsByUnwindingItsStack)
{
    std::thread([] {}).join(); // a sanitizer's helper thread starts with the first thread
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    const auto end = GetParam().second;
    Mutex held(false);
    std::atomic<bool> entered{false};
    std::atomic<bool> unwound{false};
    std::atomic<bool> returned{false};
    auto thread = std::make_unique<Thread>(ThreadSettings("Blocked"), [&](void*) {
        Sentinel sentinel{unwound};
        Mutex::ScopedLock lock(held);
        entered = true;
        if (end == nullptr)
        {
            Thread::pCurrentThread->Terminate();
        }
        Thread::Sleep(60000);
        returned = true;
    }, nullptr);
    thread->Start();
    ASSERT_TRUE(VantrelTest::Eventually([&] { return entered.load(); }));
    if (end == nullptr)
    {
        EXPECT_TRUE(thread->Join());
    }
    else
    {
        end(thread);
    }
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(returned);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
    if (thread)
    {
        EXPECT_FALSE(thread->IsJoinable());
        thread->Terminate(); // terminating an ended thread returns at once
    }
    ASSERT_TRUE(held.TryLock());
    held.Unlock();
}

INSTANTIATE_TEST_SUITE_P(
    Ways, ThreadEndingTest,
    testing::Values(Ending{"Terminated", [](std::unique_ptr<Thread>& ended) { ended->Terminate(); }},
                    Ending{"Destroyed", [](std::unique_ptr<Thread>& ended) { ended.reset(); }},
                    Ending{"TerminatingItself", nullptr}),
    [](const testing::TestParamInfo<Ending>& ending) { return std::string(ending.param.first); });

TEST(ThreadTest, ExceptionLeavingTheBodyIsLoggedOnlyWhenThereIsARootLogger)
{
    const std::tuple<Thread::Body, std::string, bool> throwers[] = {
        {[](void*) { throw std::runtime_error("disk on fire"); }, "disk on fire", true},
        {[](void*) { throw 42; }, "Unknown exception", true},
        {[](void*) { throw 42; }, "Unknown exception", false}};
    const auto root = Log::rootLogAdapterPtr;
    for (const auto& [body, reason, withRoot] : throwers)
    {
        VantrelTest::LogCapture capture;
        Log::rootLogAdapterPtr = withRoot ? root : nullptr;
        Thread thread(ThreadSettings("Thrower"), body, nullptr);
        thread.Start();
        EXPECT_TRUE(thread.Join());
        Log::rootLogAdapterPtr = root;
        const std::string logged = "Thread Thrower ended by an unhandled exception: " + reason;
        EXPECT_EQ(capture.Messages(), withRoot ? std::vector<std::string>{logged} : std::vector<std::string>{});
    }
}

TEST(ThreadTest, ShortSleepsOnSeveralThreadsNeverEndEarly)
{
    // Each sleep asks to be woken early by what its thread learnt about the wake-up latency.
    std::atomic<int> early{0};
    VantrelTest::RunConcurrently(4, [&early](int) {
        for (int n = 0; n < 150; ++n)
        {
            const auto start = Clock::now();
            Thread::Sleep(1);
            early += Clock::now() - start < std::chrono::milliseconds(1) ? 1 : 0;
        }
    });
    EXPECT_EQ(early, 0);
}
