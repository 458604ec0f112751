// Helpers of the TFTP tests.
#include "TftpTestSupport.hpp"

#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Support/NetworkNamespace.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace VantrelTest::Tftp
{

namespace
{

std::string Word(std::uint16_t value)
{
    return std::string{static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
}

std::uint16_t WordAt(const std::string& bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>((static_cast<unsigned char>(bytes[offset]) << 8) |
                                      static_cast<unsigned char>(bytes[offset + 1]));
}

} // namespace

TempDirectory::TempDirectory()
{
    char pattern[] = "/tmp/vantrel-tftp-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
    {
        throw std::runtime_error("mkdtemp failed");
    }
    path = pattern;
}

TempDirectory::~TempDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string PatternBytes(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    std::uint32_t state = 2463534242U ^ (seed * 2654435761U);
    for (char& byte : bytes)
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<char>(state & 0xFF);
    }
    return bytes;
}

void WriteFile(const std::string& path, const std::string& contents)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

std::optional<std::string> ReadFile(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
    {
        return std::nullopt;
    }
    std::string contents;
    char buffer[4096];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof(buffer), file)) > 0)
    {
        contents.append(buffer, count);
    }
    std::fclose(file);
    return contents;
}

bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

std::string Request(std::uint16_t opCode, const std::string& name, const std::string& mode)
{
    return Word(opCode) + name + std::string(1, '\0') + mode + std::string(1, '\0');
}

std::string Ack(std::uint16_t block)
{
    return Word(4) + Word(block);
}

std::string Data(std::uint16_t block, const std::string& payload)
{
    return Word(3) + Word(block) + payload;
}

std::string Error(std::uint16_t code, const std::string& message)
{
    return Word(5) + Word(code) + message + std::string(1, '\0');
}

UdpClient::UdpClient(const std::string& address) : address(address)
{
    descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    ::inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    if (descriptor < 0 || ::bind(descriptor, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0)
    {
        throw std::runtime_error("cannot bind a client socket to " + address);
    }
    socklen_t length = sizeof(local);
    ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &length);
    port = ntohs(local.sin_port);
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
    if (::sendto(descriptor, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&server),
                 sizeof(server)) != static_cast<ssize_t>(datagram.size()))
    {
        throw std::runtime_error("sendto failed");
    }
}

std::optional<Reply> UdpClient::Receive(std::chrono::milliseconds timeout)
{
    pollfd ready{descriptor, POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(timeout.count())) != 1)
    {
        return std::nullopt;
    }
    std::string buffer(65536, '\0');
    sockaddr_in source{};
    socklen_t length = sizeof(source);
    const ssize_t received =
        ::recvfrom(descriptor, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source), &length);
    if (received < 0)
    {
        return std::nullopt;
    }
    // Every reply must come from the server's port.
    EXPECT_EQ(ntohs(source.sin_port), 69);
    buffer.resize(static_cast<std::size_t>(received));
    Reply reply;
    reply.raw = buffer;
    if (buffer.size() >= 2)
    {
        reply.opCode = WordAt(buffer, 0);
    }
    if (buffer.size() >= 4)
    {
        reply.number = WordAt(buffer, 2);
        reply.body = buffer.substr(4);
        if (reply.opCode == 5 && !reply.body.empty() && reply.body.back() == '\0')
        {
            reply.body.pop_back();
        }
    }
    return reply;
}

std::optional<std::string> UdpClient::Download(const std::string& name, std::vector<std::size_t>* blocks)
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
        if (blocks != nullptr)
        {
            blocks->push_back(reply->body.size());
        }
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
    auto reply = Receive();
    if (!reply || reply->opCode != 4 || reply->number != 0)
    {
        return false;
    }
    std::size_t offset = 0;
    for (std::uint32_t block = 1;; ++block)
    {
        const std::string payload = contents.substr(offset, 512);
        offset += payload.size();
        Send(Data(static_cast<std::uint16_t>(block), payload));
        reply = Receive();
        if (!reply || reply->opCode != 4 || reply->number != static_cast<std::uint16_t>(block))
        {
            return false;
        }
        if (payload.size() < 512)
        {
            return true;
        }
    }
}

void TftpServerTest::SetUp()
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // The main thread's loop never ends by itself: keep the join before its termination short.
    Qib::System::Commons::Threading::Thread::SetJoinLimit(20);
}

void TftpServerTest::TearDown()
{
    StopServer();
}

void TftpServerTest::StopServer()
{
    if (server)
    {
        server->Stop();
        server.reset();
    }
}

Settings TftpServerTest::DefaultSettings() const
{
    Settings settings;
    settings.HomePaths = {{"/", home.Path()}};
    settings.ReadEnabled = true;
    settings.WriteEnabled = true;
    settings.OverwriteEnabled = true;
    settings.Timeout = 1;
    settings.MaxRetries = 2;
    settings.ThreadCount = 4;
    return settings;
}

void TftpServerTest::StartServer(const Settings& settings)
{
    StopServer();
    server = std::make_unique<TestServer>(settings);
    logs->Clear();
    server->Start();
    ASSERT_TRUE(logs->WaitFor("Start main thread work"));
}

} // namespace VantrelTest::Tftp
