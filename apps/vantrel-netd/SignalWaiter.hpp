// Receives SIGINT, SIGTERM and SIGHUP synchronously on the main thread.
#pragma once

#include <signal.h>

#include <chrono>

namespace VantrelNetd
{

/// Blocks SIGINT, SIGTERM and SIGHUP in the calling thread and takes them with sigtimedwait, so that
/// no work is done in an asynchronous handler. Create it on the main thread before any other thread
/// starts: threads inherit the blocked set, so the signals wait for this thread alone. The signals
/// stay blocked after it is gone: it lives as long as the daemon runs, and a second SIGTERM sent
/// while the process ends (a process group's, or a supervisor's) must not end it with its default
/// action and a status other than the clean stop's.
class SignalWaiter
{
public:
    SignalWaiter();
    SignalWaiter(const SignalWaiter&) = delete;
    SignalWaiter& operator=(const SignalWaiter&) = delete;

    /// Waits for one of the signals, at most `timeout`: its number, or 0 when none came.
    int Wait(std::chrono::milliseconds timeout);

private:
    sigset_t handled{};
};

} // namespace VantrelNetd
