// Receives SIGINT, SIGTERM and SIGHUP synchronously on the main thread.
#include "SignalWaiter.hpp"

#include <pthread.h>

#include <cerrno>
#include <ctime>

namespace VantrelNetd
{

SignalWaiter::SignalWaiter()
{
    sigemptyset(&handled);
    sigaddset(&handled, SIGINT);
    sigaddset(&handled, SIGTERM);
    sigaddset(&handled, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &handled, nullptr);
}

int SignalWaiter::Wait(std::chrono::milliseconds timeout)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    timespec limit{};
    limit.tv_sec = static_cast<time_t>(seconds.count());
    limit.tv_nsec = static_cast<long>(std::chrono::nanoseconds(timeout - seconds).count());
    for (;;)
    {
        const int signal = ::sigtimedwait(&handled, nullptr, &limit);
        if (signal > 0)
        {
            return signal;
        }
        if (errno != EINTR)
        {
            return 0;
        }
    }
}

} // namespace VantrelNetd
