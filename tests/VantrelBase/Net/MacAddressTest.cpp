// Tests of the hardware address: lenient parsing, text form and the non-lexicographic ordering.
#include "VantrelBase/Net/MacAddress.hpp"

#include <gtest/gtest.h>

#include <map>

using VantrelBase::Net::MacAddress;

TEST(MacAddressTest, ParsingIsLenientAndNeverFailsAndTextIsUpperCase)
{
    const std::pair<const char*, MacAddress> rows[] = {
        {"00:1a:2B:3c:4D:5e", MacAddress(0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E)},
        {"1:2:3:4:5:6", MacAddress(1, 2, 3, 4, 5, 6)},
        // Fields not reached stay zero.
        {"00:11:22", MacAddress(0x00, 0x11, 0x22, 0, 0, 0)},
        {"hello", MacAddress()},
        // Deliberate: only the colon form is tried, so a dash stops the scan after the first field.
        {"12-11-22-33-44-55", MacAddress(0x12, 0, 0, 0, 0, 0)},
        // Two digits per field at most; the scan stops at the third digit or a missing colon.
        {"aabbccddeeff", MacAddress(0xAA, 0, 0, 0, 0, 0)},
        {"0a:0b:0c:0d:0e:0f1", MacAddress(0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F)},
        {"0a:0b:0c:0d:0e:0f:10", MacAddress(0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F)},
    };
    for (const auto& [text, expected] : rows)
    {
        // Starts from a non-zero value, so that a parser that leaves bytes untouched is caught.
        MacAddress parsed(0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE);
        EXPECT_TRUE(MacAddress::TryParse(text, parsed)) << text;
        EXPECT_EQ(parsed, expected) << text;
        EXPECT_EQ(MacAddress::Parse(text), expected) << text;
    }
    // The text form is upper case with leading zeros.
    EXPECT_EQ(MacAddress(0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E).ToString(), "00:1A:2B:3C:4D:5E");
}

TEST(MacAddressTest, LessThanHoldsWhenAnyPositionIsLess)
{
    const MacAddress a(0x01, 0x02, 0, 0, 0, 0);
    const MacAddress b(0x02, 0x01, 0, 0, 0, 0);
    // Deliberately not lexicographic: both directions hold.
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(b < a);
    EXPECT_TRUE(MacAddress(9, 9, 9, 9, 9, 1) < MacAddress(0, 0, 0, 0, 0, 2));
    EXPECT_FALSE(MacAddress(9, 9, 9, 9, 9, 2) < MacAddress(0, 0, 0, 0, 0, 2));
    EXPECT_FALSE(a < a);
    // Equality and inequality compare all six bytes.
    EXPECT_FALSE(a != MacAddress(a));
    for (std::size_t i = 0; i < 6; ++i)
    {
        MacAddress changed = a;
        changed.bytes[i] = 0x77;
        EXPECT_FALSE(a == changed) << i;
        EXPECT_TRUE(a != changed) << i;
    }
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
