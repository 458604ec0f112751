// Tests of the host datagram socket on loopback, inside the test's own network namespace.
#include "Qib/System/Commons/Net/Socket.hpp"

#include "Support/NetworkNamespace.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Net::Socket;
using Qib::System::Commons::Net::SocketBlockingMode;
using Qib::System::Commons::Net::SocketDomain;
using Qib::System::Commons::Net::SocketError;
using Qib::System::Commons::Net::SocketType;

namespace
{

const IpAddress loopback = IpAddress::Parse("127.0.0.1");

Socket MakeSocket(SocketBlockingMode mode)
{
    return Socket(SocketType::Datagram, SocketDomain::Ipv4, mode);
}

} // namespace

TEST(SocketTest, EnumeratorsHaveTheHostNumbers)
{
    EXPECT_EQ(static_cast<int>(SocketType::Stream), 1);
    EXPECT_EQ(static_cast<int>(SocketType::Datagram), 2);
    EXPECT_EQ(static_cast<int>(SocketDomain::Ipv4), 1);
    EXPECT_EQ(static_cast<int>(SocketBlockingMode::Blocking), 1);
    EXPECT_EQ(static_cast<int>(SocketBlockingMode::NonBlocking), 2);
}

TEST(SocketTest, ErrorPrintsAsTheSystemNumber)
{
    EXPECT_EQ(fmt::format("{0}", static_cast<SocketError>(EADDRINUSE)), "98");
    EXPECT_EQ(fmt::format("{0}", SocketError::Success), "0");
}

TEST(SocketTest, SecondBindOfAPortInUseFailsWith98)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    Socket first = MakeSocket(SocketBlockingMode::NonBlocking);
    ASSERT_EQ(first.Bind(loopback, 0), SocketError::Success);
    const int port = first.GetLocalPort();
    ASSERT_GT(port, 0);
    Socket second = MakeSocket(SocketBlockingMode::NonBlocking);
    EXPECT_EQ(static_cast<int>(second.Bind(loopback, port)), 98);
    EXPECT_EQ(static_cast<int>(second.Bind(IpAddress(), port)), 98);
    first.Close();
    EXPECT_EQ(second.Bind(loopback, port), SocketError::Success);
}

TEST(SocketTest, NonBlockingReceiveWaitsOnlyAfterQuietAndAtMostTheReceiveTimeout)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    Socket socket = MakeSocket(SocketBlockingMode::NonBlocking);
    ASSERT_EQ(socket.Bind(loopback, 0), SocketError::Success);
    char buffer[16];
    IpAddress address;
    int port = -7;
    SocketError error = SocketError::Success;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(socket.ReceiveFrom(buffer, sizeof(buffer), address, port, error), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, Socket::ReceiveTimeout);
    EXPECT_TRUE(error == EAGAIN || error == EWOULDBLOCK) << error;
    EXPECT_EQ(port, -7);

    // A datagram that arrives during the wait ends it.
    Socket sender = MakeSocket(SocketBlockingMode::NonBlocking);
    std::thread late([&] {
        std::this_thread::sleep_for(Socket::ReceiveTimeout / 5);
        SocketError sendError = SocketError::Success;
        sender.SendTo("late", 4, loopback, socket.GetLocalPort(), sendError);
    });
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(socket.ReceiveFrom(buffer, sizeof(buffer), address, port, error), 4);
    EXPECT_LT(std::chrono::steady_clock::now() - start, Socket::ReceiveTimeout);
    late.join();

    // Right after traffic the receive does not wait.
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(socket.ReceiveFrom(buffer, sizeof(buffer), address, port, error), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, Socket::ReceiveTimeout);
}

TEST(SocketTest, DatagramTravelsOverLoopbackWithItsSource)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    Socket receiver = MakeSocket(SocketBlockingMode::Blocking);
    Socket sender = MakeSocket(SocketBlockingMode::NonBlocking);
    ASSERT_EQ(receiver.Bind(loopback, 0), SocketError::Success);
    ASSERT_EQ(sender.Bind(loopback, 0), SocketError::Success);

    const std::string payload("\x00\x01hello\x00", 8);
    SocketError error = SocketError::Success;
    EXPECT_EQ(sender.SendTo(payload.data(), payload.size(), loopback, receiver.GetLocalPort(), error), 8);
    EXPECT_EQ(error, SocketError::Success);

    char buffer[64] = {};
    IpAddress source;
    int sourcePort = 0;
    const long received = receiver.ReceiveFrom(buffer, sizeof(buffer), source, sourcePort, error);
    ASSERT_EQ(received, 8);
    EXPECT_EQ(std::string(buffer, 8), payload);
    EXPECT_EQ(source, loopback);
    EXPECT_EQ(sourcePort, sender.GetLocalPort());
    EXPECT_EQ(error, SocketError::Success);
}

TEST(SocketTest, ReceiveIntoASmallBufferKeepsOnlyWhatFits)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    Socket receiver = MakeSocket(SocketBlockingMode::Blocking);
    Socket sender = MakeSocket(SocketBlockingMode::NonBlocking);
    ASSERT_EQ(receiver.Bind(loopback, 0), SocketError::Success);
    SocketError error = SocketError::Success;
    sender.SendTo("0123456789", 10, loopback, receiver.GetLocalPort(), error);
    char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
    IpAddress source;
    int port = 0;
    EXPECT_EQ(receiver.ReceiveFrom(buffer, 4, source, port, error), 4);
    EXPECT_EQ(std::string(buffer, 5), "0123x");
}

TEST(SocketTest, ClosedSocketReportsBadDescriptor)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    Socket socket = MakeSocket(SocketBlockingMode::NonBlocking);
    ASSERT_GE(socket.GetHandle(), 0);
    socket.Close();
    EXPECT_EQ(socket.GetHandle(), -1);
    socket.Close(); // closing twice does nothing
    SocketError error = SocketError::Success;
    EXPECT_EQ(socket.SendTo("x", 1, loopback, 9, error), -1);
    EXPECT_EQ(static_cast<int>(error), EBADF);
    EXPECT_EQ(static_cast<int>(socket.Bind(loopback, 0)), EBADF);
    EXPECT_EQ(socket.GetLocalPort(), 0);
}
