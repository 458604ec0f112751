// Bounds how many lines of one kind the daemon writes in a window, and counts the rest.
#include "RepeatCollapser.hpp"

namespace VantrelNetd
{

bool RepeatCollapser::Admit(const std::string& kind, Clock::time_point now)
{
    Expire(now);
    Count& count = counts[kind];
    if (count.shown == 0)
    {
        count.start = now;
    }
    if (count.shown < Allowed)
    {
        ++count.shown;
        return true;
    }
    ++count.held;
    return false;
}

void RepeatCollapser::Expire(Clock::time_point now)
{
    for (auto it = counts.begin(); it != counts.end();)
    {
        if (now - it->second.start < Window)
        {
            ++it;
            continue;
        }
        if (it->second.held > 0)
        {
            summary(it->first, it->second.held);
        }
        it = counts.erase(it);
    }
}

} // namespace VantrelNetd
