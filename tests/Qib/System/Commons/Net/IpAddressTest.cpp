// Tests of the IPv4 address value: strict parsing and ordering (text round trips are shown by the
// daemon's configuration and host table tests).
#include "Qib/System/Commons/Net/IpAddress.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/ExceptionMessage.hpp"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

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

TEST(IpAddressTest, EqualityAndOrderAreOnTheHeldNetworkOrderValue)
{
    const IpAddress a = IpAddress::Parse("1.0.0.2");
    const IpAddress same = IpAddress::Parse("1.0.0.2");
    const IpAddress b = IpAddress::Parse("2.0.0.1");
    // Deliberately the order of the held 32-bit value, not of the dotted text.
    ASSERT_GT(a.GetValue(), b.GetValue());
    EXPECT_EQ(std::make_tuple(a == same, a != same, a == b, a != b, a < b, b < a, a < same),
              std::make_tuple(true, false, false, true, false, true, false));
}
