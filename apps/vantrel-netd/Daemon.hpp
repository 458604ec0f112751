// The daemon's life: host the library, run the configured servers, follow signals, stop cleanly.
#pragma once

#include "CommandLine.hpp"
#include "Config.hpp"
#include "DaemonLog.hpp"
#include "PrivilegeDrop.hpp"
#include "ServerSet.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <memory>
#include <optional>

namespace VantrelNetd
{

class SignalWaiter;

/// Runs the daemon from parsed options. Main thread only; one per process.
class Daemon : private Qib::System::Commons::Diagnostics::Logging::Loggable<Daemon>
{
public:
    explicit Daemon(Options options);

    /// Runs until SIGINT or SIGTERM and returns the exit status (0). Throws DaemonExit with one
    /// line and its status on any failure.
    int Run();

    /// Validates the config, prints what would run to standard output and returns 0; throws
    /// ConfigError for a bad config.
    int Check();

private:
    Config LoadConfig() const;
    void ApplyLogging(const Config& config);
    std::vector<std::string> Warnings(const Config& config, const ServerSet& servers) const;
    void Warn(const Config& config, const ServerSet& servers);
    void Confine(const Config& config);
    std::unique_ptr<ServerSet> StartServers(const Config& config);
    void Reload(std::unique_ptr<ServerSet>& running, Config& current);

    Options options;
    DaemonLog daemonLog;
    /// The user the servers run as, when --user names one.
    std::optional<PrivilegeDrop::Account> account;
};

} // namespace VantrelNetd
