// The TFTP and BOOTP servers that one configuration describes, built, started and stopped together.
#pragma once

#include "Config.hpp"

#include "Qib/System/Commons/Net/IpAddress.hpp"

#include <cstdint>
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

/// The servers of one configuration. Main thread only.
class ServerSet
{
public:
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

    const std::vector<std::string>& GetWarnings() const { return warnings; }
    const std::vector<Binding>& GetBindings() const { return bindings; }

    /// Starts the enabled servers and returns once each has bound its socket. Throws DaemonExit
    /// when a server does not come up; the set is then stopped.
    void Start();
    /// Stops and destroys the servers. A TFTP server takes up to the host's join limit to stop.
    void Stop();

private:
    void StartTftp();
    void StartBootp();

    Config config;
    std::vector<std::string> warnings;
    std::vector<Binding> bindings;
    std::unique_ptr<VantrelBase::Net::Tftp::TftpServer> tftp;
    std::unique_ptr<VantrelBase::Net::Bootp::BootpServer> bootp;
};

} // namespace VantrelNetd
