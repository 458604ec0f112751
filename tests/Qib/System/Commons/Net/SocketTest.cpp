// Tests of the host datagram socket on loopback, inside the test's own network namespace (datagrams,
// their source and a port in use are shown by the TFTP server's tests).
#include "Qib/System/Commons/Net/Socket.hpp"

#include "Support/NetworkNamespace.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

using namespace Qib::System::Commons::Net;
using Clock = std::chrono::steady_clock;

namespace
{

const IpAddress loopback = IpAddress::Parse("127.0.0.1");

class SocketTest : public testing::Test
{
protected:
    void SetUp() override
    {
        VANTREL_REQUIRE_NETWORK_NAMESPACE();
        ASSERT_EQ(receiver.Bind(loopback, 0), SocketError::Success);
    }

    long Receive(std::size_t size)
    {
        return receiver.ReceiveFrom(buffer, size, source, sourcePort, error);
    }
    void Send(const std::string& payload)
    {
        SocketError sendError = SocketError::Success;
        EXPECT_EQ(sender.SendTo(payload.data(), payload.size(), loopback, receiver.GetLocalPort(), sendError),
                  static_cast<long>(payload.size()));
    }

    Socket receiver{SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::NonBlocking};
    Socket sender{SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::NonBlocking};
    char buffer[64] = {};
    IpAddress source;
    int sourcePort = -7;
    SocketError error = SocketError::Success;
};

} // namespace

TEST_F(SocketTest, NonBlockingReceiveWaitsOnlyAfterQuietAndAtMostTheReceiveTimeout)
{
    auto start = Clock::now();
    EXPECT_EQ(Receive(sizeof(buffer)), -1);
    EXPECT_GE(Clock::now() - start, Socket::ReceiveTimeout);
    EXPECT_TRUE(error == EAGAIN || error == EWOULDBLOCK) << error;
    EXPECT_EQ(sourcePort, -7);

    // A datagram that arrives during the wait ends it.
    std::thread late([&] {
        std::this_thread::sleep_for(Socket::ReceiveTimeout / 5);
        Send("late");
    });
    start = Clock::now();
    EXPECT_EQ(Receive(sizeof(buffer)), 4);
    EXPECT_LT(Clock::now() - start, Socket::ReceiveTimeout);
    late.join();

    // Right after traffic the receive does not wait.
    start = Clock::now();
    EXPECT_EQ(Receive(sizeof(buffer)), -1);
    EXPECT_LT(Clock::now() - start, Socket::ReceiveTimeout);
}

TEST_F(SocketTest, ClosedSocketReportsBadDescriptor)
{
    receiver.Close();
    EXPECT_EQ(receiver.GetHandle(), -1);
    receiver.Close(); // closing twice does nothing
    EXPECT_EQ(receiver.SendTo("x", 1, loopback, 9, error), -1);
    EXPECT_EQ(static_cast<int>(error), EBADF);
    EXPECT_EQ(static_cast<int>(receiver.Bind(loopback, 0)), EBADF);
    EXPECT_EQ(receiver.GetLocalPort(), 0);
}
