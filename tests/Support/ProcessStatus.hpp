// Counts of this process's threads and open file descriptors, for leak checks.
#pragma once

#include <chrono>
#include <cstddef>

namespace VantrelTest
{

/// The log writer thread is ended first (LogManager::Flush) and not counted.
std::size_t CountThreads();
std::size_t CountOpenDescriptors();
/// Waits until the thread count is at most `expected`; the last count seen.
std::size_t WaitForThreadCount(std::size_t expected, std::chrono::milliseconds timeout = std::chrono::seconds(5));

} // namespace VantrelTest
