// Tests of the IPv4 address value: strict parsing, text round trips, network byte order, ordering.
#include "Qib/System/Commons/Net/IpAddress.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

using Qib::String;
using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;

namespace
{

std::array<std::uint8_t, 4> BytesOf(const IpAddress& address)
{
    std::array<std::uint8_t, 4> bytes{};
    const std::uint32_t value = address.GetValue();
    std::memcpy(bytes.data(), &value, bytes.size());
    return bytes;
}

} // namespace

TEST(IpAddressTest, DefaultIsAny)
{
    EXPECT_EQ(IpAddress().GetValue(), 0U);
    EXPECT_EQ(IpAddress().ToString(), String("0.0.0.0"));
    EXPECT_EQ(IpAddress::Parse("0.0.0.0"), IpAddress());
}

TEST(IpAddressTest, ParsedValueHoldsBytesInNetworkOrder)
{
    const IpAddress address = IpAddress::Parse("192.168.1.10");
    EXPECT_EQ(BytesOf(address), (std::array<std::uint8_t, 4>{192, 168, 1, 10}));
    EXPECT_EQ(address.GetValue(), htonl(0xC0A8010AU));
    EXPECT_EQ(IpAddress(htonl(INADDR_LOOPBACK)).ToString(), String("127.0.0.1"));
}

TEST(IpAddressTest, TextRoundTrips)
{
    for (const char* text : {"10.77.0.1", "255.255.255.255", "1.2.3.4", "127.0.0.1", "0.0.0.0"})
    {
        EXPECT_EQ(IpAddress::Parse(text).ToString(), String(text));
        const IpAddress address = IpAddress::Parse(text);
        EXPECT_EQ(IpAddress(address.GetValue()), address);
    }
}

TEST(IpAddressTest, AnythingButDottedQuadIsRefused)
{
    for (const char* text : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.256", "1.2.3.4 ", " 1.2.3.4", "1..2.3",
                             "1.2.3.", ".1.2.3", "a.b.c.d", "1.2.3.-4", "+1.2.3.4", "0x1.2.3.4", "1.2.3.4/24",
                             "1234.1.1.1", "1.2.3.4\n", "localhost", "1.2.3.4:69", "1,2,3,4"})
    {
        EXPECT_THROW(IpAddress::Parse(text), InvalidFormatException) << "'" << text << "'";
    }
}

TEST(IpAddressTest, TextWithEmbeddedNulIsRefused)
{
    EXPECT_THROW(IpAddress::Parse(String(std::string("1.2.3.4\0junk", 12))), InvalidFormatException);
}

TEST(IpAddressTest, RefusalMessageQuotesTheText)
{
    try
    {
        IpAddress::Parse("300.1.1.1");
        FAIL() << "300.1.1.1 was accepted";
    }
    catch (const InvalidFormatException& exception)
    {
        EXPECT_NE(exception.GetMessage().find("300.1.1.1"), std::string::npos) << exception.what();
    }
}

TEST(IpAddressTest, TryParseLeavesResultAloneOnFailure)
{
    IpAddress result = IpAddress::Parse("10.0.0.1");
    EXPECT_FALSE(IpAddress::TryParse("10.0.0", result));
    EXPECT_EQ(result.ToString(), String("10.0.0.1"));
    EXPECT_TRUE(IpAddress::TryParse("10.0.0.2", result));
    EXPECT_EQ(result.ToString(), String("10.0.0.2"));
}

TEST(IpAddressTest, EqualityComparesTheValue)
{
    EXPECT_EQ(IpAddress::Parse("10.1.2.3"), IpAddress::Parse("10.1.2.3"));
    EXPECT_NE(IpAddress::Parse("10.1.2.3"), IpAddress::Parse("10.1.2.4"));
    EXPECT_FALSE(IpAddress::Parse("10.1.2.3") != IpAddress::Parse("10.1.2.3"));
}

TEST(IpAddressTest, OrderingIsOnTheHeldNetworkOrderValue)
{
    // Deliberately the order of the held 32-bit value, not of the dotted text.
    const IpAddress a = IpAddress::Parse("1.0.0.2");
    const IpAddress b = IpAddress::Parse("2.0.0.1");
    EXPECT_EQ(a < b, a.GetValue() < b.GetValue());
    EXPECT_EQ(b < a, b.GetValue() < a.GetValue());
    EXPECT_NE(a < b, b < a);
    EXPECT_FALSE(a < a);
    if (htonl(1U) != 1U)
    {
        // On a little-endian host the last byte is the most significant one.
        EXPECT_TRUE(b < a);
    }
}
