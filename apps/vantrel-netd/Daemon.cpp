// The daemon's life: host the library, run the configured servers, follow signals, stop cleanly.
#include "Daemon.hpp"

#include "AssignmentChange.hpp"
#include "ConfigChange.hpp"
#include "ConfigLoader.hpp"
#include "Confinement.hpp"
#include "DeploymentChecks.hpp"
#include "ExitStatus.hpp"
#include "HostsFile.hpp"
#include "KeptFolders.hpp"
#include "LibraryHost.hpp"
#include "PartFileSweeper.hpp"
#include "PortProbe.hpp"
#include "SignalWaiter.hpp"
#include "SystemdNotifier.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogLevel.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <initializer_list>

#ifndef VANTREL_NETD_VERSION
#define VANTREL_NETD_VERSION "unknown"
#endif

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;

bool IsStop(int signal)
{
    return signal == SIGINT || signal == SIGTERM;
}

// How long a TFTP restart waits for transfers: the library gives a silent session up after its time-out
// (0 means 10 s), checked in whole seconds.
std::chrono::seconds TransferWaitLimit(const TftpSection& tftp)
{
    return std::chrono::seconds((tftp.Timeout == 0 ? 10 : tftp.Timeout) + 1);
}

// Probes every binding that none of `held` covers: those can be checked while `held` still runs.
void ProbeBindings(const std::vector<ServerSet::Binding>& bindings, const std::vector<ServerSet::Binding>& held)
{
    for (const ServerSet::Binding& binding : bindings)
    {
        bool isHeld = false;
        for (const ServerSet::Binding& other : held)
        {
            isHeld = isHeld || binding.Overlaps(other);
        }
        if (!isHeld)
        {
            PortProbe::Require(binding.Server, binding.Address, binding.Port);
        }
    }
}

// Paths given on the command line, made absolute while the working folder is still the user's.
std::string Absolute(const std::string& path)
{
    std::error_code error;
    return path.empty() ? path : std::filesystem::absolute(path, error).lexically_normal().string();
}

// Hands the host sockets' datagrams to the tracker while it lives; removed on every way out of Run.
class ReceiveObservation
{
public:
    explicit ReceiveObservation(const TransferTracker& tracker)
    {
        Qib::System::Commons::Net::Socket::SetReceiveObserver(tracker.GetReceiveObserver());
    }
    ~ReceiveObservation() { Qib::System::Commons::Net::Socket::SetReceiveObserver(nullptr); }
    ReceiveObservation(const ReceiveObservation&) = delete;
    ReceiveObservation& operator=(const ReceiveObservation&) = delete;
};

// The BOOTP server's replies reach the journal through its assigned callback.
void ObserveAssignments(ServerSet& servers, TransferTracker& tracker)
{
    servers.OnAssigned([&tracker](const std::string& hardware, const std::string& address) {
        tracker.Assigned(hardware, address);
    });
}

} // namespace

Daemon::Daemon(Options options) : options(std::move(options))
{
    this->options.ConfigFile = Absolute(this->options.ConfigFile);
    this->options.LogFile = Absolute(this->options.LogFile);
    this->options.TftpRoot = Absolute(this->options.TftpRoot);
}

Config Daemon::LoadConfig() const
{
    if (options.ConfigFile.empty())
    {
        return ConfigLoader::BuiltIn(options.TftpRoot);
    }
    Config config = ConfigLoader::LoadFile(options.ConfigFile);
    HostsFile::Merge(config);
    return config;
}

std::string Daemon::LogFileOf(const Config& config) const
{
    return !options.LogFile.empty() ? options.LogFile : config.Logging.File;
}

void Daemon::ApplyLogging(const Config& config)
{
    const int level = options.LogLevel >= 0 ? options.LogLevel : config.Logging.Level;
    const LogTarget target = !options.LogFile.empty() ? LogTarget::File : config.Logging.Target;
    daemonLog.Apply(level, target, LogFileOf(config));
}

