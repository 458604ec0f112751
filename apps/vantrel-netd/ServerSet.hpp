// The TFTP and BOOTP servers that a configuration describes, started and stopped together or one by one.
#pragma once

#include "Config.hpp"

#include "Qib/System/Commons/Net/IpAddress.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace VantrelBase::Net::Tftp
{
class TftpServer;
}
namespace VantrelBase::Net::Bootp
{
class BootpServer;
}

namespace VantrelNetd
{

/// The servers of a configuration. A reload takes over the servers whose settings changed from the
/// set of the new configuration, so a set may hold each server with the settings of another config.
/// Main thread only.
class ServerSet
{
public:
    enum class Server
    {
        Tftp,
        Bootp,
    };

    /// A UDP port a server of the set binds.
    struct Binding
    {
        std::string Server;
        Qib::System::Commons::Net::IpAddress Address;
        std::uint16_t Port = 0;

        /// True when a bind of this one would collide with `other`.
        bool Overlaps(const Binding& other) const;
    };

    /// Builds the enabled servers' settings and objects; starts nothing. Warnings about the BOOTP
    /// table are added to GetWarnings().
    explicit ServerSet(const Config& config);
    /// Stops and destroys the servers, which releases their sockets.
    ~ServerSet();
    ServerSet(const ServerSet&) = delete;
    ServerSet& operator=(const ServerSet&) = delete;

    /// Called on the BOOTP server's thread with the hardware address and the address of each reply it
    /// sends; it must return at once. Takes effect for a BOOTP server started afterwards.
    using AssignedObserver = std::function<void(const std::string& hardware, const std::string& address)>;
    void OnAssigned(AssignedObserver observer) { assigned = std::move(observer); }

    const std::vector<std::string>& GetWarnings() const { return warnings; }
    /// The ports of the enabled servers, as the set holds them now.
    std::vector<Binding> GetBindings() const;
    /// The settings the set runs its servers with (the logging section is the set's own config's).
    const Config& GetConfig() const { return config; }

    /// Starts the enabled servers and returns once each has bound its socket. Throws DaemonExit
    /// when a server does not come up; the set is then stopped.
    void Start();
    /// Starts one server when it is enabled; throws DaemonExit when it does not come up, and it is then stopped.
    void Start(Server server);
    /// Stops and destroys the servers. A TFTP server takes up to the host's join limit to stop.
    void Stop();
    void Stop(Server server);
    /// Takes `other`'s server of that kind, running or not, with its settings; this set's own is stopped first.
    void Adopt(Server server, ServerSet& other);

private:
    void StartTftp();
    void StartBootp();

    Config config;
    std::vector<std::string> warnings;
    AssignedObserver assigned;
    std::unique_ptr<VantrelBase::Net::Tftp::TftpServer> tftp;
    std::unique_ptr<VantrelBase::Net::Bootp::BootpServer> bootp;
};

} // namespace VantrelNetd
