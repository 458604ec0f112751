// A fixed set of worker threads that run queued work items in order of arrival.
#pragma once

#include "VantrelBase/Core/CoreExport.hpp"

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

namespace VantrelBase::Core::Os::Threading
{

/// Worker pool. QueueUserWorkItem may be called from any thread. The destructor stops the workers
/// and joins them; items still queued then are dropped (their futures report a broken promise), and
/// no item runs after it returns.
class VANTRELBASE_CORE_EXPORT ThreadPool
{
public:
    /// `threadCount`: workers to start, 0 for one per processor. `maxQueueLength`: items that may wait
    /// at once, 0 for no limit; an item beyond it is refused and its future reports
    /// std::runtime_error. The last two values are reserved and must be 0 (ArgumentException).
    ThreadPool(unsigned long threadCount, unsigned long maxQueueLength, unsigned long reserved1,
               unsigned long reserved2);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    unsigned long GetThreadCount() const;

    /// Queues `work`, wakes one worker and returns the future of its result.
    template <typename Callable>
    auto QueueUserWorkItem(Callable&& work) -> std::future<std::invoke_result_t<std::decay_t<Callable>>>
    {
        using Result = std::invoke_result_t<std::decay_t<Callable>>;
        auto task = std::make_shared<std::packaged_task<Result()>>(std::forward<Callable>(work));
        std::future<Result> result = task->get_future();
        if (!Enqueue([task] { (*task)(); }))
        {
            std::promise<Result> refused;
            refused.set_exception(std::make_exception_ptr(std::runtime_error("ThreadPool queue is full")));
            return refused.get_future();
        }
        return result;
    }

private:
    bool Enqueue(std::function<void()> item);
    void WorkerLoop();

    unsigned long maxQueueLength;
    std::mutex lock;
    std::condition_variable available;
    std::deque<std::function<void()>> queue;
    bool stopping = false;
    std::vector<std::thread> workers;
};

} // namespace VantrelBase::Core::Os::Threading
