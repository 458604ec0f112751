// A fixed set of worker threads that run queued work items in order of arrival.
#include "VantrelBase/Core/Os/Threading/ThreadPool.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"
#include "Qib/System/Commons/Threading/AsynchronousSignalBlock.hpp"

#include <pthread.h>

namespace VantrelBase::Core::Os::Threading
{

ThreadPool::ThreadPool(unsigned long threadCount, unsigned long maxQueueLength, unsigned long reserved1,
                       unsigned long reserved2)
    : maxQueueLength(maxQueueLength)
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
    // Workers never take asynchronous signals: they are left to the thread that waits for them.
    const Qib::System::Commons::Threading::AsynchronousSignalBlock blocked;
    for (unsigned long i = 0; i < threadCount; ++i)
    {
        workers.emplace_back([this] { WorkerLoop(); });
        pthread_setname_np(workers.back().native_handle(), "ThreadPool");
    }
}

ThreadPool::~ThreadPool()
{
    {
        std::lock_guard<std::mutex> guard(lock);
        stopping = true;
        queue.clear();
    }
    available.notify_all();
    for (std::thread& worker : workers)
    {
        worker.join();
    }
}

unsigned long ThreadPool::GetThreadCount() const
{
    return static_cast<unsigned long>(workers.size());
}

bool ThreadPool::Enqueue(std::function<void()> item)
{
    {
        std::lock_guard<std::mutex> guard(lock);
        if (stopping || (maxQueueLength != 0 && queue.size() >= maxQueueLength))
        {
            return false;
        }
        queue.push_back(std::move(item));
    }
    available.notify_one();
    return true;
}

void ThreadPool::WorkerLoop()
{
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
        }
        item();
    }
}

} // namespace VantrelBase::Core::Os::Threading
