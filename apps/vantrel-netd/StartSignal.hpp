// Tells the main thread that a server's thread has come up.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace VantrelNetd
{

/// Raised by a server's started callback on the server's thread, awaited on the main thread.
/// Shared objects: safe.
class StartSignal
{
public:
    void Raise();

    /// Waits until raised, at most `limit`, or until `gaveUp` says the server will never raise it.
    /// True when raised.
    bool Wait(const std::function<bool()>& gaveUp, std::chrono::milliseconds limit = std::chrono::seconds(5));

private:
    std::mutex lock;
    std::condition_variable changed;
    bool raised = false;
};

} // namespace VantrelNetd
