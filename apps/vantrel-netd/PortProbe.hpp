// Checks that a UDP port can be bound before a server is started on it.
#pragma once

#include "Qib/System/Commons/Net/IpAddress.hpp"

#include <cstdint>
#include <string>

namespace VantrelNetd
{

/// Probe binds of UDP ports. The library's servers only log a failed bind, so the daemon tries
/// each port itself first and reports a failure with one line and its own exit status.
class PortProbe
{
public:
    /// Binds a UDP socket to `address`:`port` and closes it again: 0 when the bind worked, else errno.
    static int TryBind(const Qib::System::Commons::Net::IpAddress& address, std::uint16_t port);

    /// Throws DaemonExit when the port cannot be bound: status 69 when it is in use, 77 without the
    /// privilege for a port below 1024, 1 otherwise. `server` names the server in the message.
    static void Require(const std::string& server, const Qib::System::Commons::Net::IpAddress& address,
                        std::uint16_t port);

    /// The DaemonExit that a bind failure with `error` stands for.
    static void ThrowFor(int error, const std::string& server, const Qib::System::Commons::Net::IpAddress& address,
                         std::uint16_t port);
};

} // namespace VantrelNetd
