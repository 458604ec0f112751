#include "UdpClient.hpp"

#include "TftpDatagrams.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <stdexcept>
#include <vector>

namespace VantrelTest
{

namespace
{

std::mutex portsLock;
std::set<int> portsGiven;

sockaddr* Raw(sockaddr_in& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

} // namespace

UdpClient::UdpClient(const std::string& address) : address(address)
{
    std::lock_guard<std::mutex> guard(portsLock);
    // A port given out before is held open while the kernel offers another.
    std::vector<int> held;
    for (int attempt = 0; attempt < 64 && descriptor < 0; ++attempt)
    {
        held.push_back(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_in local{};
        local.sin_family = AF_INET;
        ::inet_pton(AF_INET, address.c_str(), &local.sin_addr);
        socklen_t length = sizeof(local);
        if (::bind(held.back(), Raw(local), sizeof(local)) != 0 || ::getsockname(held.back(), Raw(local), &length) != 0)
        {
            break;
        }
        port = ntohs(local.sin_port);
        if (portsGiven.insert(port).second)
        {
            descriptor = held.back();
            held.pop_back();
        }
    }
    for (const int unused : held)
    {
        ::close(unused);
    }
    if (descriptor < 0)
    {
        throw std::runtime_error("cannot bind a client socket to " + address);
    }
}

UdpClient::~UdpClient()
{
    ::close(descriptor);
}

std::string UdpClient::Name() const
{
    return address + ":" + std::to_string(port);
}

void UdpClient::Send(const std::string& datagram)
{
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(69);
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::sendto(descriptor, datagram.data(), datagram.size(), 0, Raw(server), sizeof(server)) !=
        static_cast<ssize_t>(datagram.size()))
    {
        throw std::runtime_error("sendto failed");
    }
}

std::optional<Reply> UdpClient::Receive(std::chrono::milliseconds timeout)
{
    pollfd ready{descriptor, POLLIN, 0};
    std::string buffer(65536, '\0');
    sockaddr_in source{};
    socklen_t length = sizeof(source);
    const ssize_t received = ::poll(&ready, 1, static_cast<int>(timeout.count())) != 1
                                 ? -1
                                 : ::recvfrom(descriptor, buffer.data(), buffer.size(), 0, Raw(source), &length);
    if (received < 0)
    {
        return std::nullopt;
    }
    // Every reply must come from the server's port.
    EXPECT_EQ(ntohs(source.sin_port), 69);
    buffer.resize(static_cast<std::size_t>(received));
    Reply reply{0, 0, "", buffer};
    if (buffer.size() >= 4)
    {
        reply.number = WordAt(buffer, 2);
        // An error's message without its terminating zero.
        const bool terminated = WordAt(buffer, 0) == 5 && buffer.size() > 4 && buffer.back() == '\0';
        reply.body = buffer.substr(4, buffer.size() - 4 - (terminated ? 1 : 0));
    }
    reply.opCode = buffer.size() >= 2 ? WordAt(buffer, 0) : 0;
    return reply;
}

std::optional<std::string> UdpClient::Download(const std::string& name)
{
    Send(Request(1, name));
    std::string contents;
    // Bounded: far more blocks than any test file holds.
    for (std::uint32_t block = 1; block < 100000; ++block)
    {
        const auto reply = Receive();
        if (!reply || reply->opCode != 3 || reply->number != static_cast<std::uint16_t>(block))
        {
            return std::nullopt;
        }
        contents += reply->body;
        if (reply->body.size() < 512)
        {
            return contents;
        }
        Send(Ack(static_cast<std::uint16_t>(block)));
    }
    return std::nullopt;
}

bool UdpClient::Upload(const std::string& name, const std::string& contents)
{
    Send(Request(2, name));
    // Block 0 acknowledges the request; each later one the DATA just sent, until a short block.
    for (std::uint32_t block = 0; block < 100000; ++block)
    {
        const auto reply = Receive();
        if (!reply || reply->opCode != 4 || reply->number != static_cast<std::uint16_t>(block))
        {
            return false;
        }
        if (block > 0 && contents.size() < block * 512)
        {
            return true;
        }
        Send(Data(static_cast<std::uint16_t>(block + 1), contents.substr(block * 512, 512)));
    }
    return false;
}

} // namespace VantrelTest
