// Helpers of the TFTP tests: a derived server that opens the protected operations, a raw UDP
// client on loopback, a temporary home folder and the fixture that starts a server.
#pragma once

#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace VantrelTest::Tftp
{

using Settings = VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

/// Opens the protected operations of the server to the tests.
class TestServer : public VantrelBase::Net::Tftp::TftpServer
{
public:
    using TftpServer::TftpServer;
    using TftpServer::GetAbsoluteFilepath;
    using TftpServer::GetMaxRetries;
    using TftpServer::GetTimeout;
    using TftpServer::HandleReadRequest;
    using TftpServer::HandleWriteRequest;
};

/// A folder under /tmp, removed with its contents when the object goes.
class TempDirectory
{
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    const std::string& Path() const { return path; }
    std::string operator/(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

/// `size` bytes of a pattern that differs per seed and has no period of 512.
std::string PatternBytes(std::size_t size, unsigned seed = 1);
void WriteFile(const std::string& path, const std::string& contents);
/// The file's contents, or nothing when it cannot be read.
std::optional<std::string> ReadFile(const std::string& path);
bool Exists(const std::string& path);

/// Raw TFTP datagrams built by hand, independent of the codec under test.
std::string Request(std::uint16_t opCode, const std::string& name, const std::string& mode = "octet");
std::string Ack(std::uint16_t block);
std::string Data(std::uint16_t block, const std::string& payload);
std::string Error(std::uint16_t code, const std::string& message);

/// A decoded reply.
struct Reply
{
    std::uint16_t opCode = 0;
    std::uint16_t number = 0; // block or error code
    std::string body;         // payload or error message
    std::string raw;
};

/// A UDP socket bound to a loopback address, talking to the server on 127.0.0.1:69.
class UdpClient
{
public:
    explicit UdpClient(const std::string& address = "127.0.0.1");
    ~UdpClient();
    UdpClient(const UdpClient&) = delete;
    UdpClient& operator=(const UdpClient&) = delete;

    int Port() const { return port; }
    /// "address:port" as the server's log lines show the client.
    std::string Name() const;
    void Send(const std::string& datagram);
    /// The next datagram, or nothing after `timeout`.
    std::optional<Reply> Receive(std::chrono::milliseconds timeout = std::chrono::milliseconds(3000));

    /// A whole download in octet mode, each block acknowledged; nothing when a reply is missing or
    /// not a DATA packet in sequence. `blocks` receives the payload size of each DATA packet.
    std::optional<std::string> Download(const std::string& name, std::vector<std::size_t>* blocks = nullptr);
    /// A whole upload in octet mode; false when any reply is not the expected ACK.
    bool Upload(const std::string& name, const std::string& contents);

private:
    int descriptor = -1;
    std::string address;
    int port = 0;
};

/// Starts a server on port 69 in the test's network namespace with a temporary home folder.
class TftpServerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Downloads and uploads allowed, overwrite allowed, time-out 1 s, 2 retries, 4 threads, the
    /// home folder as the default home.
    Settings DefaultSettings() const;
    /// Starts the server and waits until its socket is bound.
    void StartServer(const Settings& settings);
    void StartServer() { StartServer(DefaultSettings()); }
    /// Stops and destroys the server. A derived server object is stopped before its destruction
    /// begins, so that its main thread never meets a half-destroyed object.
    void StopServer();

    std::unique_ptr<LogCapture> logs = std::make_unique<LogCapture>(8);
    TempDirectory home;
    std::unique_ptr<TestServer> server;
};

} // namespace VantrelTest::Tftp
