// Tests of the worker pool: items run, futures deliver, the queue limit, a flood, and nothing runs
// after destruction, which a stuck item cannot hold up.
#include "VantrelBase/Core/Os/Threading/ThreadPool.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <chrono>
#include <future>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using VantrelBase::Core::Os::Threading::ThreadPool;
using namespace std::chrono_literals;

namespace
{

// A gate that work items wait at until the test opens it (bounded, so a failing test cannot hang).
class Gate
{
public:
    void Open()
    {
        {
            std::lock_guard<std::mutex> guard(lock);
            open = true;
        }
        changed.notify_all();
    }
    bool Wait()
    {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, 10s, [this] { return open; });
    }

private:
    std::mutex lock;
    std::condition_variable changed;
    bool open = false;
};

// The process's thread count once helper threads that start with the first thread (a sanitizer's
// background thread, for one) are running.
std::size_t SettledThreadCount()
{
    std::thread([] {}).join();
    return VantrelTest::CountThreads();
}

} // namespace

TEST(ThreadPoolTest, WorkItemsRunOnPoolThreadsAndDeliverResults)
{
    ThreadPool pool(2, 0, 0, 0);
    EXPECT_EQ(pool.GetThreadCount(), 2U);
    std::vector<std::future<int>> results;
    for (int i = 0; i < 50; ++i)
    {
        results.push_back(pool.QueueUserWorkItem([i] { return i * i; }));
    }
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_EQ(results[static_cast<std::size_t>(i)].wait_for(10s), std::future_status::ready);
        EXPECT_EQ(results[static_cast<std::size_t>(i)].get(), i * i);
    }
    auto where = pool.QueueUserWorkItem([] { return std::this_thread::get_id(); });
    EXPECT_NE(where.get(), std::this_thread::get_id());
}

TEST(ThreadPoolTest, VoidItemsAndMoveOnlyResultsAreDelivered)
{
    ThreadPool pool(1, 0, 0, 0);
    std::atomic<bool> ran{false};
    auto done = pool.QueueUserWorkItem([&ran] { ran = true; });
    done.get();
    EXPECT_TRUE(ran);
    auto owned = pool.QueueUserWorkItem([] { return std::make_unique<std::string>("moved"); });
    EXPECT_EQ(*owned.get(), "moved");
}

TEST(ThreadPoolTest, ExceptionOfAnItemReachesItsFutureAndTheWorkerGoesOn)
{
    ThreadPool pool(1, 0, 0, 0);
    auto failing = pool.QueueUserWorkItem([]() -> int { throw std::invalid_argument("bad item"); });
    auto next = pool.QueueUserWorkItem([] { return 5; });
    // The next item's result first: by then the worker has released the failed item, so the
    // exception object is not freed by the worker while this thread reads it. (The release is
    // ordered by libstdc++'s reference count, which the thread sanitizer cannot see.)
    EXPECT_EQ(next.get(), 5);
    try
    {
        failing.get();
        FAIL() << "the item's exception was lost";
    }
    catch (const std::invalid_argument& exception)
    {
        EXPECT_STREQ(exception.what(), "bad item");
    }
}

