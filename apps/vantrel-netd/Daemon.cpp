// The daemon's life: host the library, run the configured servers, follow signals, stop cleanly.
#include "Daemon.hpp"

#include "ConfigLoader.hpp"
#include "ExitStatus.hpp"
#include "LibraryHost.hpp"
#include "PortProbe.hpp"
#include "PrivilegeDrop.hpp"
#include "SignalWaiter.hpp"
#include "SystemdNotifier.hpp"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <optional>

#ifndef VANTREL_NETD_VERSION
#define VANTREL_NETD_VERSION "unknown"
#endif

namespace VantrelNetd
{

namespace
{

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

} // namespace

Daemon::Daemon(Options options) : options(std::move(options))
{
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
    if (!options.LogFile.empty())
    {
        daemonLog.Apply(level, LogTarget::File, options.LogFile);
        return;
    }
    daemonLog.Apply(level, config.Logging.Target, config.Logging.File);
}

void Daemon::Warn(const Config& config, const ServerSet& servers)
{
    for (const std::string& warning : config.Warnings)
    {
        log.Warning("{0}", warning);
    }
    for (const std::string& warning : servers.GetWarnings())
    {
        log.Warning("{0}", warning);
    }
}

int Daemon::Check()
{
    const Config config = LoadConfig();
    const ServerSet servers(config);
    std::fputs(config.Describe().c_str(), stdout);
    for (const std::string& warning : config.Warnings)
    {
        std::printf("warning: %s\n", warning.c_str());
    }
    for (const std::string& warning : servers.GetWarnings())
    {
        std::printf("warning: %s\n", warning.c_str());
    }
    std::printf("config OK\n");
    return CleanStop;
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
    std::optional<PrivilegeDrop::Account> account;
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

    LibraryHost host;
    host.Start();
    log.Info("vantrel-netd {0} hosting {1}", VANTREL_NETD_VERSION, host.GetLibraryPath());
    servers = StartServers(config);

    if (account)
    {
        PrivilegeDrop::To(*account);
        log.Info("Running as user {0} (uid {1}, gid {2})", account->Name, account->Uid, account->Gid);
    }

    const SystemdNotifier systemd;
    systemd.Ready();
    for (;;)
    {
        const int signal = signals.Wait(std::chrono::seconds(1));
        systemd.KeepAlive();
        if (signal == SIGINT || signal == SIGTERM)
        {
            log.Info("{0}: stopping", signal == SIGINT ? "SIGINT" : "SIGTERM");
            systemd.Stopping();
            break;
        }
        if (signal == SIGHUP)
        {
            systemd.Reloading();
            Reload(servers, config);
            systemd.Ready();
        }
    }
    servers.reset();
    host.Stop();
    log.Info("Stopped");
    return CleanStop;
}

} // namespace VantrelNetd
