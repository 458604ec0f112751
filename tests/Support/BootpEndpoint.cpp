#include "BootpEndpoint.hpp"

#include "PeerNamespace.hpp"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace VantrelTest
{

BootpEndpoint::BootpEndpoint(std::uint16_t port, const PeerNamespace* peer)
{
    if (peer == nullptr)
    {
        Open(port);
    }
    else
    {
        peer->Within([&] { Open(port); });
    }
}

BootpEndpoint::~BootpEndpoint()
{
    if (descriptor >= 0)
    {
        ::close(descriptor);
    }
}

void BootpEndpoint::Open(std::uint16_t port)
{
    const int candidate = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (candidate >= 0 && ::setsockopt(candidate, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) == 0 &&
        ::setsockopt(candidate, IPPROTO_IP, IP_PKTINFO, &on, sizeof(on)) == 0 &&
        ::bind(candidate, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0)
    {
        descriptor = candidate;
    }
    else if (candidate >= 0)
    {
        ::close(candidate);
    }
}

bool BootpEndpoint::Send(const Bytes& message, const std::string& address, std::uint16_t port) const
{
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    server.sin_addr.s_addr = ::inet_addr(address.c_str());
    return ::sendto(descriptor, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&server),
                    sizeof(server)) == static_cast<ssize_t>(message.size());
}

std::optional<Datagram> BootpEndpoint::Receive(std::chrono::milliseconds limit) const
{
    pollfd wait{descriptor, POLLIN, 0};
    if (::poll(&wait, 1, static_cast<int>(limit.count())) != 1)
    {
        return std::nullopt;
    }
    Datagram datagram;
    datagram.bytes.resize(1500);
    iovec part{datagram.bytes.data(), datagram.bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
    msghdr header{};
    header.msg_name = &datagram.source;
    header.msg_namelen = sizeof(datagram.source);
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof(control);
    const ssize_t received = ::recvmsg(descriptor, &header, 0);
    if (received < 0)
    {
        return std::nullopt;
    }
    datagram.bytes.resize(static_cast<std::size_t>(received));
    for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item))
    {
        if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO)
        {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(item), sizeof(info));
            datagram.destination = info.ipi_addr;
        }
    }
    return datagram;
}

} // namespace VantrelTest
