// ICMP echo over a raw IPv4 socket, with the Internet checksum and the name-service helpers it uses.
#pragma once

#include "VantrelBase/Net/NetExport.hpp"

#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace VantrelBase::Net::Icmp
{

/// The Internet checksum of `length` bytes at `data`: the one's complement of the one's complement
/// sum of the 16-bit words read in host byte order; an odd last byte counts as a low-order byte.
/// A length of 0 (or below) gives 0xFFFF.
VANTRELBASE_NET_EXPORT std::uint16_t checksum(const void* data, std::int32_t length);

/// Resolves a host name or dotted address. On success fills `address` (family, port 0, first address)
/// and returns the dotted text of the first address in a malloc buffer the caller frees; null when the
/// name does not resolve (logged at error level through the root log), when either argument is null
/// or when memory runs out. Logs "### Resolving DNS..." at info level first.
VANTRELBASE_NET_EXPORT char* dns_lookup(const char* host, sockaddr_in* address);

/// Resolves dotted IPv4 text to a host name, which is required to exist. Returns the name in a malloc
/// buffer the caller frees, or null (logged at info level through the root log) when there is none.
VANTRELBASE_NET_EXPORT char* reverse_dns_lookup(const char* ipText);

/// Sends ICMP echo requests and logs a one-line summary through the root log. Starts no thread and
/// keeps no state: concurrent calls are independent.
class VANTRELBASE_NET_EXPORT Ping
{
public:
    /// Outcome of Send: `value` is always 0, `status` one of the codes below.
    struct Result
    {
        std::int64_t value;
        std::int32_t status;
    };

    static constexpr std::int32_t StatusSuccess = 0;
    static constexpr std::int32_t StatusSocketOptionFailed = -1;
    static constexpr std::int32_t StatusSocketUnavailable = 11004;
    static constexpr std::int32_t StatusHostNotFound = 11018;

    /// Resolves `host` and sends echo requests to it, one per second, each answered or timed out after
    /// 1 s. A `count` from 1 to 56 sends one request; a larger one sends requests without end; 0 ends
    /// the process with an illegal-instruction trap. `reserved` is not used.
    /// Status: 0 when the summary was written (also without replies), 11018 when the host does not
    /// resolve, 11004 when no raw ICMP socket can be opened (it needs CAP_NET_RAW), -1 when the TTL
    /// cannot be set. The looked-up texts are freed and the socket closed on every way out, including
    /// cancellation of the calling thread.
    static Result Send(const std::string& host, unsigned int reserved, unsigned int count);
};

} // namespace VantrelBase::Net::Icmp
