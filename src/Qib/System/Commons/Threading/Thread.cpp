// A host thread on POSIX threads. Every thread system call of the platform layer is in this file.
#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Threading/AsynchronousSignalBlock.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"

#include <cxxabi.h>
#include <sched.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

namespace Qib::System::Commons::Threading
{

namespace
{

std::atomic<unsigned long> joinLimitMilliseconds{1000};

// The system accepts thread names of at most 15 characters.
constexpr std::size_t SystemNameLength = 15;

// Thread::Sleep wakes this long before its deadline to make up for the system's wake-up latency:
// the 10th percentile of the latencies seen, so that nine sleeps in ten wake at or after the
// deadline and the rest wait out at most a few microseconds or sleep once more. Learnt per thread,
// as a thread's timer slack is part of its latency.
thread_local long long wakeUpAdvance = 0;
constexpr double AdvanceQuantile = 0.1;
constexpr long long AdvanceStepNanoseconds = 1000;
// Bounds the advance even where wake-ups are slow, so a sleep never starts far before its deadline.
constexpr long long MaximumAdvanceNanoseconds = 500000;
// The longest a sleep waits for its deadline on the processor.
constexpr long long MaximumSpinNanoseconds = 5000;
// A longer sleep (about a century) is cut to this, which keeps the arithmetic in range.
constexpr long long LongestSleepMilliseconds = 100LL * 365 * 24 * 3600 * 1000;

long long MonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void SleepUntil(long long monotonicNanoseconds)
{
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(monotonicNanoseconds / 1000000000LL);
    deadline.tv_nsec = static_cast<long>(monotonicNanoseconds % 1000000000LL);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR)
    {
    }
}

// One step of a running quantile estimate: up by a small step when the wake-up came later than the
// advance allowed for, down by a larger one when it came earlier.
void LearnWakeUpLatency(long long latency)
{
    const double step = latency > wakeUpAdvance ? AdvanceQuantile : -(1.0 - AdvanceQuantile);
    const long long next = wakeUpAdvance + static_cast<long long>(step * AdvanceStepNanoseconds);
    wakeUpAdvance = std::clamp(next, 0LL, MaximumAdvanceNanoseconds);
}

void LogUnhandled(const std::string& threadName, const char* what)
{
    const auto root = Diagnostics::Logging::Log::rootLogAdapterPtr;
    if (root)
    {
        root->Error("Thread {0} ended by an unhandled exception: {1}", threadName, what);
    }
}

} // namespace

thread_local Thread* Thread::pCurrentThread = nullptr;

Thread::Thread(const ThreadSettings& settings, Body body, void* argument)
    : settings(settings), body(std::move(body)), argument(argument), priority(settings.GetPriority())
{
}

Thread::~Thread()
{
    if (!started)
    {
        return;
    }
    if (pCurrentThread == this)
    {
        // The thread drops the last reference to its own object: nobody is left to join it.
        pCurrentThread = nullptr;
        if (joinable.exchange(false))
        {
            pthread_detach(handle);
        }
        return;
    }
    Terminate();
}

void Thread::Start()
{
    std::lock_guard<std::mutex> control(controlLock);
    if (started)
    {
        throw Qib::Exception("Thread {0} was started already", settings.GetName());
    }
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (settings.GetStackSize() != 0)
    {
        pthread_attr_setstacksize(&attributes, settings.GetStackSize());
    }
    if (settings.GetAffinity() != 0)
    {
        cpu_set_t processors;
        CPU_ZERO(&processors);
        for (unsigned int cpu = 0; cpu < sizeof(unsigned long) * 8; ++cpu)
        {
            if ((settings.GetAffinity() >> cpu) & 1UL)
            {
                CPU_SET(cpu, &processors);
            }
        }
        pthread_attr_setaffinity_np(&attributes, sizeof(processors), &processors);
    }
    running = true;
    joinable = true;
    int result = 0;
    {
        // Signals are for the thread that waits for them (a daemon's main thread); the new thread
        // inherits a mask that holds them off.
        const AsynchronousSignalBlock blocked;
        result = pthread_create(&handle, &attributes, &Thread::Entry, this);
    }
    pthread_attr_destroy(&attributes);
    if (result != 0)
    {
        running = false;
        joinable = false;
        throw Qib::Exception("Cannot start thread {0}: {1}", settings.GetName(), std::strerror(result));
    }
    started = true;
    ApplyPriority();
}