TEST(ThreadPoolTest, ItemsRunConcurrentlyOnSeveralWorkers)
{
    ThreadPool pool(3, 0, 0, 0);
    Gate gate;
    std::atomic<int> waiting{0};
    std::vector<std::future<bool>> items;
    for (int i = 0; i < 3; ++i)
    {
        items.push_back(pool.QueueUserWorkItem([&] {
            ++waiting;
            return gate.Wait();
        }));
    }
    // All three must be inside their items at once before the gate opens.
    for (int i = 0; i < 10000 && waiting < 3; ++i)
    {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(waiting.load(), 3);
    gate.Open();
    for (auto& item : items)
    {
        EXPECT_TRUE(item.get());
    }
}

TEST(ThreadPoolTest, WorkersRunWithAsynchronousSignalsBlocked)
{
    ThreadPool pool(2, 0, 0, 0);
    auto open = pool.QueueUserWorkItem([] {
        int count = 0;
        for (const int signal : VantrelTest::AsynchronousSignals())
        {
            count += VantrelTest::IsBlockedHere(signal) ? 0 : 1;
        }
        return count;
    });
    EXPECT_EQ(open.get(), 0);
    EXPECT_FALSE(VantrelTest::IsBlockedHere(SIGTERM));
}

TEST(ThreadPoolTest, ZeroThreadsMeansOnePerProcessor)
{
    const std::size_t threadsBefore = SettledThreadCount();
    ThreadPool pool(0, 0, 0, 0);
    const unsigned long processors = std::max(1U, std::thread::hardware_concurrency());
    EXPECT_EQ(pool.GetThreadCount(), processors);
    EXPECT_EQ(VantrelTest::CountThreads(), threadsBefore + processors);
}

TEST(ThreadPoolTest, ReservedParametersMustBeZero)
{
    EXPECT_THROW(ThreadPool(1, 0, 1, 0), Qib::System::Commons::ArgumentException);
    EXPECT_THROW(ThreadPool(1, 0, 0, 7), Qib::System::Commons::ArgumentException);
}

TEST(ThreadPoolTest, ItemBeyondTheQueueLimitIsRefusedThroughItsFuture)
{
    ThreadPool pool(1, 2, 0, 0);
    Gate gate;
    std::promise<void> started;
    auto blocker = pool.QueueUserWorkItem([&] {
        started.set_value();
        return gate.Wait();
    });
    ASSERT_EQ(started.get_future().wait_for(10s), std::future_status::ready);
    std::atomic<int> ran{0};
    auto first = pool.QueueUserWorkItem([&] { return ++ran; });
    auto second = pool.QueueUserWorkItem([&] { return ++ran; });
    auto refused = pool.QueueUserWorkItem([&] { return ++ran; });
    ASSERT_EQ(refused.wait_for(0s), std::future_status::ready);
    EXPECT_THROW(refused.get(), std::runtime_error);
    gate.Open();
    EXPECT_TRUE(blocker.get());
    first.get();
    second.get();
    EXPECT_EQ(ran.load(), 2);
    // Once the queue has room again items are taken.
    EXPECT_EQ(pool.QueueUserWorkItem([] { return 9; }).get(), 9);
}

TEST(ThreadPoolTest, NoQueuedItemRunsAfterDestruction)
{
    constexpr int itemCount = 40;
    std::atomic<int> startedCount{0};
    std::atomic<int> startedAfterDestruction{0};
    std::atomic<bool> destroyed{false};
    std::vector<std::future<void>> futures;
    {
        ThreadPool pool(2, 0, 0, 0);
        for (int i = 0; i < itemCount; ++i)
        {
            futures.push_back(pool.QueueUserWorkItem([&] {
                ++startedCount;
                if (destroyed)
                {
                    ++startedAfterDestruction;
                }
                std::this_thread::sleep_for(20ms);
            }));
        }
        for (int i = 0; i < 10000 && startedCount < 2; ++i)
        {
            std::this_thread::sleep_for(1ms);
        }
    }
    destroyed = true;
    const int startedAtDestruction = startedCount;
    EXPECT_LT(startedAtDestruction, itemCount) << "the pool ran the whole queue before stopping";
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(startedCount.load(), startedAtDestruction);
    EXPECT_EQ(startedAfterDestruction.load(), 0);

    int broken = 0;
    for (auto& future : futures)
    {
        try
        {
            future.get();
        }
        catch (const std::future_error& error)
        {
            EXPECT_EQ(error.code(), std::future_errc::broken_promise);
            ++broken;
        }
    }
    EXPECT_EQ(broken, itemCount - startedAtDestruction);
}

TEST(ThreadPoolTest, DestructionJoinsAllWorkers)
{
    const std::size_t threadsBefore = SettledThreadCount();
    {
        ThreadPool pool(4, 0, 0, 0);
        EXPECT_EQ(VantrelTest::CountThreads(), threadsBefore + 4);
        pool.QueueUserWorkItem([] {}).get();
    }
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
}

TEST(ThreadPoolTest, ConcurrentProducersLoseNoItem)
{
    ThreadPool pool(2, 600, 0, 0);
    std::atomic<int> ran{0};
    std::vector<std::thread> producers;
    std::mutex futuresLock;
    std::vector<std::future<void>> futures;
    for (int p = 0; p < 3; ++p)
    {
        producers.emplace_back([&] {
            for (int i = 0; i < 200; ++i)
            {
                auto future = pool.QueueUserWorkItem([&ran] { ++ran; });
                std::lock_guard<std::mutex> guard(futuresLock);
                futures.push_back(std::move(future));
            }
        });
    }
    for (auto& producer : producers)
    {
        producer.join();
    }
    for (auto& future : futures)
    {
        future.get();
    }
    EXPECT_EQ(ran.load(), 600);
}

// A datagram's worth of memory, counted while it lives.
class Payload
{
public:
    explicit Payload(std::atomic<long>& live) : live(live), bytes(65527) { ++live; }
    Payload(const Payload&) = delete;
    ~Payload() { --live; }

private:
    std::atomic<long>& live;
    std::vector<char> bytes;
};

TEST(ThreadPoolTest, FloodWhileTheWorkersAreBlockedHoldsOnlyTheDefaultQueueAndServiceResumes)
{
    VantrelTest::LogCapture capture;
    ThreadPool pool(1, 0, 0, 0);
    Gate gate;
    std::promise<void> started;
    auto blocker = pool.QueueUserWorkItem([&] {
        started.set_value();
        return gate.Wait();
    });
    ASSERT_EQ(started.get_future().wait_for(10s), std::future_status::ready);
    std::atomic<long> live{0};
    long peak = 0;
    int refused = 0;
    std::vector<std::future<void>> queued;
    constexpr int Flood = 5000;
    for (int i = 0; i < Flood; ++i)
    {
        auto future = pool.QueueUserWorkItem([payload = std::make_shared<Payload>(live)] {});
        peak = std::max(peak, live.load());
        if (future.wait_for(0s) == std::future_status::ready)
        {
            ++refused;
            continue;
        }
        queued.push_back(std::move(future));
    }
    EXPECT_EQ(queued.size(), ThreadPool::DefaultMaxQueueLength);
    EXPECT_EQ(refused, Flood - static_cast<int>(ThreadPool::DefaultMaxQueueLength));
    // The memory held: the queued items and the one being refused, never the flood.
    EXPECT_LE(peak, static_cast<long>(ThreadPool::DefaultMaxQueueLength) + 1);

    gate.Open();
    EXPECT_TRUE(blocker.get());
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
        unsigned long limit = 0;
        int count = 0;
        if (std::sscanf(record.Message.c_str(), "Work queue full (%lu items waiting): %d work items dropped", &limit,
                        &count) == 2)
        {
            reported += count;
        }
    }
    EXPECT_EQ(reported, refused);
}

TEST(ThreadPoolTest, ShutdownEndsAnItemStuckInASystemCallAfterTheJoinLimit)
{
    const std::size_t threadsBefore = SettledThreadCount();
    int never[2];
    ASSERT_EQ(::pipe(never), 0);
    const unsigned long joinLimit = Qib::System::Commons::Threading::Thread::GetJoinLimit();
    Qib::System::Commons::Threading::Thread::SetJoinLimit(50);
    std::promise<void> started;
    std::atomic<bool> returned{false};
    {
        ThreadPool pool(2, 0, 0, 0);
        pool.QueueUserWorkItem([&] {
            started.set_value();
            char byte = 0;
            // Nobody writes: only termination ends this read.
            ::read(never[0], &byte, 1);
            returned = true;
        });
        ASSERT_EQ(started.get_future().wait_for(10s), std::future_status::ready);
        const auto start = std::chrono::steady_clock::now();
        pool.Shutdown();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    }
    EXPECT_FALSE(returned);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
    Qib::System::Commons::Threading::Thread::SetJoinLimit(joinLimit);
    ::close(never[0]);
    ::close(never[1]);
}
