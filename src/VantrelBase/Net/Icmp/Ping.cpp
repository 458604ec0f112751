// ICMP echo over a raw IPv4 socket, with the Internet checksum and the name-service helpers it uses.
#include "VantrelBase/Net/Icmp/Ping.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

namespace VantrelBase::Net::Icmp
{

using Qib::System::Commons::Diagnostics::Logging::Log;
using Qib::System::Commons::Diagnostics::Logging::LogAdapter;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;

namespace
{

constexpr std::size_t PacketSize = 64;
constexpr std::size_t HostNameSize = 1025;
constexpr int TimeToLive = 64;
constexpr useconds_t PauseBeforeSend = 1000000;
// Any count up to this value sends one request; a larger one never stops (see Send).
constexpr unsigned int SingleRequestLimit = 56;
// Upper bound for the name-service scratch buffer; a real answer needs a few hundred bytes.
constexpr std::size_t MaxResolverBuffer = 1 << 16;

using Packet = std::array<unsigned char, PacketSize>;
using CText = std::unique_ptr<char, decltype(&std::free)>;

template <typename... Args>
void RootLog(LogLevel level, const std::string& pattern, const Args&... args)
{
    // One copy of the pointer, so that a test emptying the root adapter cannot pull it away mid-call.
    const std::shared_ptr<LogAdapter> adapter = Log::rootLogAdapterPtr;
    if (adapter)
    {
        adapter->Log(level, pattern, args...);
    }
}

void WriteHostOrder16(Packet& packet, std::size_t offset, std::uint16_t value)
{
    std::memcpy(packet.data() + offset, &value, sizeof value);
}

// Echo request, rebuilt for every pass; the reply is received into the same buffer.
//
//   0        1        2                 4                 6                 8              63   64
//  +--------+--------+-----------------+-----------------+-----------------+---------------+----+
//  | type 8 | code 0 | checksum        | identifier      | sequence        | '0' .. 'f'    | 0  |
//  +--------+--------+-----------------+-----------------+-----------------+---------------+----+
//
// Checksum, identifier and sequence are in host byte order: the checksum is byte-order neutral,
// and identifier and sequence are only ever read back by this host.
void BuildEchoRequest(Packet& packet, std::uint16_t identifier, std::uint16_t sequence)
{
    packet.fill(0);
    packet[0] = 8;
    packet[1] = 0;
    WriteHostOrder16(packet, 4, identifier);
    WriteHostOrder16(packet, 6, sequence);
    for (std::size_t i = 0; i < 55; ++i)
    {
        packet[8 + i] = static_cast<unsigned char>('0' + i);
    }
    packet[63] = 0;
    WriteHostOrder16(packet, 2, checksum(packet.data(), static_cast<std::int32_t>(packet.size())));
}

// Owns the raw socket, so that it is closed on every way out of Send, also when the calling thread is
// cancelled in the endless mode. Closing holds cancellation off: a destructor must not be a
// cancellation point.
class SocketGuard
{
public:
    explicit SocketGuard(int descriptor) : descriptor(descriptor) {}
    ~SocketGuard()
    {
        if (descriptor >= 0)
        {
            int previous = 0;
            ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
            ::close(descriptor);
            ::pthread_setcancelstate(previous, nullptr);
        }
    }
    SocketGuard(const SocketGuard&) = delete;
    SocketGuard& operator=(const SocketGuard&) = delete;

private:
    int descriptor;
};

timespec MonotonicNow()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

long double MillisecondsBetween(const timespec& start, const timespec& end)
{
    return static_cast<long double>(end.tv_sec - start.tv_sec) * 1000.0L +
           static_cast<long double>(end.tv_nsec - start.tv_nsec) / 1000000.0L;
}

// The host's first IPv4 address, through the reentrant name-service call so that concurrent lookups
// stay independent. False when the name does not resolve.
bool ResolveFirstAddress(const char* host, sockaddr_in& address, char* text, std::size_t textSize)
{
    std::vector<char> scratch(1024);
    hostent entry{};
    hostent* found = nullptr;
    int error = 0;
    int result = 0;
    while ((result = ::gethostbyname_r(host, &entry, scratch.data(), scratch.size(), &found, &error)) == ERANGE &&
           scratch.size() < MaxResolverBuffer)
    {
        scratch.resize(scratch.size() * 2);
    }
    if (result != 0 || found == nullptr || found->h_addr_list == nullptr || found->h_addr_list[0] == nullptr)
    {
        return false;
    }
    in_addr first{};
    std::memcpy(&first, found->h_addr_list[0],
                std::min(sizeof first, static_cast<std::size_t>(std::max(found->h_length, 0))));
    if (::inet_ntop(AF_INET, &first, text, static_cast<socklen_t>(textSize)) == nullptr)
    {
        return false;
    }
    address.sin_family = static_cast<sa_family_t>(found->h_addrtype);
    address.sin_port = 0;
    address.sin_addr = first;
    return true;
}

} // namespace

std::uint16_t checksum(const void* data, std::int32_t length)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::uint32_t sum = 0;
    std::int32_t remaining = length;
    while (remaining >= 2)
    {
        std::uint16_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        sum += word;
        bytes += 2;
        remaining -= 2;
    }
    if (remaining == 1)
    {
        sum += *bytes;
    }
    sum = (sum >> 16) + (sum & 0xFFFFU);
    sum += sum >> 16;
    return static_cast<std::uint16_t>(~sum);
}