void* Thread::Entry(void* self)
{
    auto* thread = static_cast<Thread*>(self);
    pCurrentThread = thread;
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    pthread_setname_np(pthread_self(), thread->settings.GetName().substr(0, SystemNameLength).c_str());
    thread->Run();
    return nullptr;
}

// A termination reaches the handler below as an exception object at address 0; binding the
// handler's reference to it is how the runtime delivers it, so the null check is left out here.
__attribute__((no_sanitize("null"))) void Thread::Run()
{
    // Runs on every way out of the body, the unwinding of a termination included.
    struct EndMarker
    {
        Thread& thread;
        ~EndMarker() { thread.MarkEnded(); }
    } endMarker{*this};

    try
    {
        body(argument);
    }
    catch (const abi::__forced_unwind&)
    {
        throw; // termination unwinds the stack; it is not an error of the body
    }
    catch (const std::exception& exception)
    {
        LogUnhandled(settings.GetName(), exception.what());
    }
    catch (...)
    {
        LogUnhandled(settings.GetName(), "Unknown exception");
    }
}

void Thread::MarkEnded()
{
    std::lock_guard<std::mutex> state(stateLock);
    ended = true;
    running = false;
    endedCondition.notify_all();
}

bool Thread::IsRunning() const
{
    return running.load();
}

bool Thread::IsJoinable() const
{
    return joinable.load();
}

bool Thread::Join()
{
    if (pCurrentThread == this)
    {
        return false;
    }
    std::lock_guard<std::mutex> control(controlLock);
    if (!joinable)
    {
        return !running;
    }
    {
        std::unique_lock<std::mutex> state(stateLock);
        const auto limit = std::chrono::milliseconds(joinLimitMilliseconds.load());
        if (!endedCondition.wait_for(state, limit, [this] { return ended; }))
        {
            return false;
        }
    }
    ReapHandle();
    return true;
}

void Thread::Terminate()
{
    if (pCurrentThread == this)
    {
        pthread_exit(nullptr);
    }
    std::lock_guard<std::mutex> control(controlLock);
    if (!joinable)
    {
        return;
    }
    pthread_cancel(handle); // without effect when the body has ended already
    ReapHandle();
}

void Thread::ReapHandle()
{
    pthread_join(handle, nullptr);
    joinable = false;
    running = false;
}

void Thread::SetPriority(int value)
{
    priority = value;
    if (running)
    {
        ApplyPriority();
    }
}

void Thread::ApplyPriority()
{
    if (priority != 0)
    {
        // Ordinary threads accept no static priority; the value then stays on the object only.
        pthread_setschedprio(handle, priority);
    }
}

int Thread::GetPriority() const
{
    return priority;
}

const std::string& Thread::GetName() const
{
    return settings.GetName();
}

void Thread::Sleep(unsigned long milliseconds)
{
    if (milliseconds == 0)
    {
        pthread_testcancel();
        return;
    }
    const auto kept = std::min<unsigned long long>(milliseconds, LongestSleepMilliseconds);
    const long long duration = static_cast<long long>(kept) * 1000000LL;
    const long long deadline = MonotonicNanoseconds() + duration;
    const long long early = deadline - wakeUpAdvance;
    SleepUntil(early);
    const long long woke = MonotonicNanoseconds();
    LearnWakeUpLatency(woke - early);
    if (deadline - woke > MaximumSpinNanoseconds)
    {
        SleepUntil(deadline); // woke unusually fast: sleep the rest rather than burn it
        return;
    }
    while (MonotonicNanoseconds() < deadline)
    {
    }
}

void Thread::SetAsynchronousCancelability(bool asynchronous)
{
    pthread_setcanceltype(asynchronous ? PTHREAD_CANCEL_ASYNCHRONOUS : PTHREAD_CANCEL_DEFERRED, nullptr);
}

void Thread::SetJoinLimit(unsigned long milliseconds)
{
    joinLimitMilliseconds = milliseconds;
}

unsigned long Thread::GetJoinLimit()
{
    return joinLimitMilliseconds.load();
}

} // namespace Qib::System::Commons::Threading
