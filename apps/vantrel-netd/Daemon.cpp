// The daemon's life: host the library, run the configured servers, follow signals, stop cleanly.
#include "Daemon.hpp"

#include "ConfigLoader.hpp"
#include "Confinement.hpp"
#include "DeploymentChecks.hpp"
#include "ExitStatus.hpp"
#include "KeptFolders.hpp"
#include "LibraryHost.hpp"
#include "PartFileSweeper.hpp"
#include "PortProbe.hpp"
#include "SignalWaiter.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

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
    return ConfigLoader::LoadFile(options.ConfigFile);
}

void Daemon::ApplyLogging(const Config& config)
{
    const int level = options.LogLevel >= 0 ? options.LogLevel : config.Logging.Level;
    const std::string& file = !options.LogFile.empty() ? options.LogFile : config.Logging.File;
    daemonLog.Apply(level, file);
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
    std::fputs(config.Describe().c_str(), stdout);
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
    for (const std::string& logFile : {options.LogFile, config.Logging.File})
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
    servers->Start();
    if (config.Tftp.Enabled)
    {
        log.Info("TFTP server on UDP port 69: {0}", config.Tftp.HomePaths.front().Path);
    }
    if (config.Bootp.Enabled)
    {
        log.Info("BOOTP server on {0}:{1} with {2} table entries", config.Bootp.Address.ToString().GetStdString(),
                 config.Bootp.Port, config.Bootp.Hosts.size());
    }
    return servers;
}

void Daemon::Reload(std::unique_ptr<ServerSet>& running, Config& current)
{
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
        // Ports the running servers do not hold can be checked before anything is stopped.
        ProbeBindings(candidate->GetBindings(), running->GetBindings());
    }
    catch (const DaemonExit& error)
    {
        log.Error("Reload refused, the running servers go on: {0}", error.what());
        return;
    }
    ApplyLogging(*next);
    Warn(*next, *candidate);
    candidate.reset();
    running.reset();
    try
    {
        running = StartServers(*next);
        current = std::move(*next);
        log.Info("Reload done");
    }
    catch (const DaemonExit& error)
    {
        log.Error("Reload failed: {0}; restarting the previous servers", error.what());
        ApplyLogging(current);
        running = StartServers(current);
    }
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
    auto sweeper = std::make_unique<PartFileSweeper>(config.Tftp);
    sweeper->SweepAll();
    servers = StartServers(config);

    for (;;)
    {
        sweeper->Pass();
        const int signal = signals.Wait(std::chrono::seconds(1));
        if (signal == SIGINT || signal == SIGTERM)
        {
            log.Info("{0}: stopping", signal == SIGINT ? "SIGINT" : "SIGTERM");
            break;
        }
        if (signal == SIGHUP)
        {
            Reload(servers, config);
            sweeper = std::make_unique<PartFileSweeper>(config.Tftp);
        }
    }
    servers.reset();
    host.Stop();
    log.Info("Stopped");
    return CleanStop;
}

} // namespace VantrelNetd
