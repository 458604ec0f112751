// Tests of the remote service call gateway: local and refused connects, its URL and its log lines.
#include "VantrelBase/Net/Rsc/RscGateway.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/Concurrency.hpp"
#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Net::Url;
using VantrelBase::Net::Rsc::RscGateway;

namespace
{

const IpAddress Local = IpAddress::Parse("127.0.0.1");
const IpAddress Remote = IpAddress::Parse("10.0.0.1");

} // namespace

TEST(RscGatewayTest, EveryLocalConnectTakesItsUrlAndLogsTheLogonAtDebug)
{
    struct Row
    {
        std::function<bool(RscGateway&)> connect;
        const char* url;
        const char* user;
    };
    const Row rows[] = {
        {[](RscGateway& g) { return g.Connect(Local); }, "tls://127.0.0.1:41100", "admin"},
        {[](RscGateway& g) { return g.Connect(Local, 9000); }, "tls://127.0.0.1:9000", "admin"},
        {[](RscGateway& g) { return g.Connect(Local, 8443, "operator", "pw"); }, "tls://127.0.0.1:8443", "operator"},
        {[](RscGateway& g) { return g.Connect(Local, std::string("engineer"), std::string("pw")); },
         "tls://127.0.0.1:41100", "engineer"},
        {[](RscGateway& g) { return g.Connect(Url::Parse("tls://localhost:41200/rsc"), "x", "pw"); },
         "tls://localhost:41200/rsc", "x"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.url);
        VantrelTest::LogCapture capture;
        RscGateway gateway;
        EXPECT_TRUE(row.connect(gateway));
        EXPECT_TRUE(gateway.IsConnected());
        EXPECT_EQ(gateway.GetUrl(), Url::Parse(row.url));
        EXPECT_FALSE(gateway.IsRemoteConnection()) << "deliberately false for every host";
        // Deliberate: the target is never filled in, leaving two blanks between "to" and "as".
        EXPECT_EQ(capture.Messages(),
                  (std::vector<std::string>{std::string("Attempt connect to  as user ") + row.user, "Connected locally."}));
        EXPECT_EQ(capture.Records()[0].Level, 7);
        EXPECT_EQ(capture.Records()[0].LoggerName, "VantrelBase.Net.Rsc.RscGateway");
    }
    // Port 0 surfaces the URL parse error.
    RscGateway gateway;
    EXPECT_THROW(gateway.Connect(Local, 0), InvalidFormatException);
    EXPECT_FALSE(gateway.IsConnected());
}

TEST(RscGatewayTest, OtherHostsAreRefusedAndAnEarlierLocalConnectionStays)
{
    RscGateway gateway;
    EXPECT_FALSE(gateway.Connect(Remote));
    // Host texts that only look local are not local: the comparison is exact and case-sensitive.
    for (const char* text : {"tls://LOCALHOST:41100", "tls://127.0.0.10:41100", "tls://localhost.localdomain:41100"})
    {
        EXPECT_FALSE(gateway.Connect(Url::Parse(text))) << text;
    }
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);

    // A refused connect reports an earlier local connection, which stays in force until Disconnect.
    ASSERT_TRUE(gateway.Connect(Url::Parse("tls://localhost:41100")));
    EXPECT_TRUE(gateway.Connect(Remote));
    EXPECT_EQ(gateway.GetUrl(), Url::Parse("tls://localhost:41100"));
    EXPECT_TRUE(gateway.Disconnect());
    EXPECT_FALSE(gateway.IsConnected());
    EXPECT_EQ(gateway.GetUrl(), Url::Empty);
    EXPECT_FALSE(gateway.Connect(Remote));
}

TEST(RscGatewayTest, ConcurrentConnectsAreSerialised)
{
    RscGateway gateway;
    VantrelTest::RunConcurrently(4, [&gateway](int t) {
        for (int i = 0; i < 50; ++i)
        {
            const auto port = static_cast<unsigned short>(40000 + t * 100 + i);
            EXPECT_TRUE(gateway.Connect(Local, port, "operator", "pw"));
            gateway.Connect(Remote, port);
        }
    });
    EXPECT_EQ(gateway.GetUrl().GetHost(), Qib::String("127.0.0.1"));
}
