// Lookups between IPv4 and hardware addresses through the kernel's ARP table.
#include "VantrelBase/Net/Information/AddressResolution.hpp"

#include "Qib/BasicString.hpp"
#include "VantrelBase/Core/Os/Command.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace VantrelBase::Net::Information
{

namespace
{

// "/proc/net/arp": a header line, then per entry
//   IP address  HW type  Flags  HW address  Mask  Device
//   10.0.0.5    0x1      0x2    00:11:22:33:44:55  *  eth0
constexpr int LineLimit = 500;
constexpr std::size_t FieldSize = 512;

enum class Column
{
    Ip,
    Hardware
};

// Scans the table for the first line whose `key` column equals `wanted`; writes the other address
// column into `answer`. False when the table cannot be opened or holds no such line.
bool FindInTable(const char* tablePath, Column key, const std::string& wanted, std::string& answer)
{
    FILE* table = std::fopen(tablePath, "r");
    if (table == nullptr)
    {
        return false;
    }
    bool found = false;
    char line[LineLimit];
    if (std::fgets(line, LineLimit, table) != nullptr) // the header
    {
        while (!found && std::fgets(line, LineLimit, table) != nullptr)
        {
            char ip[FieldSize] = {};
            char hardware[FieldSize] = {};
            char mask[FieldSize] = {};
            char device[FieldSize] = {};
            unsigned int type = 0;
            unsigned int flags = 0;
            // A line is at most 499 characters, so no field can overflow its buffer.
            const int fields = std::sscanf(line, "%s 0x%x 0x%x %s %s %s\n", ip, &type, &flags, hardware, mask, device);
            if (fields < 4)
            {
                continue; // not an entry line: both address columns are needed
            }
            const char* keyText = key == Column::Ip ? ip : hardware;
            if (wanted == keyText)
            {
                answer = key == Column::Ip ? hardware : ip;
                found = true;
            }
        }
    }
    std::fclose(table);
    return found;
}

} // namespace

const char* const AddressResolution::ArpTablePath = "/proc/net/arp";

bool AddressResolution::TryFindMacAddress(const char* tablePath, const std::string& ipAddress, std::string& macAddress)
{
    return FindInTable(tablePath, Column::Ip, ipAddress, macAddress);
}

bool AddressResolution::TryFindIpAddress(const char* tablePath, const std::string& macAddress, std::string& ipAddress)
{
    return FindInTable(tablePath, Column::Hardware, macAddress, ipAddress);
}

bool AddressResolution::TryResolveMacAddress(const std::string& ipAddress, std::string& macAddress)
{
    macAddress.clear();
    // One echo request makes the kernel learn the peer's hardware address; its outcome does not matter.
    // The text goes in unquoted, as given.
    VantrelBase::Core::Os::Command command;
    command.Execute(Qib::String::Format("ping -c 1 {0}", ipAddress).GetStdString());
    return TryFindMacAddress(ArpTablePath, ipAddress, macAddress);
}

bool AddressResolution::TryResolveMacAddress(const std::string& ipAddress, MacAddress& macAddress)
{
    std::string text;
    if (!TryResolveMacAddress(ipAddress, text))
    {
        return false;
    }
    return MacAddress::TryParse(text, macAddress);
}

bool AddressResolution::TryResolveMacAddress(const IpAddress& ipAddress, std::string& macAddress)
{
    return TryResolveMacAddress(ipAddress.ToString().GetStdString(), macAddress);
}

bool AddressResolution::TryResolveMacAddress(const IpAddress& ipAddress, MacAddress& macAddress)
{
    return TryResolveMacAddress(ipAddress.ToString().GetStdString(), macAddress);
}

bool AddressResolution::TryResolveIpAddress(const std::string& macAddress, std::string& ipAddress)
{
    // Unlike the lookup by IP, the output is deliberately left as it was on a miss.
    return TryFindIpAddress(ArpTablePath, macAddress, ipAddress);
}

bool AddressResolution::TryResolveIpAddress(const std::string& macAddress, IpAddress& ipAddress)
{
    std::string text;
    if (!TryResolveIpAddress(macAddress, text))
    {
        return false;
    }
    ipAddress = IpAddress::Parse(Qib::String(text));
    return true;
}

bool AddressResolution::TryResolveIpAddress(const MacAddress& macAddress, std::string& ipAddress)
{
    // Deliberately the upper-case text, as it is: the kernel prints lower case.
    return TryResolveIpAddress(macAddress.ToString(), ipAddress);
}

bool AddressResolution::TryResolveIpAddress(const MacAddress& macAddress, IpAddress& ipAddress)
{
    return TryResolveIpAddress(macAddress.ToString(), ipAddress);
}

bool AddressResolution::TryResolveLocalIpAddress(const IpAddress& remoteAddress, unsigned int port,
                                                 IpAddress& localIpAddress)
{
    localIpAddress = IpAddress();
    if (port == 0)
    {
        return false;
    }
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1)
    {
        return false;
    }
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(static_cast<std::uint16_t>(port & 0xFFFFU));
    remote.sin_addr.s_addr = remoteAddress.GetValue();
    // Connecting a datagram socket sends nothing; it only makes the kernel pick route and source.
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&remote), sizeof(remote)) == -1)
    {
        ::close(descriptor);
        return false;
    }
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &length) == -1)
    {
        ::close(descriptor);
        return false;
    }
    ::close(descriptor);
    localIpAddress = IpAddress(local.sin_addr.s_addr);
    return true;
}

} // namespace VantrelBase::Net::Information