std::vector<std::string> Daemon::Warnings(const Config& config, const ServerSet& servers) const
{
    std::vector<std::string> warnings = config.Warnings;
    warnings.insert(warnings.end(), servers.GetWarnings().begin(), servers.GetWarnings().end());
    for (std::string& warning : DeploymentChecks::Run(config, account))
    {
        warnings.push_back(std::move(warning));
    }
    return warnings;
}

void Daemon::Warn(const Config& config, const ServerSet& servers)
{
    for (const std::string& warning : Warnings(config, servers))
    {
        log.Warning("{0}", warning);
    }
}

int Daemon::Check()
{
    const Config config = LoadConfig();
    if (!options.User.empty())
    {
        account = PrivilegeDrop::Lookup(options.User);
    }
    const ServerSet servers(config);
    const std::string logFile = LogFileOf(config);
    if (!logFile.empty())
    {
        DaemonLog::OpenFile(logFile);
    }
    std::fputs(config.Describe().c_str(), stdout);
    if (!logFile.empty())
    {
        std::string origin = options.LogFile.empty() ? "from the config" : "from --log-file";
        if (!options.LogFile.empty() && !config.Logging.File.empty())
        {
            origin += ", instead of the config's " + config.Logging.File;
        }
        std::printf("log file: %s (%s, opened for appending)\n", logFile.c_str(), origin.c_str());
    }
    for (const std::string& warning : Warnings(config, servers))
    {
        std::printf("warning: %s\n", warning.c_str());
    }
    std::printf("config OK\n");
    return CleanStop;
}

void Daemon::Confine(const Config& config)
{
    // The files the daemon opens again later stay reachable through their folders.
    if (!options.ConfigFile.empty())
    {
        KeptFolders::Keep(std::filesystem::path(options.ConfigFile).parent_path().string());
    }
    for (const std::string& logFile :
         {options.LogFile, config.Logging.File, config.Logging.Events, config.Bootp.HostsFile})
    {
        if (!logFile.empty())
        {
            KeptFolders::Keep(std::filesystem::path(logFile).parent_path().string());
        }
    }
    if (!config.Confine)
    {
        log.Warning("daemon.confine is false: a TFTP request with \"..\" reaches every file the daemon's user may "
                    "read or write outside the home folders");
        return;
    }
    // The view is built while the main thread is the only one, the log writer included.
    LogManager::Flush();
    const std::string reason = Confinement::Enter(Confinement::For(config, Confinement::DefaultKeptPaths()));
    if (!reason.empty())
    {
        log.Warning("Not confined ({0}): a TFTP request with \"..\" reaches every file the daemon's user may read "
                    "or write outside the home folders; start as root, or sandbox it (see docs/daemon.md)",
                    reason);
        return;
    }
    log.Info("Confined: the file system holds only the home folders ({0})",
             config.Tftp.Enabled && config.Tftp.Write ? "read-write" : "read-only");
}

std::unique_ptr<ServerSet> Daemon::StartServers(const Config& config)
{
    auto servers = std::make_unique<ServerSet>(config);
    ProbeBindings(servers->GetBindings(), {});
    ObserveAssignments(*servers, *tracker);
    servers->Start();
    tracker->SetReadEnabled(config.Tftp.Read);
    Announce(ServerSet::Server::Tftp, config);
    Announce(ServerSet::Server::Bootp, config);
    return servers;
}

void Daemon::Announce(ServerSet::Server server, const Config& config)
{
    if (server == ServerSet::Server::Tftp && config.Tftp.Enabled)
    {
        log.Info("TFTP server on UDP port 69: {0}", config.Tftp.HomePaths.front().Path);
    }
    if (server == ServerSet::Server::Bootp && config.Bootp.Enabled)
    {
        log.Info("BOOTP server on {0}:{1} with {2} table entries", config.Bootp.Address.ToString().GetStdString(),
                 config.Bootp.Port, config.Bootp.Hosts.size());
    }
}

