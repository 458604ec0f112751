// Tests of the IPv4 address value: strict parsing and ordering (text round trips and equality are shown
// by the daemon's configuration and host table tests).
#include "Qib/System/Commons/Net/IpAddress.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/ExceptionMessage.hpp"

#include <gtest/gtest.h>

#include <string>

using Qib::String;
using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;

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

// Deliberately the order of the held network-order value, not of the dotted text.
TEST(IpAddressTest, OrderIsOnTheHeldNetworkOrderValue)
{
    const IpAddress a = IpAddress::Parse("1.0.0.2");
    const IpAddress b = IpAddress::Parse("2.0.0.1");
    ASSERT_GT(a.GetValue(), b.GetValue());
    EXPECT_TRUE(b < a);
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(a < IpAddress::Parse("1.0.0.2"));
}
