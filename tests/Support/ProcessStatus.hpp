// Counts of this process's threads and open file descriptors, for leak checks.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace VantrelTest
{

/// The log writer thread is ended first (LogManager::Flush) and not counted.
std::size_t CountThreads();
std::size_t CountOpenDescriptors();
/// The asynchronous signals a daemon takes (SIGINT, SIGTERM, SIGHUP) and two others: every one of
/// them must be blocked on threads the host layer starts.
const std::vector<int>& AsynchronousSignals();
/// True when `signal` is blocked on the calling thread.
bool IsBlockedHere(int signal);
/// Waits until the thread count is at most `expected` (a thread just joined may be listed a moment
/// longer); the last count seen.
std::size_t WaitForThreadCount(std::size_t expected, std::chrono::milliseconds timeout = std::chrono::seconds(5));

} // namespace VantrelTest
