// The daemon's life: host the library, run the configured servers, follow signals, stop cleanly.
#pragma once

#include "CommandLine.hpp"
#include "Config.hpp"
#include "ControlServer.hpp"
#include "DaemonLog.hpp"
#include "PrivilegeDrop.hpp"
#include "ServerSet.hpp"
#include "StatusReport.hpp"
#include "TransferTracker.hpp"
#include "WebServer.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <memory>
#include <mutex>
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

    /// Validates the config and opens the log file as a start would, prints what would run to standard
    /// output and returns 0; throws ConfigError for a bad config, DaemonExit for a log file it cannot open.
    int Check();

private:
    Config LoadConfig() const;
    std::string LogFileOf(const Config& config) const;
    void ApplyLogging(const Config& config);
    std::vector<std::string> Warnings(const Config& config, const ServerSet& servers) const;
    void Warn(const Config& config, const ServerSet& servers);
    void Confine(const Config& config);
    std::unique_ptr<ServerSet> StartServers(const Config& config);
    void Announce(ServerSet::Server server, const Config& config);
    void Reload(ServerSet& running, Config& current, SignalWaiter& signals);
    /// True when `candidate`'s server took over; false when it failed and the previous one runs again.
    bool Restart(ServerSet::Server server, ServerSet& running, ServerSet& candidate);
    bool WaitForTransfers(const TftpSection& tftp, SignalWaiter& signals);
    void ReportCutTransfers(const char* cause);
    void ApplyEvents(const Config& config);
    void OpenControlSocket(const Config& config);
    void OpenWebServer(const Config& config);
    /// Hands the settings and the BOOTP table to the status.
    void Publish(const Config& config);
    nlohmann::json Answer(const nlohmann::json& request);
    nlohmann::json ChangeAssignments(const nlohmann::json& request);
    void TakeSignal(int signal);

    Options options;
    // Declared before the log, so that the log's sink stops handing it records before it goes.
    std::unique_ptr<TransferTracker> tracker;
    std::unique_ptr<StatusReport> status;
    // After the tracker and the status, so that its thread ends before they go.
    std::unique_ptr<ControlServer> control;
    std::unique_ptr<WebServer> web;
    DaemonLog daemonLog;
    /// The user the servers run as, when --user names one.
    std::optional<PrivilegeDrop::Account> account;
    /// Guards the running servers and their config: the main thread reloads and stops them, the control
    /// socket's thread changes the BOOTP table.
    std::mutex serversLock;
    ServerSet* running = nullptr;
    Config* current = nullptr;
    int stopSignal = 0;
    bool reloadAgain = false;
};

} // namespace VantrelNetd
