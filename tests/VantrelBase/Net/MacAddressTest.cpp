// Tests of the hardware address: lenient parsing, text form and the non-lexicographic ordering.
#include "VantrelBase/Net/MacAddress.hpp"

#include <gtest/gtest.h>

#include <map>
#include <string>

using VantrelBase::Net::MacAddress;

namespace
{

MacAddress Parsed(const std::string& text)
{
    // Start from a non-zero value, so that a parser that leaves bytes untouched is caught.
    MacAddress result(0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE);
    EXPECT_TRUE(MacAddress::TryParse(text, result)) << text;
    return result;
}

} // namespace

TEST(MacAddressTest, ParsesColonFormOfMixedCase)
{
    EXPECT_EQ(Parsed("00:1a:2B:3c:4D:5e"), MacAddress(0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E));
    EXPECT_EQ(Parsed("1:2:3:4:5:6"), MacAddress(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(Parsed("ff:FF:fe:80:7f:01"), MacAddress(0xFF, 0xFF, 0xFE, 0x80, 0x7F, 0x01));
}

TEST(MacAddressTest, FieldsNotReachedStayZeroAndTryParseStillSucceeds)
{
    EXPECT_EQ(Parsed("00:11:22"), MacAddress(0x00, 0x11, 0x22, 0, 0, 0));
    // Deliberate: only the colon form is tried, so a dash stops the scan after the first field.
    EXPECT_EQ(Parsed("00-11-22-33-44-55"), MacAddress());
    EXPECT_EQ(Parsed("12-11-22-33-44-55"), MacAddress(0x12, 0, 0, 0, 0, 0));
    // Two digits per field, then the missing colon stops the scan.
    EXPECT_EQ(Parsed("aabbccddeeff"), MacAddress(0xAA, 0, 0, 0, 0, 0));
    EXPECT_EQ(Parsed(""), MacAddress());
    EXPECT_EQ(Parsed("hello"), MacAddress());
}

TEST(MacAddressTest, IgnoresTextAfterTheSixthField)
{
    EXPECT_EQ(Parsed("0a:0b:0c:0d:0e:0f and more"), MacAddress(0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F));
    // A field holds at most two digits: the third digit is where the scan stops.
    EXPECT_EQ(Parsed("0a:0b:0c:0d:0e:0f1"), MacAddress(0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F));
    EXPECT_EQ(Parsed("0a:0b:0c:0d:0e:0f:10"), MacAddress(0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F));
}

TEST(MacAddressTest, ParseNeverThrowsAndReturnsWhatTryParseRead)
{
    EXPECT_EQ(MacAddress::Parse("hello"), MacAddress());
    EXPECT_EQ(MacAddress::Parse(""), MacAddress());
    EXPECT_EQ(MacAddress::Parse("de:ad:be:ef:00:01"), MacAddress(0xDE, 0xAD, 0xBE, 0xEF, 0x00, 0x01));
}

TEST(MacAddressTest, TextFormIsUpperCaseWithLeadingZeros)
{
    EXPECT_EQ(MacAddress(0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E).ToString(), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(MacAddress().ToString(), "00:00:00:00:00:00");
    // Bytes above 0x7F print unsigned.
    EXPECT_EQ(MacAddress(0xAB, 0x80, 0xFF, 0x01, 0x0F, 0xF0).ToString(), "AB:80:FF:01:0F:F0");
}

TEST(MacAddressTest, ParseOfTextFormRoundTrips)
{
    // Walks every value of each byte position, so every digit pair is printed and read back.
    for (unsigned int value = 0; value < 256; ++value)
    {
        const auto b = static_cast<std::uint8_t>(value);
        const auto c = static_cast<std::uint8_t>(255 - value);
        const MacAddress address(b, c, b, c, static_cast<std::uint8_t>(b ^ 0x5A), static_cast<std::uint8_t>(c ^ 0xA5));
        ASSERT_EQ(MacAddress::Parse(address.ToString()), address) << address.ToString();
    }
}

TEST(MacAddressTest, EqualityComparesAllSixBytes)
{
    const MacAddress a(1, 2, 3, 4, 5, 6);
    for (std::size_t i = 0; i < 6; ++i)
    {
        MacAddress b = a;
        b.bytes[i] = 0x77;
        EXPECT_NE(a, b) << i;
        EXPECT_FALSE(a == b) << i;
    }
    EXPECT_EQ(a, MacAddress(1, 2, 3, 4, 5, 6));
}

TEST(MacAddressTest, LessThanHoldsWhenAnyPositionIsLess)
{
    const MacAddress a(0x01, 0x02, 0, 0, 0, 0);
    const MacAddress b(0x02, 0x01, 0, 0, 0, 0);
    // Deliberately not lexicographic: both directions hold.
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(b < a);
    // Only at the last position.
    EXPECT_TRUE(MacAddress(9, 9, 9, 9, 9, 1) < MacAddress(0, 0, 0, 0, 0, 2));
    EXPECT_FALSE(MacAddress(9, 9, 9, 9, 9, 2) < MacAddress(0, 0, 0, 0, 0, 2));
    // Equal values are equivalent.
    EXPECT_FALSE(a < a);
    EXPECT_FALSE(MacAddress() < MacAddress());
}

TEST(MacAddressTest, MapMayHoldAnEntryItCannotFind)
{
    std::map<MacAddress, int> table;
    table[MacAddress(0x01, 0x02, 0, 0, 0, 0)] = 1;
    table[MacAddress(0x02, 0x01, 0, 0, 0, 0)] = 2;
    // Deliberate consequence of the ordering: two entries, and the second is lost to search.
    EXPECT_EQ(table.size(), 2U);
    EXPECT_NE(table.find(MacAddress(0x01, 0x02, 0, 0, 0, 0)), table.end());
    EXPECT_EQ(table.find(MacAddress(0x02, 0x01, 0, 0, 0, 0)), table.end());
}

TEST(MacAddressTest, MapWithOneEntryAlwaysFindsIt)
{
    const MacAddress key(0x00, 0x11, 0x22, 0x33, 0x44, 0x55);
    std::map<MacAddress, int> table{{key, 7}};
    const auto found = table.find(key);
    ASSERT_NE(found, table.end());
    EXPECT_EQ(found->second, 7);
    EXPECT_EQ(table.find(MacAddress(0x00, 0x11, 0x22, 0x33, 0x44, 0x56)), table.end());
}
