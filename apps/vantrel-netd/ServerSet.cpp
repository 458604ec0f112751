// The TFTP and BOOTP servers that a configuration describes, started and stopped together or one by one.
#include "ServerSet.hpp"

#include "BootpHostTable.hpp"
#include "ExitStatus.hpp"
#include "PortProbe.hpp"
#include "StartSignal.hpp"

#include "Qib/System/Commons/Threading/Thread.hpp"
#include "VantrelBase/Net/Bootp/BootpServer.hpp"
#include "VantrelBase/Net/Bootp/Configuration/BootpServerSettings.hpp"
#include "VantrelBase/Net/Tftp/Configuration/TftpServerSettings.hpp"
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include <fmt/format.h>

#include <cerrno>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Threading::Thread;
namespace Tftp = VantrelBase::Net::Tftp;
namespace Bootp = VantrelBase::Net::Bootp;

constexpr std::uint16_t TftpPort = 69;
// What a stop waits beyond the time a server's loop needs to end by itself.
constexpr unsigned long JoinMargin = 20;

Tftp::Configuration::TftpServerSettings MakeTftpSettings(const TftpSection& section)
{
    Tftp::Configuration::TftpServerSettings settings{};
    for (const ClientRange& range : section.AllowedClients)
    {
        settings.AllowedClients.push_back({range.First.GetValue(), range.Last.GetValue()});
    }
    for (const HomePathEntry& home : section.HomePaths)
    {
        settings.HomePaths.push_back({home.Alias, home.Path});
    }
    settings.ReadEnabled = section.Read;
    settings.WriteEnabled = section.Write;
    settings.OverwriteEnabled = section.Overwrite;
    settings.Timeout = section.Timeout;
    settings.MaxRetries = section.Retries;
    settings.Verbose = section.Verbose;
    settings.ThreadCount = section.Threads;
    return settings;
}

} // namespace

bool ServerSet::Binding::Overlaps(const Binding& other) const
{
    const IpAddress any;
    return Port == other.Port && (Address == other.Address || Address == any || other.Address == any);
}

ServerSet::ServerSet(const Config& configuration) : config(configuration)
{
    if (config.Bootp.Enabled)
    {
        const BootpHostTable table(config.Bootp.Hosts);
        for (const BootpHost& host : table.GetUnreachable())
        {
            warnings.push_back(fmt::format(
                "{}: {}.mac: {} cannot be found by the BOOTP table's own search (its hardware-address ordering is "
                "not a strict weak ordering), so this device will get no reply; reorder or split the table",
                host.Where.ToString(), host.Key, host.MacAddress));
        }
    }
}

ServerSet::~ServerSet()
{
    Stop();
}

std::vector<ServerSet::Binding> ServerSet::GetBindings() const
{
    std::vector<Binding> bindings;
    if (config.Tftp.Enabled)
    {
        bindings.push_back(Binding{"TFTP", IpAddress(), TftpPort});
    }
    if (config.Bootp.Enabled && config.Bootp.Bind)
    {
        bindings.push_back(Binding{"BOOTP", config.Bootp.Address, config.Bootp.Port});
    }
    return bindings;
}

void ServerSet::Start()
{
    try
    {
        Start(Server::Tftp);
        Start(Server::Bootp);
    }
    catch (...)
    {
        Stop();
        throw;
    }
}

void ServerSet::Start(Server server)
{
    try
    {
        if (server == Server::Tftp && config.Tftp.Enabled)
        {
            StartTftp();
        }
        if (server == Server::Bootp && config.Bootp.Enabled)
        {
            StartBootp();
        }
    }
    catch (...)
    {
        Stop(server);
        Thread::SetAsynchronousCancelability(false);
        throw;
    }
    // Starting a server makes the calling thread asynchronously cancellable; the main thread wants
    // the ordinary deferred kind back.
    Thread::SetAsynchronousCancelability(false);
}

void ServerSet::StartTftp()
{
    tftp = std::make_unique<Tftp::TftpServer>(MakeTftpSettings(config.Tftp));
    auto started = std::make_shared<StartSignal>();
    tftp->startedCallbacks.push_back([started](VantrelBase::Net::IServer&) { started->Raise(); });
    tftp->Start();
    if (!started->Wait([this] { return !tftp->IsRunning(); }))
    {
        throw DaemonExit(RuntimeFailure, "the TFTP server did not start (see the log)");
    }
    // The server only logs a failed bind; a second bind of its port must now be refused.
    const int error = PortProbe::TryBind(IpAddress(), TftpPort);
    if (error != EADDRINUSE)
    {
        throw DaemonExit(RuntimeFailure, "the TFTP server could not bind UDP port 69 (see the log)");
    }
}

void ServerSet::StartBootp()
{
    Bootp::Configuration::BootpServerSettings settings;
    settings.timeout = config.Bootp.Timeout;
    settings.localAddress = config.Bootp.Address;
    settings.localPort = config.Bootp.Port;
    settings.bindSocket = config.Bootp.Bind;
    settings.broadcast = config.Bootp.Broadcast;
    settings.bootserver = config.Bootp.BootServer;
    settings.bootfile = config.Bootp.BootFile;
    settings.ipConfigurations = BootpHostTable(config.Bootp.Hosts).GetTable();
    bootp = std::make_unique<Bootp::BootpServer>(settings);
    auto started = std::make_shared<StartSignal>();
    bootp->startedCallbacks.push_back([started](Bootp::BootpServer&) { started->Raise(); });
    if (assigned)
    {
        bootp->assignedCallbacks.push_back(
            [observer = assigned](Bootp::BootpServer&, VantrelBase::Net::MacAddress& hardware, IpAddress& address) {
                observer(hardware.ToString(), address.ToString().GetStdString());
            });
    }
    bootp->Start();
    if (!started->Wait([this] { return !bootp->IsRunning(); }))
    {
        throw DaemonExit(RuntimeFailure,
                         fmt::format("the BOOTP server could not set up its socket on {}:{} (see the log)",
                                     config.Bootp.Address.ToString().GetStdString(), config.Bootp.Port));
    }
}

void ServerSet::Stop()
{
    Stop(Server::Bootp);
    Stop(Server::Tftp);
}

void ServerSet::Stop(Server server)
{
    // A stop joins a server's thread for at most the host's join limit, then ends it. The BOOTP loop
    // ends by itself within one wait for a request and gets that long; the TFTP loop never ends by
    // itself, so its wait is kept short (the library's Stop is unchanged).
    if (server == Server::Bootp && bootp)
    {
        Thread::SetJoinLimit(JoinMargin + (config.Bootp.Timeout == 0 ? 16UL : config.Bootp.Timeout));
        bootp->Stop();
        bootp.reset();
    }
    if (server == Server::Tftp && tftp)
    {
        Thread::SetJoinLimit(JoinMargin);
        tftp->Stop();
        tftp.reset();
    }
}

void ServerSet::Adopt(Server server, ServerSet& other)
{
    Stop(server);
    if (server == Server::Tftp)
    {
        tftp = std::move(other.tftp);
        config.Tftp = other.config.Tftp;
    }
    else
    {
        bootp = std::move(other.bootp);
        config.Bootp = other.config.Bootp;
    }
}

} // namespace VantrelNetd
