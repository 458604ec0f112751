// A fixed set of worker threads that run queued work items in order of arrival.
#pragma once

#include "VantrelBase/Core/CoreExport.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace VantrelBase::Core::Os::Threading
{

/// Worker pool. QueueUserWorkItem may be called from any thread. Shutdown (and the destructor) stop
/// the workers within a bound: items still queued are dropped (their futures report a broken
/// promise), and no item runs after it returns.
class VANTRELBASE_CORE_EXPORT ThreadPool
    : private Qib::System::Commons::Diagnostics::Logging::Loggable<ThreadPool>
{
public:
    /// The queue length that 0 stands for. At most this many items wait, so a flood while every
    /// worker is busy holds at most this many items' memory (a TFTP item is its datagram, at most
    /// 64 KiB, and about 300 bytes more).
    static constexpr unsigned long DefaultMaxQueueLength = 256;
    /// Items refused because the queue was full are logged as one count at most this often.
    static constexpr std::chrono::seconds DropReportInterval{5};

    /// `threadCount`: workers to start, 0 for one per processor. `maxQueueLength`: items that may wait
    /// at once, 0 for DefaultMaxQueueLength; an item beyond it is dropped and counted, and its future
    /// reports std::runtime_error. The last two values are reserved and must be 0 (ArgumentException).
    ThreadPool(unsigned long threadCount, unsigned long maxQueueLength, unsigned long reserved1,
               unsigned long reserved2);
    /// Shuts the pool down.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    unsigned long GetThreadCount() const;

    /// Drops the queued items, gives the running ones the host's join limit to end, then terminates
    /// the workers still inside an item (a thread stuck in a system call). Returns within about the
    /// join limit; no item runs afterwards, and later items are refused. Safe to call again.
    void Shutdown();

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
    void RunItem(std::function<void()>& item);
    /// The drops to report now (0 for none); called under `lock`.
    unsigned long TakeDropsToReport(bool regardlessOfInterval);
    void ReportDrops(unsigned long count);

    unsigned long maxQueueLength;
    std::mutex lock;
    std::condition_variable available;
    std::condition_variable itemEnded;
    std::deque<std::function<void()>> queue;
    bool stopping = false;
    unsigned long busyWorkers = 0;
    unsigned long droppedSinceReport = 0;
    std::chrono::steady_clock::time_point lastDropReport{};
    std::vector<std::unique_ptr<Qib::System::Commons::Threading::Thread>> workers;
};

} // namespace VantrelBase::Core::Os::Threading