void Daemon::Reload(ServerSet& running, Config& current, SignalWaiter& signals)
{
    // First, so that after logrotate's rename every line of the reload lands in the new file.
    try
    {
        daemonLog.Reopen();
    }
    catch (const DaemonExit& error)
    {
        log.Error("{0}; the log goes on into the file opened before", error.what());
    }
    log.Info("SIGHUP: reloading {0}", options.ConfigFile.empty() ? "the built-in default" : options.ConfigFile);
    std::optional<Config> next;
    std::unique_ptr<ServerSet> candidate;
    try
    {
        next = LoadConfig();
        const std::string confined = Confinement::RefuseChange(Confinement::For(*next, {}));
        if (!confined.empty())
        {
            throw DaemonExit(BadConfig, confined);
        }
        candidate = std::make_unique<ServerSet>(*next);
        ObserveAssignments(*candidate, *tracker);
        // Ports the running servers do not hold can be checked before anything is stopped.
        ProbeBindings(candidate->GetBindings(), running.GetBindings());
        ApplyLogging(*next);
    }
    catch (const DaemonExit& error)
    {
        log.Error("Reload refused, the running servers go on: {0}", error.what());
        return;
    }
    Warn(*next, *candidate);
    const ConfigChange change(current, *next);
    log.Info("Reload: {0}", change.Describe());
    if (change.BootpChanged())
    {
        Restart(ServerSet::Server::Bootp, running, *candidate);
    }
    if (change.TftpChanged())
    {
        if (!WaitForTransfers(current.Tftp, signals))
        {
            return; // a stop came while waiting
        }
        Restart(ServerSet::Server::Tftp, running, *candidate);
        tracker->SetReadEnabled(running.GetConfig().Tftp.Read);
    }
    current.Tftp = running.GetConfig().Tftp;
    current.Bootp = running.GetConfig().Bootp;
    current.Logging = next->Logging;
    ApplyEvents(current);
    Publish(current);
    log.Info("Reload done");
}

bool Daemon::Restart(ServerSet::Server server, ServerSet& running, ServerSet& candidate)
{
    const char* name = server == ServerSet::Server::Tftp ? "tftp" : "bootp";
    running.Stop(server);
    if (server == ServerSet::Server::Tftp)
    {
        ReportCutTransfers("the reload");
    }
    try
    {
        candidate.Start(server);
        running.Adopt(server, candidate);
        Announce(server, running.GetConfig());
        return true;
    }
    catch (const DaemonExit& error)
    {
        log.Error("Reload failed for {0}: {1}; restarting it with its previous settings", name, error.what());
        running.Start(server);
        return false;
    }
}

