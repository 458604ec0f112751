// Tests of the worker pool: items run and deliver through their futures, the queue limit holds under
// a flood, and a shutdown, which a stuck item cannot hold up, runs nothing still queued.
#include "VantrelBase/Core/Os/Threading/ThreadPool.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"
#include "Support/Concurrency.hpp"
#include "Support/IdlePipe.hpp"
#include "Support/JoinLimit.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

using VantrelBase::Core::Os::Threading::ThreadPool;
using namespace std::chrono_literals;

namespace
{

// The process's thread count once a sanitizer's helper thread, started with the first thread, runs.
std::size_t SettledThreadCount()
{
    std::thread([] {}).join();
    return VantrelTest::CountThreads();
}

// A datagram's worth of memory, counted while it lives.
struct Payload
{
    explicit Payload(std::atomic<long>& live) : live(live) { ++live; }
    ~Payload() { --live; }
    std::atomic<long>& live;
    std::vector<char> bytes = std::vector<char>(65527);
};

} // namespace

TEST(ThreadPoolTest, WorkersRunWithAsynchronousSignalsBlockedAndDeliverResultsAndExceptions)
{
    EXPECT_THROW(ThreadPool(1, 0, 1, 0), Qib::System::Commons::ArgumentException);
    EXPECT_THROW(ThreadPool(1, 0, 0, 7), Qib::System::Commons::ArgumentException);
    ThreadPool pool(2, 600, 0, 0);
    // Producers on three threads at once: every item runs once and reaches its own future.
    VantrelTest::RunConcurrently(3, [&pool](int) {
        std::vector<std::future<int>> results;
        for (int i = 0; i < 200; ++i)
        {
            results.push_back(pool.QueueUserWorkItem([i] { return i * i; }));
        }
        for (int i = 0; i < 200; ++i)
        {
            EXPECT_EQ(results[static_cast<std::size_t>(i)].get(), i * i);
        }
    });
    const auto& signals = VantrelTest::AsynchronousSignals();
    EXPECT_EQ(pool.QueueUserWorkItem([&signals] {
        return std::count_if(signals.begin(), signals.end(), [](int s) { return !VantrelTest::IsBlockedHere(s); });
    }).get(), 0);
    EXPECT_FALSE(VantrelTest::IsBlockedHere(SIGTERM));
    auto failing = pool.QueueUserWorkItem([]() -> int { throw std::invalid_argument("bad item"); });
    // The next item's result first: by then the worker has released the failed item, so the
    // exception object is not freed by the worker while this thread reads it. (The release is
    // ordered by libstdc++'s reference count, which the thread sanitizer cannot see.)
    EXPECT_EQ(*pool.QueueUserWorkItem([] { return std::make_unique<int>(5); }).get(), 5);
    EXPECT_THROW(failing.get(), std::invalid_argument);
}

// With every worker busy, a flood keeps only the queue limit (the default for 0) and refuses the rest
// through their futures, counted in the log; service resumes once the worker is free.
TEST(ThreadPoolTest, FloodWhileTheWorkersAreBlockedHoldsOnlyTheDefaultQueueAndServiceResumes)
{
    for (const std::size_t limit : {std::size_t{2}, std::size_t{0}})
    {
        const std::size_t held = limit == 0 ? ThreadPool::DefaultMaxQueueLength : limit;
        VantrelTest::LogCapture capture;
        ThreadPool pool(1, limit, 0, 0);
        std::promise<void> gate;
        std::promise<void> running;
        auto blocker = pool.QueueUserWorkItem([&running, opened = gate.get_future().share()] {
            running.set_value();
            opened.wait_for(10s);
        });
        ASSERT_EQ(running.get_future().wait_for(10s), std::future_status::ready);
        std::atomic<long> live{0};
        long peak = 0;
        int refused = 0;
        std::vector<std::future<void>> queued;
        for (int i = 0; i < 2000; ++i)
        {
            auto future = pool.QueueUserWorkItem([payload = std::make_shared<Payload>(live)] {});
            peak = std::max(peak, live.load());
            if (future.wait_for(0s) == std::future_status::ready)
            {
                EXPECT_THROW(future.get(), std::runtime_error);
                ++refused;
                continue;
            }
            queued.push_back(std::move(future));
        }
        EXPECT_EQ(queued.size(), held);
        // The memory held: the queued items and the one being refused, never the flood.
        EXPECT_LE(peak, static_cast<long>(held) + 1);
        gate.set_value();
        blocker.get();
        for (auto& future : queued)
        {
            future.get();
        }
        EXPECT_EQ(pool.QueueUserWorkItem([] { return 7; }).get(), 7);
        EXPECT_EQ(live.load(), 0);
        // Reported at once and then at most every few seconds; the rest when the pool ends.
        pool.Shutdown();
        int reported = 0;
        for (const auto& record : capture.Records())
        {
            unsigned long waiting = 0;
            int count = 0;
            if (std::sscanf(record.Message.c_str(), "Work queue full (%lu items waiting): %d work items dropped",
                            &waiting, &count) == 2)
            {
                EXPECT_EQ(waiting, held);
                reported += count;
            }
        }
        EXPECT_EQ(reported, refused);
    }
}

// Zero threads means one per processor, all able to run at once. Shutdown gives the running items the
// join limit and then ends their threads; a queued item never runs and its future is told so.
TEST(ThreadPoolTest, ShutdownEndsAnItemStuckInASystemCallAfterTheJoinLimit)
{
    const unsigned long processors = std::max(1U, std::thread::hardware_concurrency());
    const std::size_t threadsBefore = SettledThreadCount();
    const VantrelTest::IdlePipe never;
    std::atomic<unsigned long> started{0};
    std::atomic<bool> returned{false};
    std::vector<std::future<void>> futures;
    {
        const VantrelTest::JoinLimit quick(50);
        ThreadPool pool(0, 0, 0, 0);
        EXPECT_EQ(VantrelTest::CountThreads(), threadsBefore + processors);
        for (unsigned long i = 0; i <= processors; ++i)
        {
            futures.push_back(pool.QueueUserWorkItem([&] {
                ++started;
                never.BlockInRead();
                returned = true;
            }));
        }
        ASSERT_TRUE(VantrelTest::Eventually([&] { return started == processors; }));
        const auto start = std::chrono::steady_clock::now();
        pool.Shutdown();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    }
    EXPECT_FALSE(returned);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
    EXPECT_EQ(started.load(), processors);
    EXPECT_THROW(futures.back().get(), std::future_error);
}
