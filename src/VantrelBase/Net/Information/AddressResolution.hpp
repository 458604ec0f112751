// Lookups between IPv4 and hardware addresses through the kernel's ARP table.
#pragma once

#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "VantrelBase/Net/MacAddress.hpp"
#include "VantrelBase/Net/NetExport.hpp"

#include <string>

namespace VantrelBase::Net::Information
{

/// Static lookups in "/proc/net/arp" and of the local source address for a remote address. Every
/// operation returns true when found and then writes its output argument; none throws of its own or
/// logs. No state: safe from any thread.
class VANTRELBASE_NET_EXPORT AddressResolution
{
public:
    using IpAddress = Qib::System::Commons::Net::IpAddress;

    /// Hardware address (kernel text form, "00:1a:...") of a dotted IPv4 text. Empties the output
    /// first, then runs "ping -c 1 <ip>" so that the kernel learns the peer, then reads the table; the
    /// first matching line wins, whatever its flags.
    static bool TryResolveMacAddress(const std::string& ipAddress, std::string& macAddress);
    /// As above, parsed into a MacAddress.
    static bool TryResolveMacAddress(const std::string& ipAddress, MacAddress& macAddress);
    static bool TryResolveMacAddress(const IpAddress& ipAddress, std::string& macAddress);
    static bool TryResolveMacAddress(const IpAddress& ipAddress, MacAddress& macAddress);

    /// Dotted IPv4 text of a hardware address given in the kernel's lower-case text form (compared
    /// byte for byte). Sends nothing; the output keeps its value on a miss.
    static bool TryResolveIpAddress(const std::string& macAddress, std::string& ipAddress);
    /// As above, parsed with IpAddress::Parse (whose failure propagates).
    static bool TryResolveIpAddress(const std::string& macAddress, IpAddress& ipAddress);
    /// These pass MacAddress::ToString(), which is upper case: they find only addresses whose text
    /// holds no letter.
    static bool TryResolveIpAddress(const MacAddress& macAddress, std::string& ipAddress);
    static bool TryResolveIpAddress(const MacAddress& macAddress, IpAddress& ipAddress);

    /// The local address the kernel would use to reach `remoteAddress`:`port` (low 16 bits). Sets the
    /// output to 0.0.0.0 first; port 0 and every failed system call give false. Sends nothing.
    static bool TryResolveLocalIpAddress(const IpAddress& remoteAddress, unsigned int port,
                                         IpAddress& localIpAddress);

protected:
    /// The kernel's table, read by the lookups above.
    static const char* const ArpTablePath;

    /// The table lookups on a table file of the kernel's format at `tablePath`; false when the file
    /// cannot be opened. No ping.
    static bool TryFindMacAddress(const char* tablePath, const std::string& ipAddress, std::string& macAddress);
    static bool TryFindIpAddress(const char* tablePath, const std::string& macAddress, std::string& ipAddress);
};

} // namespace VantrelBase::Net::Information
