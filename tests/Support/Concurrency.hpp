// Helpers for tests of threads: run a body on several threads at once, wait (bounded) for a condition.
#pragma once

#include <chrono>
#include <thread>
#include <vector>

namespace VantrelTest
{

/// Runs `body(index)` on `count` threads at once and returns when all of them have ended.
template <typename Body>
void RunConcurrently(int count, Body body)
{
    std::vector<std::thread> threads;
    for (int index = 0; index < count; ++index)
    {
        threads.emplace_back(body, index);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

/// Polls `condition` every millisecond until it holds; false when it still does not after `timeout`.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace VantrelTest
