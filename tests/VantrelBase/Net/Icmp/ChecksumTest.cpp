// Tests of the Internet checksum used for ICMP echo requests.
#include "VantrelBase/Net/Icmp/Ping.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace
{

using VantrelBase::Net::Icmp::checksum;
using Bytes = std::vector<unsigned char>;

// The two bytes the checksum occupies when stored in host order, as in an echo request.
std::array<unsigned char, 2> Stored(const Bytes& bytes)
{
    const std::uint16_t value = checksum(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    std::array<unsigned char, 2> stored{};
    std::memcpy(stored.data(), &value, stored.size());
    return stored;
}

} // namespace

TEST(ChecksumTest, WorkedExamplesStoreTheNetworkOrderChecksum)
{
    const std::pair<Bytes, std::array<unsigned char, 2>> rows[] = {
        // Words 0001 f203 f4f5 f6f7 sum to 2ddf0, folded ddf2, complemented 220d.
        {{0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7}, {0x22, 0x0d}},
        // Echo header type 8, identifier 0x1234, sequence 1; with its checksum stored it verifies to zero.
        {{0x08, 0x00, 0x00, 0x00, 0x12, 0x34, 0x00, 0x01}, {0xe5, 0xca}},
        {{0x08, 0x00, 0xe5, 0xca, 0x12, 0x34, 0x00, 0x01}, {0, 0}},
        // On a little-endian host these words are ffff ffff 0001, which sum to 1ffff: the first fold
        // gives 10000, which needs a second fold.
        {{0xff, 0xff, 0xff, 0xff, 0x01, 0x00}, {0xfe, 0xff}},
        {Bytes(70000, 0xFF), {0, 0}},
        // An odd last byte is the low-order byte of a word: 0201 + 0003 = 0204, complemented fdfb.
        {{0x01, 0x02, 0x03}, {0xfb, 0xfd}},
    };
    for (const auto& [bytes, stored] : rows)
    {
        EXPECT_EQ(Stored(bytes), stored) << bytes.size();
    }
    // Empty and negative lengths read nothing.
    EXPECT_EQ(checksum(nullptr, 0), 0xFFFF);
    EXPECT_EQ(checksum(rows[0].first.data(), -3), 0xFFFF);
    // Words need no alignment: the first row read from an odd address.
    const Bytes shifted{0x55, 0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    EXPECT_EQ(checksum(shifted.data() + 1, 8), checksum(rows[0].first.data(), 8));
}
