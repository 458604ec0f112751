// Tests of the Internet checksum used for ICMP echo requests.
#include "VantrelBase/Net/Icmp/Ping.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace
{

using VantrelBase::Net::Icmp::checksum;

bool HostIsLittleEndian()
{
    const std::uint16_t probe = 1;
    unsigned char first = 0;
    std::memcpy(&first, &probe, 1);
    return first == 1;
}

// Reference written from the definition: words assembled byte by byte in host order, a wide
// accumulator and end-around carries folded until none is left.
std::uint16_t ReferenceChecksum(const std::vector<unsigned char>& bytes)
{
    const bool little = HostIsLittleEndian();
    std::uint64_t sum = 0;
    std::size_t i = 0;
    for (; i + 1 < bytes.size(); i += 2)
    {
        const unsigned int first = bytes[i];
        const unsigned int second = bytes[i + 1];
        sum += little ? (first | (second << 8U)) : ((first << 8U) | second);
    }
    if (i < bytes.size())
    {
        sum += bytes[i];
    }
    while (sum > 0xFFFF)
    {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(0xFFFF - sum);
}

// The two bytes the checksum occupies when stored in host order, as in an echo request.
std::array<unsigned char, 2> StoredBytes(std::uint16_t value)
{
    std::array<unsigned char, 2> bytes{};
    std::memcpy(bytes.data(), &value, bytes.size());
    return bytes;
}

std::uint16_t Checksum(const std::vector<unsigned char>& bytes)
{
    return checksum(bytes.data(), static_cast<std::int32_t>(bytes.size()));
}

} // namespace

TEST(ChecksumTest, EmptyAndNegativeLengthsGiveAllOnes)
{
    EXPECT_EQ(checksum(nullptr, 0), 0xFFFF);
    const unsigned char byte = 0x5A;
    EXPECT_EQ(checksum(&byte, 0), 0xFFFF);
    EXPECT_EQ(checksum(&byte, -3), 0xFFFF);
}

TEST(ChecksumTest, WorkedExamplesStoreTheNetworkOrderChecksum)
{
    // Words 0001 f203 f4f5 f6f7 sum to 2ddf0, folded ddf2, complemented 220d. Stored in host order
    // the bytes come out in wire order whatever the host.
    EXPECT_EQ(StoredBytes(Checksum({0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7})),
              (std::array<unsigned char, 2>{0x22, 0x0d}));
    // Echo header type 8, identifier 0x1234, sequence 1: 0800 + 1234 + 0001 = 1a35 -> e5ca, and
    // a header carrying its checksum verifies to zero.
    std::vector<unsigned char> header{0x08, 0x00, 0x00, 0x00, 0x12, 0x34, 0x00, 0x01};
    const std::array<unsigned char, 2> stored = StoredBytes(Checksum(header));
    EXPECT_EQ(stored, (std::array<unsigned char, 2>{0xe5, 0xca}));
    header[2] = stored[0];
    header[3] = stored[1];
    EXPECT_EQ(Checksum(header), 0);
}

TEST(ChecksumTest, OddLastByteAndCarriesFoldTwice)
{
    // An odd last byte counts as the low-order byte.
    EXPECT_EQ(Checksum({0xAB}), 0xFFFF - 0xAB);
    const std::uint16_t firstWord = HostIsLittleEndian() ? 0x2010 : 0x1020;
    EXPECT_EQ(Checksum({0x10, 0x20, 0x03}), static_cast<std::uint16_t>(0xFFFF - (firstWord + 0x03)));
    // ffff + ffff + 0001 = 1ffff: the first fold gives 10000, which needs a second fold to 0001.
    const std::vector<unsigned char> bytes{0xff, 0xff, 0xff, 0xff, 0x01, 0x00};
    const std::vector<unsigned char> swapped{0xff, 0xff, 0xff, 0xff, 0x00, 0x01};
    EXPECT_EQ(Checksum(HostIsLittleEndian() ? bytes : swapped), 0xFFFE);
    EXPECT_EQ(Checksum(std::vector<unsigned char>(70000, 0xFF)), 0);
}

TEST(ChecksumTest, MatchesReferenceOnEvenAndOddLengthsAtAnyAlignment)
{
    std::mt19937 generator(20240611);
    std::uniform_int_distribution<int> byteValue(0, 255);
    std::vector<unsigned char> storage(302);
    for (unsigned char& b : storage)
    {
        b = static_cast<unsigned char>(byteValue(generator));
    }
    for (std::size_t offset = 0; offset < 2; ++offset)
    {
        for (std::size_t length = 0; length <= 300; ++length)
        {
            const std::vector<unsigned char> bytes(storage.begin() + static_cast<long>(offset),
                                                   storage.begin() + static_cast<long>(offset + length));
            ASSERT_EQ(checksum(storage.data() + offset, static_cast<std::int32_t>(length)), ReferenceChecksum(bytes))
                << "offset " << offset << ", length " << length;
        }
    }
}
