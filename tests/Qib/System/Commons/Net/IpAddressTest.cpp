// Tests of the IPv4 address value: strict parsing, text round trips, network byte order, ordering.
#include "Qib/System/Commons/Net/IpAddress.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/ExceptionMessage.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

using Qib::String;
using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;

TEST(IpAddressTest, DottedQuadRoundTripsThroughTheValueInNetworkOrder)
{
    const std::pair<const char*, std::uint32_t> cases[] = {
        {"192.168.1.10", 0xC0A8010AU}, {"255.255.255.255", 0xFFFFFFFFU}, {"1.2.3.4", 0x01020304U},
        {"127.0.0.1", INADDR_LOOPBACK}, {"0.0.0.0", 0U}};
    for (const auto& [text, hostOrder] : cases)
    {
        const IpAddress address = IpAddress::Parse(text);
        EXPECT_EQ(address.GetValue(), htonl(hostOrder)) << text;
        EXPECT_EQ(IpAddress(htonl(hostOrder)).ToString(), String(text));
        EXPECT_EQ(IpAddress(address.GetValue()), address);
    }
    EXPECT_EQ(IpAddress(), IpAddress::Parse("0.0.0.0"));
}

TEST(IpAddressTest, AnythingButDottedQuadIsRefused)
{
    for (const std::string text : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.256", "1.2.3.4 ", " 1.2.3.4", "1..2.3",
                                   "1.2.3.", ".1.2.3", "a.b.c.d", "1.2.3.-4", "+1.2.3.4", "0x1.2.3.4", "1.2.3.4/24",
                                   "1234.1.1.1", "1.2.3.4\n", "localhost", "1.2.3.4:69", "1,2,3,4"})
    {
        IpAddress result = IpAddress::Parse("10.0.0.1");
        EXPECT_FALSE(IpAddress::TryParse(text, result)) << "'" << text << "'";
        EXPECT_EQ(result, IpAddress::Parse("10.0.0.1"));
        const auto parse = [&text] { IpAddress::Parse(text); };
        EXPECT_THROW(parse(), InvalidFormatException) << "'" << text << "'";
        EXPECT_NE(VantrelTest::ErrorOf(parse).find("'" + text + "'"), std::string::npos) << "'" << text << "'";
    }
    EXPECT_THROW(IpAddress::Parse(String(std::string("1.2.3.4\0junk", 12))), InvalidFormatException);
}

TEST(IpAddressTest, EqualityAndOrderAreOnTheHeldNetworkOrderValue)
{
    const IpAddress a = IpAddress::Parse("1.0.0.2");
    const IpAddress b = IpAddress::Parse("2.0.0.1");
    EXPECT_TRUE(a == IpAddress::Parse("1.0.0.2"));
    EXPECT_FALSE(a != IpAddress::Parse("1.0.0.2"));
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a == b);
    // Deliberately the order of the held 32-bit value, not of the dotted text.
    EXPECT_EQ(a < b, a.GetValue() < b.GetValue());
    EXPECT_NE(a < b, b < a);
    EXPECT_FALSE(a < a);
}