bool Daemon::WaitForTransfers(const TftpSection& tftp, SignalWaiter& signals)
{
    const std::chrono::seconds limit = TransferWaitLimit(tftp);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    tracker->Settle();
    bool announced = false;
    for (auto running = tracker->InProgress(); !running.empty(); running = tracker->InProgress())
    {
        if (!announced)
        {
            log.Info("tftp: waiting up to {0} s for {1} transfer(s) to end before the restart", limit.count(),
                     running.size());
            announced = true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
        {
            break;
        }
        // The main thread keeps taking signals: a stop ends the wait and the daemon.
        TakeSignal(signals.Wait(std::min(left, std::chrono::milliseconds(100))));
        if (stopSignal != 0)
        {
            return false;
        }
    }
    return true;
}

void Daemon::TakeSignal(int signal)
{
    if (IsStop(signal))
    {
        stopSignal = signal;
    }
    else if (signal == SIGHUP)
    {
        reloadAgain = true;
    }
}

void Daemon::ReportCutTransfers(const char* cause)
{
    tracker->Settle();
    tracker->CutAll(cause);
}

void Daemon::ApplyEvents(const Config& config)
{
    try
    {
        tracker->GetJournal().SetEventsFile(config.Logging.Events.empty() ? nullptr
                                                                          : DaemonLog::OpenFile(config.Logging.Events));
    }
    catch (const DaemonExit& error)
    {
        log.Error("{0}; no journal events are written", error.what());
    }
}

void Daemon::OpenWebServer(const Config& config)
{
    if (config.Web.Enabled)
    {
        web = std::make_unique<WebServer>(config.Web);
    }
}

void Daemon::Publish(const Config& config)
{
    status->SetSettings(config.Describe());
    nlohmann::json table = nlohmann::json::array();
    for (const BootpHost& host : config.Bootp.Enabled ? config.Bootp.Hosts : std::vector<BootpHost>{})
    {
        const bool kept = !config.Bootp.HostsFile.empty() && host.Where.File == config.Bootp.HostsFile;
        table.push_back({{"hardware", host.MacAddress}, {"ip", host.Address.ToString().GetStdString()},
                         {"name", host.Name}, {"source", kept ? "hosts file" : "config"}});
    }
    status->SetAssignments(std::move(table));
}

void Daemon::OpenControlSocket(const Config& config)
{
    const std::string path = config.Control.Socket.empty() ? ControlServer::DefaultPath(options.ConfigFile)
                                                           : config.Control.Socket;
    try
    {
        control = std::make_unique<ControlServer>(path);
    }
    catch (const DaemonExit& error)
    {
        // The servers matter more than the status: they run without it.
        log.Warning("{0}; `vantrel-netd status` cannot reach this daemon", error.what());
    }
}

nlohmann::json Daemon::Answer(const nlohmann::json& request)
{
    const std::string command = request["command"].is_string() ? request["command"].get<std::string>() : "";
    if (command == "status")
    {
        return status->Build();
    }
    if (command == "assign" || command == "unassign")
    {
        try
        {
            return ChangeAssignments(request);
        }
        catch (const DaemonExit& error)
        {
            return {{"error", error.what()}, {"exit_status", error.GetStatus()}};
        }
    }
    return {{"error", fmt::format("unknown command \"{}\" (known: status, assign, unassign)", command)}};
}

// Runs on the control socket's thread; the BOOTP server alone is rebuilt with the new table.
nlohmann::json Daemon::ChangeAssignments(const nlohmann::json& request)
{
    const auto started = std::chrono::steady_clock::now();
    const std::lock_guard<std::mutex> guard(serversLock);
    if (running == nullptr || !current->Bootp.Enabled)
    {
        throw DaemonExit(BadData, "BOOTP is off in the running config: there is no table to change");
    }
    const std::string& file = current->Bootp.HostsFile;
    if (file.empty())
    {
        throw DaemonExit(BadData, "the config names no bootp.hosts_file to keep assignments in: add one and reload");
    }
    std::vector<BootpHost> fixed;
    std::vector<BootpHost> kept;
    for (const BootpHost& host : current->Bootp.Hosts)
    {
        (host.Where.File == file ? kept : fixed).push_back(host);
    }
    AssignmentChange change(fixed, kept);
    if (request.value("command", "") == "unassign")
    {
        change.Unassign(request.value("hardware", ""));
    }
    else
    {
        for (const nlohmann::json& entry : request.value("entries", nlohmann::json::array()))
        {
            change.Assign(AssignmentCsv::Row{entry.value("hardware", ""), entry.value("ip", ""),
                                             entry.value("name", ""), entry.value("where", "")});
        }
    }
    const std::vector<std::string> hidden = change.CheckOrdering(request.value("force", false));
    HostsFile::Save(file, change.GetKept());
    Config next = *current;
    next.Bootp.Hosts = fixed;
    HostsFile::Merge(next);
    ServerSet candidate(next);
    ObserveAssignments(candidate, *tracker);
    if (!Restart(ServerSet::Server::Bootp, *running, candidate))
    {
        HostsFile::Save(file, kept);
        throw DaemonExit(RuntimeFailure, "the BOOTP server did not come up with the new table; it runs with the "
                                         "previous one (see the log)");
    }
    current->Bootp = running->GetConfig().Bootp;
    Publish(*current);
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    log.Info("Assignments changed: the BOOTP table has {0} entries ({1} from {2}), rebuilt in {3} ms",
             current->Bootp.Hosts.size(), change.GetKept().size(), file, took);
    for (const std::string& entry : hidden)
    {
        log.Warning("bootp: forced change: {0} is hidden from the table's own search and gets no reply", entry);
    }
    return {{"entries", current->Bootp.Hosts.size()}, {"hidden", hidden}, {"milliseconds", took}};
}

int Daemon::Run()
{
    // Before any thread exists, so that every thread inherits the blocked signals.
    SignalWaiter signals;

    Config config = LoadConfig();
    if (!options.User.empty())
    {
        account = PrivilegeDrop::Lookup(options.User);
    }
    ApplyLogging(config);

    // Ports first: a port that cannot be bound ends the daemon with its one line before anything runs.
    std::unique_ptr<ServerSet> servers = std::make_unique<ServerSet>(config);
    ProbeBindings(servers->GetBindings(), {});
    Warn(config, *servers);
    servers.reset();
    // Before any thread and before the user switch: the socket belongs to the starting user.
    OpenControlSocket(config);
    OpenWebServer(config);

    // The library is loaded while its file is in sight; the view is confined and the user switched
    // before any server thread exists.
    LibraryHost host;
    host.Start();
    log.Info("vantrel-netd {0} hosting {1}", VANTREL_NETD_VERSION, host.GetLibraryPath());
    Confine(config);
    if (account)
    {
        LogManager::Flush();
        PrivilegeDrop::To(*account);
        log.Info("Running as user {0} (uid {1}, gid {2})", account->Name, account->Uid, account->Gid);
    }
    // The tracker's thread starts once the view is confined and the user switched; it needs the TFTP
    // server's info records whatever level the user reads.
    tracker = std::make_unique<TransferTracker>();
    daemonLog.Observe([watched = tracker.get()](const LogRecord& record) { watched->Observe(record); },
                      static_cast<int>(LogLevel::Info));
    const ReceiveObservation observation(*tracker);
    ApplyEvents(config);
    status = std::make_unique<StatusReport>(*tracker);
    Publish(config);
    if (control)
    {
        control->Start([this](const nlohmann::json& request) { return Answer(request); });
        log.Info("Control socket {0}: `vantrel-netd status` shows transfers and devices", control->GetPath());
    }
    auto sweeper = std::make_unique<PartFileSweeper>(config.Tftp);
    sweeper->SweepAll();
    servers = StartServers(config);
    if (web)
    {
        web->Start([this](const nlohmann::json& request) { return Answer(request); });
        log.Info("{0}", web->Describe());
    }
    {
        const std::lock_guard<std::mutex> guard(serversLock);
        running = servers.get();
        current = &config;
    }

    const SystemdNotifier systemd;
    systemd.Ready();
    while (stopSignal == 0)
    {
        sweeper->Pass();
        // A SIGHUP taken while a reload waited for transfers asks for one more reload.
        const int signal = reloadAgain ? SIGHUP : signals.Wait(std::chrono::seconds(1));
        reloadAgain = false;
        systemd.KeepAlive();
        if (IsStop(signal))
        {
            stopSignal = signal;
        }
        else if (signal == SIGHUP)
        {
            systemd.Reloading();
            const std::lock_guard<std::mutex> guard(serversLock);
            Reload(*servers, config, signals);
            sweeper = std::make_unique<PartFileSweeper>(config.Tftp);
            systemd.Ready();
        }
    }
    log.Info("{0}: stopping", stopSignal == SIGINT ? "SIGINT" : "SIGTERM");
    systemd.Stopping();
    {
        const std::lock_guard<std::mutex> guard(serversLock);
        running = nullptr;
        current = nullptr;
        servers.reset();
    }
    ReportCutTransfers("the stop");
    host.Stop();
    log.Info("Stopped");
    // Every record reaches its sink before the process ends.
    LogManager::Flush();
    return CleanStop;
}

} // namespace VantrelNetd