char* dns_lookup(const char* host, sockaddr_in* address)
{
    RootLog(LogLevel::Info, "### Resolving DNS...");
    auto* text = static_cast<char*>(std::malloc(HostNameSize));
    if (text == nullptr)
    {
        return nullptr;
    }
    if (host == nullptr || address == nullptr || !ResolveFirstAddress(host, *address, text, HostNameSize))
    {
        // Deliberate: the template has no {0}, so "%s" is written as it stands and the name is not.
        RootLog(LogLevel::Error, "DNS resolution failed for host: %s", std::string(host == nullptr ? "" : host));
        std::free(text);
        return nullptr;
    }
    return text;
}

char* reverse_dns_lookup(const char* ipText)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ipText == nullptr ? INADDR_NONE : ::inet_addr(ipText);
    std::array<char, HostNameSize> name{};
    if (ipText == nullptr || ::getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, name.data(),
                                           static_cast<socklen_t>(name.size()), nullptr, 0, NI_NAMEREQD) != 0)
    {
        RootLog(LogLevel::Info, "Could not resolve reverse lookup of hostname\n");
        return nullptr;
    }
    const std::size_t length = std::strlen(name.data());
    auto* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy != nullptr)
    {
        std::memcpy(copy, name.data(), length + 1);
    }
    return copy;
}

Ping::Result Ping::Send(const std::string& host, unsigned int /*reserved*/, unsigned int count)
{
    sockaddr_in destination{};
    const CText resolved(dns_lookup(host.c_str(), &destination), &std::free);
    if (!resolved)
    {
        return Result{0, StatusHostNotFound};
    }
    // The name is looked up for its log line only.
    const CText reverseName(reverse_dns_lookup(resolved.get()), &std::free);

    const int descriptor = ::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (descriptor < 0)
    {
        return Result{0, StatusSocketUnavailable};
    }
    const SocketGuard closeAtEnd(descriptor);
    const timespec runStart = MonotonicNow();

    const int ttl = TimeToLive;
    if (::setsockopt(descriptor, IPPROTO_IP, IP_TTL, &ttl, sizeof ttl) != 0)
    {
        RootLog(LogLevel::Info, "Setting socket options to TTL failed!");
        return Result{0, StatusSocketOptionFailed};
    }
    timeval receiveTimeout{};
    receiveTimeout.tv_sec = 1;
    receiveTimeout.tv_usec = 0;
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &receiveTimeout, sizeof receiveTimeout);

    const auto identifier = static_cast<std::uint16_t>(::getpid() & 0xFFFF);
    Packet packet{};
    int sent = 0;
    int received = 0;
    // Deliberate: the loop goes on while count exceeds 56, not until count requests are sent, so 1 to
    // 56 send one request and anything larger never stops. A count of 0 sends nothing.
    if (count > 0)
    {
        bool firstPass = true;
        do
        {
            const auto sequence = static_cast<std::uint16_t>(sent);
            ++sent;
            BuildEchoRequest(packet, identifier, sequence);
            ::usleep(PauseBeforeSend);
            const ssize_t sentBytes = ::sendto(descriptor, packet.data(), packet.size(), 0,
                                               reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
            sockaddr_in source{};
            socklen_t sourceLength = sizeof source;
            const ssize_t receivedBytes = ::recvfrom(descriptor, packet.data(), packet.size(), 0,
                                                     reinterpret_cast<sockaddr*>(&source), &sourceLength);
            if (receivedBytes > 0 || firstPass)
            {
                // A raw socket hands over the IPv4 header first: 69 0 is version 4, 20-byte header,
                // type of service 0. Deliberate acceptance rule; the request itself (looped back on
                // 127.0.0.1) passes it too, while an untouched buffer (first byte 8) does not.
                if (sentBytes > 0 && packet[0] == 69 && packet[1] == 0)
                {
                    ++received;
                }
            }
            firstPass = false;
        } while (count > SingleRequestLimit);
    }
    const timespec runEnd = MonotonicNow();
    if (sent == 0)
    {
        // Deliberate: the loss quotient below has no meaning without a request; the call ends the
        // process with an illegal-instruction trap instead of returning.
        __builtin_trap();
    }

    const double loss = static_cast<double>((sent - received) / sent) * 100.0;
    RootLog(LogLevel::Info, "{0} packets sent, {1} packets received, {2} percent packet loss.Total time : {3} ms.",
            sent, received, loss, MillisecondsBetween(runStart, runEnd));
    return Result{0, StatusSuccess};
}

} // namespace VantrelBase::Net::Icmp
