// Tests of the host thread: start, bounded join, termination wherever the thread waits, errors in
// the body, names and the current-thread pointer.
#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"
#include "Qib/System/Commons/Threading/Mutex.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using Qib::System::Commons::Threading::Mutex;
using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;
using Clock = std::chrono::steady_clock;

namespace
{

// Sets a flag when destroyed: proves that a terminated thread's stack was unwound.
struct Sentinel
{
    std::atomic<bool>& flag;
    ~Sentinel() { flag = true; }
};

// Restores the default join limit at the end of a test that changes it.
struct JoinLimit
{
    explicit JoinLimit(unsigned long milliseconds) { Thread::SetJoinLimit(milliseconds); }
    ~JoinLimit() { Thread::SetJoinLimit(1000); }
};

// A thread body that sleeps in 1 ms steps until `release` is set.
Thread::Body WaitFor(std::atomic<bool>& release)
{
    return [&release](void*) {
        while (!release)
        {
            Thread::Sleep(1);
        }
    };
}

// Waits (bounded) until `condition` holds.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(5))
{
    const auto deadline = Clock::now() + timeout;
    while (!condition())
    {
        if (Clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

long long MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The process's thread count once helper threads that start with the first thread (a sanitizer's
// background thread, for one) are running.
std::size_t SettledThreadCount()
{
    std::thread([] {}).join();
    return VantrelTest::CountThreads();
}

} // namespace

TEST(ThreadTest, RunsBodyWithArgumentAndJoins)
{
    int argument = 41;
    std::atomic<int> seen{0};
    Thread thread(ThreadSettings("Worker"), [&](void* value) { seen = *static_cast<int*>(value) + 1; }, &argument);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.IsJoinable());
    thread.Start();
    EXPECT_TRUE(thread.Join());
    EXPECT_EQ(seen.load(), 42);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_TRUE(thread.Join()); // joining again reports the ended body at once
}

TEST(ThreadTest, StartsWithAsynchronousSignalsBlockedAndLeavesTheCallersMask)
{
    std::vector<int> openInside;
    bool faultsOpen = false;
    Thread thread(
        ThreadSettings("Masked"),
        [&](void*) {
            for (const int signal : VantrelTest::AsynchronousSignals())
            {
                if (!VantrelTest::IsBlockedHere(signal))
                {
                    openInside.push_back(signal);
                }
            }
            faultsOpen = !VantrelTest::IsBlockedHere(SIGSEGV);
        },
        nullptr);
    thread.Start();
    ASSERT_TRUE(thread.Join());
    EXPECT_TRUE(openInside.empty()) << "first open signal: " << openInside.front();
    EXPECT_TRUE(faultsOpen);
    EXPECT_FALSE(VantrelTest::IsBlockedHere(SIGUSR1));
}

TEST(ThreadTest, IsRunningUntilTheBodyReturns)
{
    std::atomic<bool> release{false};
    Thread thread(ThreadSettings("Waiter"), WaitFor(release), nullptr);
    thread.Start();
    EXPECT_TRUE(thread.IsRunning());
    EXPECT_TRUE(thread.IsJoinable());
    release = true;
    EXPECT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
    EXPECT_TRUE(thread.IsJoinable()); // ended, but not yet joined
    EXPECT_TRUE(thread.Join());
    EXPECT_FALSE(thread.IsJoinable());
}

TEST(ThreadTest, StartingTwiceThrows)
{
    Thread thread(ThreadSettings("Once"), [](void*) {}, nullptr);
    thread.Start();
    EXPECT_THROW(thread.Start(), Qib::Exception);
    EXPECT_TRUE(thread.Join());
}

TEST(ThreadTest, JoinGivesUpAfterTheJoinLimit)
{
    JoinLimit limit(100);
    std::atomic<bool> release{false};
    Thread thread(ThreadSettings("Slow"), WaitFor(release), nullptr);
    thread.Start();
    const auto start = Clock::now();
    EXPECT_FALSE(thread.Join());
    EXPECT_GE(MillisecondsSince(start), 100);
    EXPECT_TRUE(thread.IsRunning());
    EXPECT_TRUE(thread.IsJoinable());
    release = true;
    Thread::SetJoinLimit(10000);
    EXPECT_TRUE(thread.Join());
}

namespace
{

// Starts a thread that blocks in `block`, terminates it there and checks that it ended by unwinding
// its stack, never returning from the blocking call.
void ExpectTerminateEndsThreadBlockedIn(const std::function<void()>& block)
{
    std::atomic<bool> entered{false};
    std::atomic<bool> unwound{false};
    std::atomic<bool> returned{false};
    Thread thread(ThreadSettings("Blocked"), [&](void*) {
        Sentinel sentinel{unwound};
        entered = true;
        block();
        returned = true;
    }, nullptr);
    thread.Start();
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    EXPECT_TRUE(thread.IsRunning());
    thread.Terminate();
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(returned);
}

} // namespace

TEST(ThreadTest, TerminateEndsThreadBlockedInSleep)
{
    ExpectTerminateEndsThreadBlockedIn([] { Thread::Sleep(60000); });
}

TEST(ThreadTest, TerminateEndsThreadBlockedInSocketReceive)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    using namespace Qib::System::Commons::Net;
    Socket socket(SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::Blocking);
    ASSERT_EQ(socket.Bind(IpAddress::Parse("127.0.0.1"), 0), SocketError::Success);
    ExpectTerminateEndsThreadBlockedIn([&] {
        char buffer[16];
        IpAddress address;
        int port = 0;
        SocketError error = SocketError::Success;
        socket.ReceiveFrom(buffer, sizeof(buffer), address, port, error);
    });
}

TEST(ThreadTest, TerminateEndsThreadBlockedInSelect)
{
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    ExpectTerminateEndsThreadBlockedIn([&] {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(pipeEnds[0], &readable);
        ::select(pipeEnds[0] + 1, &readable, nullptr, nullptr, nullptr);
    });
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
}

TEST(ThreadTest, TerminationReleasesLocksHeldByTheThread)
{
    Mutex mutex(false);
    std::atomic<bool> locked{false};
    Thread thread(ThreadSettings("Holder"), [&](void*) {
        Mutex::ScopedLock lock(mutex);
        locked = true;
        Thread::Sleep(60000);
    }, nullptr);
    thread.Start();
    ASSERT_TRUE(Eventually([&] { return locked.load(); }));
    EXPECT_FALSE(mutex.TryLock());
    thread.Terminate();
    ASSERT_TRUE(mutex.TryLock());
    mutex.Unlock();
}

TEST(ThreadTest, ThreadCanTerminateItself)
{
    std::atomic<bool> unwound{false};
    std::atomic<bool> afterTerminate{false};
    Thread* self = nullptr;
    Thread thread(ThreadSettings("Quitter"), [&](void*) {
        Sentinel sentinel{unwound};
        self = Thread::pCurrentThread;
        Thread::pCurrentThread->Terminate();
        afterTerminate = true;
    }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    EXPECT_EQ(self, &thread);
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(afterTerminate);
    EXPECT_FALSE(thread.IsRunning());
}

TEST(ThreadTest, TerminateAfterTheBodyEndedReturns)
{
    Thread thread(ThreadSettings("Short"), [](void*) {}, nullptr);
    thread.Start();
    ASSERT_TRUE(Eventually([&] { return !thread.IsRunning(); }));
    thread.Terminate();
    EXPECT_FALSE(thread.IsJoinable());
    thread.Terminate();
    Thread neverStarted(ThreadSettings("Idle"), [](void*) {}, nullptr);
    neverStarted.Terminate();
    EXPECT_FALSE(neverStarted.IsRunning());
}

TEST(ThreadTest, ExceptionLeavingTheBodyIsLoggedAndEndsOnlyTheThread)
{
    VantrelTest::LogCapture capture;
    Thread thread(ThreadSettings("Thrower"), [](void*) { throw std::runtime_error("disk on fire"); }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    EXPECT_FALSE(thread.IsRunning());
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].Level, 3);
    EXPECT_EQ(records[0].LoggerName, "Root");
    EXPECT_NE(records[0].Message.find("Thrower"), std::string::npos) << records[0].Message;
    EXPECT_NE(records[0].Message.find("disk on fire"), std::string::npos) << records[0].Message;
}

TEST(ThreadTest, NonStandardExceptionIsLoggedToo)
{
    VantrelTest::LogCapture capture;
    Thread thread(ThreadSettings("OddThrower"), [](void*) { throw 42; }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].Level, 3);
    EXPECT_NE(records[0].Message.find("OddThrower"), std::string::npos) << records[0].Message;
}

