// Tests of the server base: the main thread frame, its log lines, and start and stop from every side.
#include "VantrelBase/Net/ServerBase.hpp"

#include "Support/Concurrency.hpp"
#include "Support/JoinLimit.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ProcessStatus.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using VantrelBase::Net::IServer;
using VantrelBase::Net::ServerBase;
using VantrelTest::Eventually;
using VantrelTest::JoinLimit;
using VantrelTest::LogCapture;
using Clock = std::chrono::steady_clock;

namespace
{

// A server whose work counts passes and can run a test's action on the main thread.
class TestServer : public ServerBase
{
public:
    explicit TestServer(const std::string& name = "TestServer", unsigned long poolThreads = 1,
                        unsigned long poolReserved = 0)
        : ServerBase(name, poolThreads, 0, poolReserved, 0)
    {
    }
    ~TestServer() override { Stop(); }

    std::atomic<int> polls{0};
    std::atomic<int> startUps{0};
    std::atomic<int> shutDowns{0};
    /// Called on the main thread at every pass, with the pass number; set before Start.
    std::function<void(TestServer&, int)> onWork;
    std::function<void()> onStartUp;

    unsigned long PoolThreadCount() const { return threadPool.GetThreadCount(); }
    int RunOnPool() { return threadPool.QueueUserWorkItem([] { return 11; }).get(); }

protected:
    void StartUp() override
    {
        ++startUps;
        if (onStartUp)
        {
            onStartUp();
        }
    }
    void ShutDown() override { ++shutDowns; }
    void MainThreadWorker() override
    {
        const int pass = ++polls;
        if (onWork)
        {
            onWork(*this, pass);
        }
    }
};

long long MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

} // namespace

TEST(ServerBaseTest, StartRunsTheFrameAndItsCallbacksInOrderAndAStartOfARunningServerStopsItFirst)
{
    JoinLimit limit(20);
    TestServer server("TestServer", 3);
    EXPECT_EQ(server.PoolThreadCount(), 3U);
    EXPECT_EQ(server.RunOnPool(), 11);
    LogCapture capture;
    server.Stop();
    EXPECT_TRUE(capture.Records().empty()) << "a stop before any start logs nothing";
    // Every line so far, each at information level from the base's logger.
    const auto lines = [&capture] {
        std::vector<std::string> all;
        for (const auto& record : capture.Records())
        {
            all.push_back(std::to_string(record.Level) + " " + record.LoggerName + ": " + record.Message);
        }
        return all;
    };
    const std::string prefix = "6 VantrelBase.Net.ServerBase: ";
    std::vector<std::string> expected{prefix + "Attempt to start server TestServer", prefix + "Main thread spawned",
                                      prefix + "Start main thread work"};
    std::mutex lock;
    std::vector<std::string> calls; // "<index> <thread name> <same server> <start-ups> <polls>"
    const auto record = [&](const std::string& index, IServer& argument) {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        std::lock_guard<std::mutex> guard(lock);
        calls.push_back(index + " " + name + " " + std::to_string(&argument == &server) + " " +
                        std::to_string(server.startUps) + " " + std::to_string(server.polls));
    };
    server.startedCallbacks.push_back([&](IServer& argument) { record("0", argument); });
    // A callback may add to its own list; the added one runs in the same pass.
    server.startedCallbacks.push_back([&](IServer& argument) {
        record("1", argument);
        server.startedCallbacks.push_back([&](IServer& added) { record("added", added); });
    });
    server.Start();
    ASSERT_TRUE(Eventually([&] { return server.polls >= 5; })) << "the worker is not polled";
    EXPECT_EQ(lines(), expected);
    {
        std::lock_guard<std::mutex> guard(lock);
        EXPECT_EQ(calls, (std::vector<std::string>{"0 TestServer 1 1 0", "1 TestServer 1 1 0", "added TestServer 1 1 0"}));
    }
    const std::size_t threadsWithOneServer = VantrelTest::CountThreads();

    capture.Clear();
    server.Start();
    ASSERT_TRUE(capture.WaitFor("Start main thread work"));
    expected.insert(expected.begin(), prefix + "Attempt to stop server TestServer");
    EXPECT_EQ(lines(), expected);
    EXPECT_TRUE(server.IsRunning());
    EXPECT_EQ(server.startUps.load(), 2);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsWithOneServer), threadsWithOneServer);
    server.Stop();
    EXPECT_FALSE(server.IsRunning());
    capture.Clear();
    server.Stop();
    EXPECT_TRUE(capture.Records().empty());
    // The pool's refusal of its values passes to the creator.
    EXPECT_THROW(TestServer("Reserved", 1, 1), Qib::System::Commons::ArgumentException);
}

