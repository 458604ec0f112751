// A host thread: start, bounded join, termination at any cancellation point, precise sleep.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Threading/ThreadSettings.hpp"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace Qib::System::Commons::Threading
{

/// A thread that runs `body(argument)` once. An exception leaving the body is logged at error level
/// and ends only the thread. Start, Join, Terminate and the destructor may be called from any
/// thread, but not concurrently on one object with its destruction.
class QIB_EXPORT Thread
{
public:
    using Body = std::function<void(void*)>;

    Thread(const ThreadSettings& settings, Body body, void* argument);
    /// Terminates the thread first when its body still runs on another thread.
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts the thread; throws Qib::Exception when it was started before or cannot be created.
    void Start();
    /// True from Start until the body returns, throws or is terminated.
    bool IsRunning() const;
    /// True from Start until the thread has been joined or terminated.
    bool IsJoinable() const;
    /// Waits for the body to end, at most the join limit; true when it ended.
    bool Join();
    /// Ends the thread wherever it waits and returns once it has ended; on the thread itself it ends
    /// the thread at once and does not return.
    void Terminate();

    /// Kept on the object; applied to the system thread when the system accepts it.
    void SetPriority(int priority);
    int GetPriority() const;
    const std::string& GetName() const;

    /// Sleeps `milliseconds` against a monotonic deadline, never less; a cancellation point. It learns
    /// the system's wake-up latency and asks to be woken that much early, then waits out at most a
    /// few microseconds on the processor, so that a 1 ms sleep lasts 1 ms rather than 1 ms plus the
    /// latency. A wake-up that comes unusually fast sleeps once more to the deadline.
    static void Sleep(unsigned long milliseconds);
    /// Sets the calling thread's cancellation type to asynchronous (true) or deferred (false).
    static void SetAsynchronousCancelability(bool asynchronous);
    /// How long Join waits at most (default 1000 ms).
    static void SetJoinLimit(unsigned long milliseconds);
    static unsigned long GetJoinLimit();

    /// The Thread object running the calling code; null on threads this layer did not start.
    static thread_local Thread* pCurrentThread;

private:
    static void* Entry(void* self);
    void Run();
    void MarkEnded();
    void ReapHandle();
    void ApplyPriority();

    ThreadSettings settings;
    Body body;
    void* argument;
    std::atomic<int> priority;
    pthread_t handle{};
    std::atomic<bool> running{false};
    std::atomic<bool> joinable{false};
    std::mutex controlLock; // serialises Start, Join and Terminate
    std::mutex stateLock;   // guards `ended`
    std::condition_variable endedCondition;
    bool ended = false;
    bool started = false;
};

} // namespace Qib::System::Commons::Threading