TEST(ThreadTest, ExceptionWithoutRootAdapterIsSwallowedQuietly)
{
    VantrelTest::LogCapture capture;
    const auto root = Qib::System::Commons::Diagnostics::Logging::Log::rootLogAdapterPtr;
    Qib::System::Commons::Diagnostics::Logging::Log::rootLogAdapterPtr.reset();
    Thread thread(ThreadSettings("Thrower"), [](void*) { throw std::runtime_error("x"); }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    Qib::System::Commons::Diagnostics::Logging::Log::rootLogAdapterPtr = root;
    EXPECT_TRUE(capture.Records().empty());
}

TEST(ThreadTest, DestroyingARunningThreadTerminatesIt)
{
    const std::size_t threadsBefore = SettledThreadCount();
    std::atomic<bool> unwound{false};
    {
        auto thread = std::make_unique<Thread>(ThreadSettings("Doomed"), [&](void*) {
            Sentinel sentinel{unwound};
            Thread::Sleep(60000);
        }, nullptr);
        thread->Start();
    }
    EXPECT_TRUE(unwound);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
}

TEST(ThreadTest, SystemNameIsTheSettingsNameCutTo15Characters)
{
    const std::string fullName = "VantrelBase.Net.Bootp.BootpServer";
    std::string systemName;
    Thread thread(ThreadSettings(fullName), [&](void*) {
        char buffer[64] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
        systemName = buffer;
    }, nullptr);
    EXPECT_EQ(thread.GetName(), fullName);
    thread.Start();
    ASSERT_TRUE(thread.Join());
    EXPECT_EQ(systemName, "VantrelBase.Net");

    std::string shortName;
    Thread shortThread(ThreadSettings("TftpServer"), [&](void*) {
        char buffer[64] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
        shortName = buffer;
    }, nullptr);
    shortThread.Start();
    ASSERT_TRUE(shortThread.Join());
    EXPECT_EQ(shortName, "TftpServer");
}

TEST(ThreadTest, CurrentThreadPointerNamesTheRunningObject)
{
    EXPECT_EQ(Thread::pCurrentThread, nullptr);
    Thread* seen = nullptr;
    Thread thread(ThreadSettings("Self"), [&](void*) { seen = Thread::pCurrentThread; }, nullptr);
    thread.Start();
    ASSERT_TRUE(thread.Join());
    EXPECT_EQ(seen, &thread);
    EXPECT_EQ(Thread::pCurrentThread, nullptr);
}

TEST(ThreadTest, SleepLastsAtLeastTheGivenTime)
{
    const auto start = Clock::now();
    Thread::Sleep(20);
    EXPECT_GE(MillisecondsSince(start), 20);
    const auto zeroStart = Clock::now();
    Thread::Sleep(0);
    EXPECT_LT(MillisecondsSince(zeroStart), 1000);
}

TEST(ThreadTest, ShortSleepsOnSeveralThreadsNeverEndEarly)
{
    // Each sleep asks to be woken early by what its thread learnt about the wake-up latency.
    std::atomic<int> early{0};
    std::vector<std::thread> sleepers;
    for (int i = 0; i < 4; ++i)
    {
        sleepers.emplace_back([&early] {
            for (int n = 0; n < 150; ++n)
            {
                const auto start = Clock::now();
                Thread::Sleep(1);
                early += Clock::now() - start < std::chrono::milliseconds(1) ? 1 : 0;
            }
        });
    }
    for (auto& sleeper : sleepers)
    {
        sleeper.join();
    }
    EXPECT_EQ(early, 0);
}

TEST(ThreadTest, PriorityTheSystemRefusesIsKeptOnTheObject)
{
    std::atomic<bool> release{false};
    Thread thread(ThreadSettings("Prioritised", 50), WaitFor(release), nullptr);
    EXPECT_EQ(thread.GetPriority(), 50);
    thread.Start();
    EXPECT_NO_THROW(thread.SetPriority(70));
    EXPECT_EQ(thread.GetPriority(), 70);
    release = true;
    EXPECT_TRUE(thread.Join());
}

TEST(ThreadTest, ThreadsWithStackSizeAndAffinityRun)
{
    std::atomic<bool> ran{false};
    Thread thread(ThreadSettings("Pinned", 0, 1UL, 256UL * 1024UL), [&](void*) { ran = true; }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    EXPECT_TRUE(ran);
}
