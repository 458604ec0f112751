// Tests of the host thread: start, bounded join, termination wherever the thread waits, errors in
// the body, names, signal masks and precise sleeps.
#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"
#include "Qib/System/Commons/Threading/Mutex.hpp"
#include "Support/Concurrency.hpp"
#include "Support/IdlePipe.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>
#include <sys/select.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

using namespace Qib::System::Commons::Net;
using Qib::System::Commons::Diagnostics::Logging::Log;
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

} // namespace

// Priority, affinity and stack size are requests: what the system refuses does not stop the body.
TEST(ThreadTest, RunsTheBodyOnceWithItsSettingsUnderItsCutSystemName)
{
    int argument = 41;
    std::atomic<int> seen{0};
    Thread* current = nullptr;
    char systemName[64] = {};
    Thread thread(ThreadSettings("VantrelBase.Net.Bootp.BootpServer", 50, 1UL, 256UL * 1024UL), [&](void* value) {
        seen = *static_cast<int*>(value) + 1;
        current = Thread::pCurrentThread;
        pthread_getname_np(pthread_self(), systemName, sizeof(systemName));
    }, &argument);
    EXPECT_FALSE(thread.IsJoinable());
    thread.SetPriority(70);
    EXPECT_EQ(thread.GetPriority(), 70);
    thread.Start();
    EXPECT_THROW(thread.Start(), Qib::Exception);
    EXPECT_TRUE(thread.Join());
    EXPECT_EQ(seen.load(), 42);
    EXPECT_EQ(current, &thread);
    EXPECT_EQ(Thread::pCurrentThread, nullptr);
    EXPECT_STREQ(systemName, "VantrelBase.Net");
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_TRUE(thread.Join()); // joining again reports the ended body at once
}

TEST(ThreadTest, StartsWithAsynchronousSignalsBlockedAndLeavesTheCallersMask)
{
    const auto& signals = VantrelTest::AsynchronousSignals();
    long openInside = -1;
    bool faultsOpen = false;
    Thread thread(ThreadSettings("Masked"), [&](void*) {
        openInside = std::count_if(signals.begin(), signals.end(), [](int n) { return !VantrelTest::IsBlockedHere(n); });
        faultsOpen = !VantrelTest::IsBlockedHere(SIGSEGV);
    }, nullptr);
    thread.Start();
    ASSERT_TRUE(thread.Join());
    EXPECT_EQ(openInside, 0);
    EXPECT_TRUE(faultsOpen);
    EXPECT_FALSE(VantrelTest::IsBlockedHere(SIGUSR1));
}

TEST(ThreadTest, JoinGivesUpAfterTheJoinLimitAndTheThreadGoesOnUntilItsBodyReturns)
{
    std::atomic<bool> release{false};
    Thread thread(ThreadSettings("Slow"), [&](void*) {
        while (!release)
        {
            Thread::Sleep(1);
        }
    }, nullptr);
    Thread::SetJoinLimit(100);
    thread.Start();
    const auto start = Clock::now();
    EXPECT_FALSE(thread.Join());
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_TRUE(thread.IsRunning());
    release = true;
    EXPECT_TRUE(VantrelTest::Eventually([&] { return !thread.IsRunning(); }));
    Thread::SetJoinLimit(1000);
    EXPECT_TRUE(thread.IsJoinable()); // ended, but not yet joined: terminating it only reaps it
    thread.Terminate();
    EXPECT_FALSE(thread.IsJoinable());
}

namespace
{

// Where a thread may wait when it is terminated; it ends by unwinding its stack, releasing `held`.
Mutex held(false);

void SleepHoldingALock()
{
    Mutex::ScopedLock lock(held);
    Thread::Sleep(60000);
}

void ReceiveOnASocket()
{
    Socket socket(SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::Blocking);
    ASSERT_EQ(socket.Bind(IpAddress::Parse("127.0.0.1"), 0), SocketError::Success);
    char buffer[16];
    IpAddress address;
    int port = 0;
    SocketError error = SocketError::Success;
    socket.ReceiveFrom(buffer, sizeof(buffer), address, port, error);
}

void SelectOnAnIdlePipe()
{
    const VantrelTest::IdlePipe pipe;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(pipe.ReadEnd(), &readable);
    ::select(pipe.ReadEnd() + 1, &readable, nullptr, nullptr, nullptr);
}

struct BlockingCall
{
    const char* name;
    void (*block)();
};

void PrintTo(const BlockingCall& call, std::ostream* out)
{
    *out << call.name;
}

} // namespace

