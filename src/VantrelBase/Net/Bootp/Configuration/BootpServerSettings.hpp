// Settings of a BOOTP server, with its table from hardware address to IP address.
#pragma once

#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "VantrelBase/Net/MacAddress.hpp"

#include <cstdint>
#include <map>
#include <string>

namespace VantrelBase::Net::Bootp::Configuration
{

/// Plain settings record of BootpServer; copied and assigned as a whole.
class BootpServerSettings
{
public:
    /// One wait for a datagram, in milliseconds; Start turns 0 into 16.
    std::uint8_t timeout = 0;
    /// Address the socket binds to; 0.0.0.0 is any.
    Qib::System::Commons::Net::IpAddress localAddress;
    /// UDP port the socket binds to, host byte order.
    std::uint16_t localPort = 67;
    /// Whether the socket is bound at all.
    bool bindSocket = true;
    /// Value given to the socket's broadcast permission.
    bool broadcast = true;
    /// Written into the server address field of every reply.
    Qib::System::Commons::Net::IpAddress bootserver;
    /// Written into the boot file field of every reply.
    std::string bootfile;
    /// IP address configured per hardware address. Keyed with MacAddress's own less-than, which is
    /// not a strict weak ordering: with two or more entries, a search may miss an entry it holds.
    std::map<MacAddress, Qib::System::Commons::Net::IpAddress> ipConfigurations;
};

} // namespace VantrelBase::Net::Bootp::Configuration
