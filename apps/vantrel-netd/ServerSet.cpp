// The TFTP and BOOTP servers that one configuration describes, built, started and stopped together.
#include "ServerSet.hpp"

#include "BootpHostTable.hpp"
#include "ExitStatus.hpp"
#include "PortProbe.hpp"

#include "Qib/System/Commons/Threading/Thread.hpp"
#include "VantrelBase/Net/Bootp/BootpServer.hpp"
#include "VantrelBase/Net/Bootp/Configuration/BootpServerSettings.hpp"
#include "VantrelBase/Net/Tftp/Configuration/TftpServerSettings.hpp"
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Threading::Thread;
namespace Tftp = VantrelBase::Net::Tftp;
namespace Bootp = VantrelBase::Net::Bootp;

constexpr std::uint16_t TftpPort = 69;
constexpr auto StartLimit = std::chrono::seconds(5);

// Set by a server's started callback on the server's thread, awaited on the main thread.
class StartSignal
{
public:
    void Raise()
    {
        std::lock_guard<std::mutex> guard(lock);
        raised = true;
        changed.notify_all();
    }

    // Waits until raised or until `gaveUp` says the server will never raise it.
    template <typename Predicate>
    bool Wait(Predicate gaveUp)
    {
        const auto deadline = std::chrono::steady_clock::now() + StartLimit;
        std::unique_lock<std::mutex> guard(lock);
        while (!raised && std::chrono::steady_clock::now() < deadline)
        {
            changed.wait_for(guard, std::chrono::milliseconds(10));
            if (!raised)
            {
                guard.unlock();
                const bool stop = gaveUp();
                guard.lock();
                if (stop)
                {
                    break;
                }
            }
        }
        return raised;
    }

private:
    std::mutex lock;
    std::condition_variable changed;
    bool raised = false;
};

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
    if (config.Tftp.Enabled)
    {
        bindings.push_back(Binding{"TFTP", IpAddress(), TftpPort});
    }
    if (config.Bootp.Enabled)
    {
        if (config.Bootp.Bind)
        {
            bindings.push_back(Binding{"BOOTP", config.Bootp.Address, config.Bootp.Port});
        }
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

void ServerSet::Start()
{
    try
    {
        if (config.Tftp.Enabled)
        {
            StartTftp();
        }
        if (config.Bootp.Enabled)
        {
            StartBootp();
        }
    }
    catch (...)
    {
        Stop();
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
    if (bootp)
    {
        bootp->Stop();
        bootp.reset();
    }
    if (tftp)
    {
        tftp->Stop();
        tftp.reset();
    }
}

} // namespace VantrelNetd
