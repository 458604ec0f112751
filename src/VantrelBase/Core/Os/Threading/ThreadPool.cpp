// A fixed set of worker threads that run queued work items in order of arrival.
#include "VantrelBase/Core/Os/Threading/ThreadPool.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"
#include "Qib/System/Commons/Threading/AsynchronousSignalBlock.hpp"

#include <pthread.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace VantrelBase::Core::Os::Threading
{

using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;

namespace
{

void SetCancellation(bool enabled)
{
    pthread_setcancelstate(enabled ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE, nullptr);
}

} // namespace

ThreadPool::ThreadPool(unsigned long threadCount, unsigned long maxQueueLength, unsigned long reserved1,
                       unsigned long reserved2)
    : maxQueueLength(maxQueueLength == 0 ? DefaultMaxQueueLength : maxQueueLength)
{
    if (reserved1 != 0 || reserved2 != 0)
    {
        throw Qib::System::Commons::ArgumentException("ThreadPool: the third and fourth parameters must be 0");
    }
    if (threadCount == 0)
    {
        threadCount = std::max(1U, std::thread::hardware_concurrency());
    }
    workers.reserve(threadCount);
    try
    {
        for (unsigned long i = 0; i < threadCount; ++i)
        {
            workers.push_back(
                std::make_unique<Thread>(ThreadSettings("ThreadPool"), [this](void*) { WorkerLoop(); }, nullptr));
            workers.back()->Start();
        }
    }
    catch (...)
    {
        Shutdown();
        throw;
    }
}

ThreadPool::~ThreadPool()
{
    Shutdown();
}

unsigned long ThreadPool::GetThreadCount() const
{
    return static_cast<unsigned long>(workers.size());
}

void ThreadPool::Shutdown()
{
    std::deque<std::function<void()>> dropped;
    bool ended = false;
    unsigned long drops = 0;
    {
        std::unique_lock<std::mutex> guard(lock);
        stopping = true;
        dropped.swap(queue);
        drops = TakeDropsToReport(true);
        available.notify_all();
        const auto limit = std::chrono::milliseconds(Thread::GetJoinLimit());
        ended = itemEnded.wait_for(guard, limit, [this] { return busyWorkers == 0; });
    }
    dropped.clear();
    for (const auto& worker : workers)
    {
        // Idle workers have left their loop; one still inside an item after the limit is ended at
        // its next cancellation point (an open or read that never returns is one).
        if (!ended || !worker->Join())
        {
            worker->Terminate();
        }
    }
    ReportDrops(drops);
}

bool ThreadPool::Enqueue(std::function<void()> item)
{
    bool accepted = false;
    unsigned long drops = 0;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (stopping)
        {
            return false;
        }
        accepted = queue.size() < maxQueueLength;
        if (accepted)
        {
            queue.push_back(std::move(item));
        }
        else
        {
            ++droppedSinceReport;
        }
        drops = TakeDropsToReport(false);
    }
    if (accepted)
    {
        available.notify_one();
    }
    ReportDrops(drops);
    return accepted;
}

unsigned long ThreadPool::TakeDropsToReport(bool regardlessOfInterval)
{
    const auto now = std::chrono::steady_clock::now();
    if (droppedSinceReport == 0 || (!regardlessOfInterval && now - lastDropReport < DropReportInterval))
    {
        return 0;
    }
    lastDropReport = now;
    return std::exchange(droppedSinceReport, 0UL);
}

void ThreadPool::ReportDrops(unsigned long count)
{
    if (count != 0)
    {
        log.Warning("Work queue full ({0} items waiting): {1} work items dropped", maxQueueLength, count);
    }
}

void ThreadPool::WorkerLoop()
{
    // A worker may be terminated only inside an item: the queue's lock and waits stay consistent.
    SetCancellation(false);
    for (;;)
    {
        std::function<void()> item;
        {
            std::unique_lock<std::mutex> guard(lock);
            available.wait(guard, [this] { return stopping || !queue.empty(); });
            if (stopping)
            {
                return;
            }
            item = std::move(queue.front());
            queue.pop_front();
            ++busyWorkers;
        }
        RunItem(item);
    }
}

void ThreadPool::RunItem(std::function<void()>& item)
{
    // Also runs while a termination unwinds the item.
    struct Leave
    {
        ThreadPool& pool;
        ~Leave()
        {
            SetCancellation(false);
            std::lock_guard<std::mutex> guard(pool.lock);
            --pool.busyWorkers;
            pool.itemEnded.notify_all();
        }
    } leave{*this};
    SetCancellation(true);
    item();
}

} // namespace VantrelBase::Core::Os::Threading