using ThreadTerminateTest = testing::TestWithParam<BlockingCall>;

TEST_P(ThreadTerminateTest, EndsTheThreadWhereItWaitsByUnwindingItsStack)
{
    if (GetParam().block == &ReceiveOnASocket)
    {
        VANTREL_REQUIRE_NETWORK_NAMESPACE();
    }
    const auto block = GetParam().block;
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
    ASSERT_TRUE(VantrelTest::Eventually([&] { return entered.load(); }));
    thread.Terminate();
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_FALSE(thread.IsJoinable());
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(returned);
    ASSERT_TRUE(held.TryLock());
    held.Unlock();
}

INSTANTIATE_TEST_SUITE_P(Calls, ThreadTerminateTest,
                         testing::Values(BlockingCall{"SleepHoldingALock", &SleepHoldingALock},
                                         BlockingCall{"ReceiveOnASocket", &ReceiveOnASocket},
                                         BlockingCall{"SelectOnAnIdlePipe", &SelectOnAnIdlePipe}),
                         [](const testing::TestParamInfo<BlockingCall>& call) { return std::string(call.param.name); });

TEST(ThreadTest, ThreadCanTerminateItselfAndTerminatingAnEndedThreadReturns)
{
    std::atomic<bool> unwound{false};
    std::atomic<bool> afterTerminate{false};
    Thread thread(ThreadSettings("Quitter"), [&](void*) {
        Sentinel sentinel{unwound};
        Thread::pCurrentThread->Terminate();
        afterTerminate = true;
    }, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(afterTerminate);
    thread.Terminate();
    Thread(ThreadSettings("Idle"), [](void*) {}, nullptr).Terminate();
}

TEST(ThreadTest, DestroyingARunningThreadTerminatesIt)
{
    std::thread([] {}).join(); // a sanitizer's helper thread starts with the first thread
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    std::atomic<bool> unwound{false};
    {
        Thread thread(ThreadSettings("Doomed"), [&](void*) {
            Sentinel sentinel{unwound};
            Thread::Sleep(60000);
        }, nullptr);
        thread.Start();
    }
    EXPECT_TRUE(unwound);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
}

TEST(ThreadTest, ExceptionLeavingTheBodyIsLoggedOnlyWhenThereIsARootLogger)
{
    const std::pair<Thread::Body, std::string> throwers[] = {
        {[](void*) { throw std::runtime_error("disk on fire"); }, "disk on fire"},
        {[](void*) { throw 42; }, "Unknown exception"}};
    for (const auto& [body, reason] : throwers)
    {
        VantrelTest::LogCapture capture;
        Thread thread(ThreadSettings("Thrower"), body, nullptr);
        thread.Start();
        EXPECT_TRUE(thread.Join());
        EXPECT_TRUE(capture.Contains("Thread Thrower ended by an unhandled exception: " + reason, 3));
    }
    VantrelTest::LogCapture capture;
    const auto root = Log::rootLogAdapterPtr;
    Log::rootLogAdapterPtr.reset();
    Thread thread(ThreadSettings("Thrower"), throwers[0].first, nullptr);
    thread.Start();
    EXPECT_TRUE(thread.Join());
    Log::rootLogAdapterPtr = root;
    EXPECT_TRUE(capture.Records().empty());
}

TEST(ThreadTest, ShortSleepsOnSeveralThreadsNeverEndEarly)
{
    const auto longStart = Clock::now();
    Thread::Sleep(20);
    EXPECT_GE(Clock::now() - longStart, std::chrono::milliseconds(20));
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
