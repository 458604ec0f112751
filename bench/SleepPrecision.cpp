// Where a pass's time goes: the wake-up latency of a plain 1 ms clock_nanosleep on this machine, and
// how long Thread::Sleep(1) lasts and how much processor time it takes, both on a platform thread.
// Usage: sleep-precision [count]
// Prints: latency of the plain sleep in µs (mean, p10, median, p90, p99) and its processor time per
// call in µs, then Thread::Sleep(1) in ms (mean, median, p99) and its processor time per call in µs.
#include "Qib/System/Commons/Threading/Thread.hpp"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <vector>

using Qib::System::Commons::Threading::Thread;

namespace
{

long long Nanoseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

double Mean(const std::vector<long long>& values)
{
    return static_cast<double>(std::accumulate(values.begin(), values.end(), 0LL)) / static_cast<double>(values.size());
}

// The value at `fraction` of the sorted values.
double At(const std::vector<long long>& sorted, double fraction)
{
    return static_cast<double>(sorted[static_cast<std::size_t>(fraction * static_cast<double>(sorted.size() - 1))]);
}

} // namespace

int main(int argc, char** argv)
{
    const int count = argc > 1 ? std::atoi(argv[1]) : 2000;
    if (count <= 0)
    {
        return 2;
    }
    std::vector<long long> latency;
    std::vector<long long> slept;
    long long plainProcessor = 0;
    long long processor = 0;
    Thread thread(Qib::System::Commons::Threading::ThreadSettings("SleepPrecision"), [&](void*) {
        const long long plainStart = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
        for (int i = 0; i < count; ++i)
        {
            const long long deadline = Nanoseconds(CLOCK_MONOTONIC) + 1000000;
            const timespec until{static_cast<time_t>(deadline / 1000000000LL),
                                 static_cast<long>(deadline % 1000000000LL)};
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
            latency.push_back(Nanoseconds(CLOCK_MONOTONIC) - deadline);
        }
        plainProcessor = Nanoseconds(CLOCK_THREAD_CPUTIME_ID) - plainStart;
        const long long processorStart = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
        for (int i = 0; i < count; ++i)
        {
            const long long start = Nanoseconds(CLOCK_MONOTONIC);
            Thread::Sleep(1);
            slept.push_back(Nanoseconds(CLOCK_MONOTONIC) - start);
        }
        processor = Nanoseconds(CLOCK_THREAD_CPUTIME_ID) - processorStart;
    }, nullptr);
    Thread::SetJoinLimit(static_cast<unsigned long>(count) * 10 + 5000);
    thread.Start();
    thread.Join();
    std::sort(latency.begin(), latency.end());
    std::sort(slept.begin(), slept.end());
    std::printf("%.1f %.1f %.1f %.1f %.1f %.1f %.4f %.4f %.4f %.1f\n", Mean(latency) / 1e3, At(latency, 0.1) / 1e3,
                At(latency, 0.5) / 1e3, At(latency, 0.9) / 1e3, At(latency, 0.99) / 1e3,
                static_cast<double>(plainProcessor) / count / 1e3, Mean(slept) / 1e6,
                At(slept, 0.5) / 1e6, At(slept, 0.99) / 1e6, static_cast<double>(processor) / count / 1e3);
    return 0;
}