TEST(ServerBaseTest, StopFromInsideTheWorkerEndsTheMainThreadWithoutJoining)
{
    LogCapture capture;
    JoinLimit limit(60000); // a join here would hang the test
    TestServer server;
    std::atomic<bool> returnedFromStop{false};
    server.onWork = [&](TestServer& self, int pass) {
        if (pass == 3)
        {
            self.Stop();
            returnedFromStop = true;
        }
    };
    server.Start();
    ASSERT_TRUE(capture.WaitFor("Attempt to stop server TestServer asynchronously"));
    ASSERT_TRUE(Eventually([&] { return !server.IsRunning(); }));
    EXPECT_FALSE(returnedFromStop);
    EXPECT_EQ(server.polls.load(), 3);
    EXPECT_EQ(capture.Count("Attempt to stop server TestServer"), 0U);
    EXPECT_EQ(server.shutDowns.load(), 0);
    EXPECT_FALSE(capture.Contains("Terminate main thread work"));
    const auto start = Clock::now();
    server.Stop();
    EXPECT_LT(MillisecondsSince(start), 30000) << "Stop of an ended thread joined";
}

TEST(ServerBaseTest, StopFromAnotherThreadJoinsBoundedThenTerminatesSkippingTheEndOfTheFrame)
{
    LogCapture capture;
    JoinLimit limit(100);
    TestServer server;
    std::atomic<int> stoppedCalls{0};
    server.stoppedCallbacks.push_back([&](IServer&) { ++stoppedCalls; });
    for (int round = 0; round < 3; ++round)
    {
        server.Start();
        ASSERT_TRUE(Eventually([&] { return server.polls >= 2 * (round + 1); }));
        const auto start = Clock::now();
        server.Stop();
        // The loop never ends by itself, so Stop waited out the whole join limit.
        EXPECT_GE(MillisecondsSince(start), 100);
        EXPECT_FALSE(server.IsRunning());
    }
    EXPECT_EQ(capture.Count("Attempt to stop server TestServer"), 3U);
    const int pollsAtStop = server.polls;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(server.polls.load(), pollsAtStop) << "the worker is still polled after Stop";
    // Deliberate: the loop flag is never raised, so termination skips the end of the frame.
    EXPECT_EQ(server.startUps.load(), 3);
    EXPECT_EQ(server.shutDowns.load(), 0);
    EXPECT_EQ(stoppedCalls.load(), 0);
    EXPECT_FALSE(capture.Contains("Terminate main thread work"));
}

TEST(ServerBaseTest, FailureInTheFrameEndsTheThreadAndSkipsTheRestOfIt)
{
    struct Row
    {
        const char* failure;
        std::function<void(TestServer&)> arrange;
        int passes; // of the loop, and so of the later started callback
    };
    const Row rows[] = {
        {"no start-up", [](TestServer& s) { s.onStartUp = [] { throw std::logic_error("no start-up"); }; }, 0},
        {"bad_function_call", [](TestServer& s) { s.startedCallbacks.push_back(nullptr); }, 0},
        {"worker failed",
         [](TestServer& s) { s.onWork = [](TestServer&, int) { throw std::runtime_error("worker failed"); }; }, 1},
    };
    JoinLimit limit(60000); // a join of the ended thread would show as a hang
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.failure);
        LogCapture capture;
        TestServer server;
        std::atomic<int> started{0};
        row.arrange(server);
        server.startedCallbacks.push_back([&](IServer&) { ++started; });
        server.Start();
        const std::string logged = std::string("Thread TestServer ended by an unhandled exception: ") + row.failure;
        ASSERT_TRUE(Eventually([&] { return !server.IsRunning() && capture.Contains(logged, 3); }));
        EXPECT_EQ(server.polls.load(), row.passes);
        EXPECT_EQ(started.load(), row.passes);
        EXPECT_EQ(server.shutDowns.load(), 0);
        const auto start = Clock::now();
        server.Stop();
        EXPECT_LT(MillisecondsSince(start), 30000) << "Stop joined a thread that had ended";
    }
}
