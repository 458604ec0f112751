// Tests of the remote service call gateway: local and refused connects, its URL and its log lines.
#include "VantrelBase/Net/Rsc/RscGateway.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Net::Url;
using VantrelBase::Net::Rsc::RscGateway;

namespace
{

const std::string ConnectedLocally = "Connected locally.";

// Deliberate: the target is never filled in, leaving two blanks between "to" and "as".
std::string AttemptLine(const std::string& user)
{
    return "Attempt connect to  as user " + user;
}

} // namespace

TEST(RscGatewayTest, LocalAddressConnectsWithTheTlsUrlAndLogsTheLogon)
{
    VantrelTest::LogCapture capture;
    RscGateway gateway;
    const IpAddress local = IpAddress::Parse("127.0.0.1");

    EXPECT_TRUE(gateway.Connect(local));
    EXPECT_TRUE(gateway.IsConnected());
    EXPECT_EQ(gateway.GetUrl().ToString(), Qib::String("tls://127.0.0.1:41100"));
    EXPECT_EQ(gateway.GetUrl().GetPort(), 41100U);
    EXPECT_FALSE(gateway.IsRemoteConnection());
    EXPECT_FALSE(gateway.IsRemotingSupported());
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].Message, AttemptLine("admin"));
    EXPECT_EQ(records[1].Message, ConnectedLocally);
    for (const auto& record : records)
    {
        EXPECT_EQ(record.Level, 7);
        EXPECT_EQ(record.LoggerName, "VantrelBase.Net.Rsc.RscGateway");
    }

    EXPECT_TRUE(gateway.Connect(local, 8443, "operator", "ignored"));
    EXPECT_EQ(gateway.GetUrl().ToString(), Qib::String("tls://127.0.0.1:8443"));
    EXPECT_TRUE(gateway.Connect(local, 9000));
    EXPECT_EQ(gateway.GetUrl().ToString(), Qib::String("tls://127.0.0.1:9000"));
    EXPECT_TRUE(gateway.Connect(local, std::string("engineer"), std::string("pw")));
    EXPECT_EQ(gateway.GetUrl().ToString(), Qib::String("tls://127.0.0.1:41100"));
    EXPECT_EQ(capture.IndexOf(AttemptLine("operator")), 2);
    EXPECT_EQ(capture.IndexOf(AttemptLine("admin"), 3), 4);
    EXPECT_EQ(capture.IndexOf(AttemptLine("engineer")), 6);
    EXPECT_EQ(capture.Count(ConnectedLocally), 4U);

    // Port 0 surfaces the URL parse error.
    RscGateway other;
    EXPECT_THROW(other.Connect(local, 0), InvalidFormatException);
    EXPECT_FALSE(other.IsConnected());
}

TEST(RscGatewayTest, OtherHostsAreRefusedWithoutChangingState)
{
    VantrelTest::LogCapture capture;
    RscGateway gateway;

    EXPECT_FALSE(gateway.Connect(IpAddress::Parse("10.0.0.1")));
    EXPECT_FALSE(gateway.IsConnected());
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);
    EXPECT_EQ(capture.Messages(), std::vector<std::string>{AttemptLine("admin")});

    // Host texts that only look local are not local: the comparison is exact and case-sensitive.
    for (const char* text : {"tls://LOCALHOST:41100", "tls://Localhost:41100", "tls://127.0.0.10:41100",
                             "tls://localhost.localdomain:41100", "tls://127.0.0.2:41100"})
    {
        EXPECT_FALSE(gateway.Connect(Url::Parse(text))) << text;
    }
    EXPECT_EQ(capture.Count(ConnectedLocally), 0U);
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);

    // A refused connect reports an earlier local connection, which stays in force.
    ASSERT_TRUE(gateway.Connect(Url::Parse("tls://localhost:41100")));
    EXPECT_TRUE(gateway.Connect(IpAddress::Parse("10.0.0.1")));
    EXPECT_TRUE(gateway.Connect(Url::Parse("tls://LOCALHOST:41100"), "operator", "pw"));
    EXPECT_EQ(gateway.GetUrl(), Url::Parse("tls://localhost:41100"));
    EXPECT_TRUE(gateway.IsConnected());
}

TEST(RscGatewayTest, DisconnectAlwaysSucceedsAndEmptiesTheUrl)
{
    RscGateway gateway;
    EXPECT_FALSE(gateway.IsConnected());
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);
    EXPECT_TRUE(gateway.Disconnect());
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);

    const Url localhost = Url::Parse("tls://localhost:41200/rsc");
    ASSERT_TRUE(gateway.Connect(IpAddress::Parse("127.0.0.1")));
    EXPECT_TRUE(gateway.Connect(localhost, "operator", "pw")) << "a later local URL replaces the earlier one";
    EXPECT_EQ(gateway.GetUrl(), localhost);
    EXPECT_FALSE(gateway.IsRemoteConnection()) << "deliberately false for every host";
    EXPECT_TRUE(gateway.Disconnect());
    EXPECT_FALSE(gateway.IsConnected());
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);
    EXPECT_FALSE(gateway.Connect(IpAddress::Parse("10.0.0.1"))) << "nothing earlier is in force any more";
}

TEST(RscGatewayTest, ConcurrentConnectsAreSerialised)
{
    RscGateway gateway;
    std::atomic<int> refusedLocal{0};
    std::vector<std::thread> threads;
    for (unsigned short t = 0; t < 4; ++t)
    {
        threads.emplace_back([&gateway, &refusedLocal, t] {
            for (unsigned short i = 0; i < 50; ++i)
            {
                const auto port = static_cast<unsigned short>(40000 + t * 100 + i);
                if (!gateway.Connect(IpAddress::Parse("127.0.0.1"), port, "operator", "pw"))
                {
                    ++refusedLocal;
                }
                gateway.Connect(IpAddress::Parse("10.0.0.1"), port);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(refusedLocal.load(), 0);
    EXPECT_TRUE(gateway.IsConnected());
    EXPECT_EQ(gateway.GetUrl().GetHost(), Qib::String("127.0.0.1"));
}
