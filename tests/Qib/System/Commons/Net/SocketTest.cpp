// Tests of the host datagram socket on loopback, inside the test's own network namespace (datagrams,
// their source and a port in use are shown by the TFTP server's tests).
#include "Qib/System/Commons/Net/Socket.hpp"

#include "Support/NetworkNamespace.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <thread>

using namespace Qib::System::Commons::Net;
using Clock = std::chrono::steady_clock;

// A server's loop receives without waiting while traffic flows, and waits a little once it is quiet.
TEST(SocketTest, NonBlockingReceiveWaitsOnlyAfterQuietAndAtMostTheReceiveTimeout)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const IpAddress loopback = IpAddress::Parse("127.0.0.1");
    Socket receiver{SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::NonBlocking};
    ASSERT_EQ(receiver.Bind(loopback, 0), SocketError::Success);
    char buffer[16];
    IpAddress source;
    int port = 0;
    SocketError error = SocketError::Success;
    const auto receive = [&] { return receiver.ReceiveFrom(buffer, sizeof(buffer), source, port, error); };

    auto start = Clock::now();
    EXPECT_EQ(receive(), -1);
    EXPECT_GE(Clock::now() - start, Socket::ReceiveTimeout);
    EXPECT_TRUE(error == EAGAIN || error == EWOULDBLOCK) << error;
    // A datagram that arrives during the wait ends it.
    std::thread late([&] {
        std::this_thread::sleep_for(Socket::ReceiveTimeout / 5);
        Socket sender{SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::NonBlocking};
        SocketError sendError = SocketError::Success;
        sender.SendTo("late", 4, loopback, receiver.GetLocalPort(), sendError);
    });
    start = Clock::now();
    EXPECT_EQ(receive(), 4);
    EXPECT_LT(Clock::now() - start, Socket::ReceiveTimeout);
    late.join();
    // Right after traffic the receive does not wait.
    start = Clock::now();
    EXPECT_EQ(receive(), -1);
    EXPECT_LT(Clock::now() - start, Socket::ReceiveTimeout);

    receiver.Close();
    EXPECT_EQ(receiver.GetHandle(), -1);
    receiver.Close(); // closing twice does nothing
    EXPECT_EQ(receiver.SendTo("x", 1, loopback, 9, error), -1);
    EXPECT_EQ(static_cast<int>(error), EBADF);
}
