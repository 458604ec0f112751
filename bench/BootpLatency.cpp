// BOOTP request-to-reply latency: sends back-to-back boot requests from port 68 on one interface and
// waits for each reply (unicast or broadcast) with the matching transaction id.
// Usage: bootp-latency <interface> <mac aa:bb:cc:dd:ee:ff> <expected ip> <count>
// Prints: answered count, median and p99 latency in microseconds, requests per second (all 0 when
// nothing was answered).
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{

constexpr std::size_t RequestSize = 300;

bool ParseMac(const char* text, std::array<unsigned char, 6>& mac)
{
    unsigned int b[6];
    if (std::sscanf(text, "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) != 6)
    {
        return false;
    }
    for (std::size_t i = 0; i < 6; ++i)
    {
        mac[i] = static_cast<unsigned char>(b[i]);
    }
    return true;
}

std::array<unsigned char, RequestSize> BuildRequest(const std::array<unsigned char, 6>& mac, std::uint32_t xid)
{
    std::array<unsigned char, RequestSize> request{};
    request[0] = 1; // boot request
    request[1] = 1; // Ethernet
    request[2] = 6;
    std::memcpy(&request[4], &xid, sizeof(xid));
    std::memcpy(&request[28], mac.data(), mac.size());
    return request;
}

int OpenClientSocket(const char* interfaceName)
{
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    ::setsockopt(descriptor, SOL_SOCKET, SO_BINDTODEVICE, interfaceName,
                 static_cast<socklen_t>(std::strlen(interfaceName) + 1));
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(68);
    if (::bind(descriptor, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0)
    {
        std::perror("bind 68");
        std::exit(1);
    }
    return descriptor;
}

// Waits for the reply to `xid`; its latency in microseconds, or a negative value on time-out.
double AwaitReply(int descriptor, std::uint32_t xid, std::uint32_t expectedIp,
                  std::chrono::steady_clock::time_point sent)
{
    std::array<unsigned char, 1500> reply{};
    const auto deadline = sent + std::chrono::seconds(1);
    for (;;)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
        {
            return -1;
        }
        pollfd wait{descriptor, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(left.count())) <= 0)
        {
            return -1;
        }
        const ssize_t received = ::recv(descriptor, reply.data(), reply.size(), 0);
        std::uint32_t replyXid = 0;
        std::uint32_t yiaddr = 0;
        if (received >= 24 && reply[0] == 2)
        {
            std::memcpy(&replyXid, &reply[4], sizeof(replyXid));
            std::memcpy(&yiaddr, &reply[16], sizeof(yiaddr));
            if (replyXid == xid && yiaddr == expectedIp)
            {
                return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - sent).count();
            }
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::array<unsigned char, 6> mac{};
    in_addr expected{};
    if (argc != 5 || !ParseMac(argv[2], mac) || ::inet_aton(argv[3], &expected) == 0)
    {
        std::fprintf(stderr, "usage: bootp-latency <interface> <mac> <expected ip> <count>\n");
        return 64;
    }
    const int count = std::atoi(argv[4]);
    const int descriptor = OpenClientSocket(argv[1]);
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(67);
    server.sin_addr.s_addr = INADDR_BROADCAST;

    std::vector<double> latencies;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i)
    {
        const std::uint32_t xid = 0x5eed0000U + static_cast<std::uint32_t>(i);
        const auto request = BuildRequest(mac, xid);
        const auto sent = std::chrono::steady_clock::now();
        ::sendto(descriptor, request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&server), sizeof(server));
        const double latency = AwaitReply(descriptor, xid, expected.s_addr, sent);
        if (latency >= 0)
        {
            latencies.push_back(latency);
        }
    }
    const double total = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ::close(descriptor);
    if (latencies.empty())
    {
        std::printf("0 0 0 0\n");
        return 0;
    }
    std::sort(latencies.begin(), latencies.end());
    const double median = latencies[latencies.size() / 2];
    const double p99 = latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)];
    std::printf("%zu %.1f %.1f %.1f\n", latencies.size(), median, p99, static_cast<double>(latencies.size()) / total);
    return 0;
}
