// A UDP endpoint for BOOTP tests: sends crafted messages and receives replies with their addresses.
#pragma once

#include "BootpRequest.hpp"

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace VantrelTest
{

class PeerNamespace;

/// A received datagram, its sender and the address it was sent to.
struct Datagram
{
    Bytes bytes;
    sockaddr_in source{};
    in_addr destination{};
};

/// A UDP socket with broadcast permission, bound to `port` on any address (any port when 0), made
/// inside `peer` when one is given (the socket stays in that namespace).
class BootpEndpoint
{
public:
    explicit BootpEndpoint(std::uint16_t port = 0, const PeerNamespace* peer = nullptr);
    ~BootpEndpoint();
    BootpEndpoint(const BootpEndpoint&) = delete;
    BootpEndpoint& operator=(const BootpEndpoint&) = delete;

    bool Ready() const { return descriptor >= 0; }
    bool Send(const Bytes& message, const std::string& address, std::uint16_t port = 67) const;
    /// The next datagram, or nothing within `limit`.
    std::optional<Datagram> Receive(std::chrono::milliseconds limit = std::chrono::seconds(5)) const;

private:
    int descriptor = -1;
};

} // namespace VantrelTest
