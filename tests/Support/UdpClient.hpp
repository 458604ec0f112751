// A TFTP client on a loopback UDP socket, byte by byte, for tests of the server on 127.0.0.1:69.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace VantrelTest
{

/// A decoded reply.
struct Reply
{
    std::uint16_t opCode = 0;
    std::uint16_t number = 0; // block or error code
    std::string body;         // payload or error message
    std::string raw;
};

/// Each client of a test process gets a port no earlier client of the process had: the server may
/// still hold a session for a closed client's port, and a new client on it would be taken for that one.
class UdpClient
{
public:
    explicit UdpClient(const std::string& address = "127.0.0.1");
    ~UdpClient();
    UdpClient(const UdpClient&) = delete;
    UdpClient& operator=(const UdpClient&) = delete;

    /// "address:port" as the server's log lines show the client.
    std::string Name() const;
    void Send(const std::string& datagram);
    /// The next datagram, or nothing after `timeout`.
    std::optional<Reply> Receive(std::chrono::milliseconds timeout = std::chrono::milliseconds(3000));

    /// A whole download in octet mode, each block acknowledged; nothing when a reply is missing or
    /// not a DATA packet in sequence.
    std::optional<std::string> Download(const std::string& name);
    /// A whole upload in octet mode; false when any reply is not the expected ACK.
    bool Upload(const std::string& name, const std::string& contents);

private:
    int descriptor = -1;
    std::string address;
    int port = 0;
};

} // namespace VantrelTest
