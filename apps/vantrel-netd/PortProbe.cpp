// Checks that a UDP port can be bound before a server is started on it.
#include "PortProbe.hpp"

#include "ExitStatus.hpp"

#include <fmt/format.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace VantrelNetd
{

int PortProbe::TryBind(const Qib::System::Commons::Net::IpAddress& address, std::uint16_t port)
{
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
    {
        return errno;
    }
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = address.GetValue();
    int error = 0;
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
    {
        error = errno;
    }
    ::close(descriptor);
    return error;
}

void PortProbe::Require(const std::string& server, const Qib::System::Commons::Net::IpAddress& address,
                        std::uint16_t port)
{
    const int error = TryBind(address, port);
    if (error != 0)
    {
        ThrowFor(error, server, address, port);
    }
}

void PortProbe::ThrowFor(int error, const std::string& server, const Qib::System::Commons::Net::IpAddress& address,
                         std::uint16_t port)
{
    const std::string where = fmt::format("{} cannot bind UDP {}:{}", server, address.ToString().GetStdString(), port);
    if (error == EADDRINUSE)
    {
        throw DaemonExit(PortInUse, fmt::format("{}: the port is in use by another program", where));
    }
    if (error == EACCES || error == EPERM)
    {
        throw DaemonExit(NoPrivilege,
                         fmt::format("{}: permission denied (ports below 1024 need root or CAP_NET_BIND_SERVICE)",
                                     where));
    }
    throw DaemonExit(RuntimeFailure, fmt::format("{}: {}", where, std::strerror(error)));
}

} // namespace VantrelNetd
