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
    const auto open = [&] {
        descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(port);
        if (::setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0 ||
            ::setsockopt(descriptor, IPPROTO_IP, IP_PKTINFO, &on, sizeof(on)) != 0 ||
            ::bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0)
        {
            ::close(descriptor);
            descriptor = -1;
        }
    };
    if (peer == nullptr)
    {
        open();
    }
    else
    {
        peer->Within(open);
    }
}

BootpEndpoint::~BootpEndpoint()
{
    ::close(descriptor);
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
    Datagram datagram;
    datagram.bytes.resize(1500);
    iovec part{datagram.bytes.data(), datagram.bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
    msghdr header{&datagram.source, sizeof(datagram.source), &part, 1, control, sizeof(control), 0};
    const bool ready = ::poll(&wait, 1, static_cast<int>(limit.count())) == 1;
    const ssize_t received = ready ? ::recvmsg(descriptor, &header, 0) : -1;
    if (received < 0)
    {
        return std::nullopt;
    }
    datagram.bytes.resize(static_cast<std::size_t>(received));
    const cmsghdr* item = CMSG_FIRSTHDR(&header);
    if (item != nullptr && item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO)
    {
        in_pktinfo info{};
        std::memcpy(&info, CMSG_DATA(item), sizeof(info));
        datagram.destination = info.ipi_addr;
    }
    return datagram;
}

} // namespace VantrelTest
