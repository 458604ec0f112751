// Tells the main thread that a server's thread has come up.
#include "StartSignal.hpp"

namespace VantrelNetd
{

void StartSignal::Raise()
{
    std::lock_guard<std::mutex> guard(lock);
    raised = true;
    changed.notify_all();
}

bool StartSignal::Wait(const std::function<bool()>& gaveUp, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> guard(lock);
    while (!raised && std::chrono::steady_clock::now() < deadline)
    {
        changed.wait_for(guard, std::chrono::milliseconds(10));
        if (!raised)
        {
            guard.unlock();
            const bool stop = gaveUp();
            guard.lock();
            if (stop)
            {
                break;
            }
        }
    }
    return raised;
}

} // namespace VantrelNetd
