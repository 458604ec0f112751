// Bounds how many lines of one kind the daemon writes in a window, and counts the rest.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace VantrelNetd
{

/// Lets through the first `Allowed` lines of each kind in each window of `Window`; the others are
/// counted, and when the window of that kind is over its count is handed on once ("N more like this").
/// The first line of a kind in a window always passes. One thread: not safe to share.
class RepeatCollapser
{
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds Window{10};
    static constexpr std::uint64_t Allowed = 20;

    /// Called with a kind and the number of its lines held back in the window that ended.
    using Summary = std::function<void(const std::string& kind, std::uint64_t count)>;

    explicit RepeatCollapser(Summary summary) : summary(std::move(summary)) {}

    /// Whether a line of `kind` at `now` is to be written. Ends the windows that are over first.
    bool Admit(const std::string& kind, Clock::time_point now);
    /// Ends the windows that are over at `now`, handing on their counts.
    void Expire(Clock::time_point now);

private:
    struct Count
    {
        Clock::time_point start;
        std::uint64_t shown = 0;
        std::uint64_t held = 0;
    };

    Summary summary;
    std::map<std::string, Count> counts;
};

} // namespace VantrelNetd
