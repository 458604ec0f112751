// Tells systemd (Type=notify) when the daemon is ready, reloading or stopping, and keeps its watchdog fed.
#pragma once

namespace VantrelNetd
{

/// Sends the notify protocol's messages to $NOTIFY_SOCKET; does nothing when the daemon was not
/// started by systemd. Main thread only.
class SystemdNotifier
{
public:
    SystemdNotifier();

    /// The servers run with their ports bound (also after a reload).
    void Ready() const;
    /// A reload starts; systemctl reload waits for the next Ready().
    void Reloading() const;
    void Stopping() const;
    /// Feeds the watchdog (WatchdogSec= in the unit); call at least every second.
    void KeepAlive() const;

private:
    void Send(const char* state) const;

    /// Whether systemd watches this process (WATCHDOG_USEC set for it).
    bool watchdog = false;
};

} // namespace VantrelNetd
