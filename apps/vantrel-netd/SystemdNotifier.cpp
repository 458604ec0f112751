// Tells systemd (Type=notify) when the daemon is ready, reloading or stopping, and keeps its watchdog fed.
#include "SystemdNotifier.hpp"

#include <fmt/format.h>
#include <systemd/sd-daemon.h>

#include <cstdint>
#include <ctime>

namespace VantrelNetd
{

namespace
{

std::uint64_t MonotonicMicroseconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000u + static_cast<std::uint64_t>(now.tv_nsec) / 1000u;
}

} // namespace

SystemdNotifier::SystemdNotifier()
{
    std::uint64_t interval = 0;
    watchdog = ::sd_watchdog_enabled(0, &interval) > 0;
}

void SystemdNotifier::Ready() const
{
    Send("READY=1\nSTATUS=Serving");
}

void SystemdNotifier::Reloading() const
{
    // systemd matches the reload to the time it was asked for.
    Send(fmt::format("RELOADING=1\nMONOTONIC_USEC={}\nSTATUS=Reloading the config", MonotonicMicroseconds()).c_str());
}

void SystemdNotifier::Stopping() const
{
    Send("STOPPING=1\nSTATUS=Stopping");
}

void SystemdNotifier::KeepAlive() const
{
    if (watchdog)
    {
        Send("WATCHDOG=1");
    }
}

void SystemdNotifier::Send(const char* state) const
{
    // Keeps $NOTIFY_SOCKET for the messages after the first. Without systemd this does nothing, and a
    // message that cannot be sent is not worth stopping the servers for.
    ::sd_notify(0, state);
}

} // namespace VantrelNetd
