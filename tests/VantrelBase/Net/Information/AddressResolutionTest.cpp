// Tests of the ARP table lookups against the kernel's table of the test's private namespace.
#include "VantrelBase/Net/Information/AddressResolution.hpp"

#include "Support/Files.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/PeerNamespace.hpp"
#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using Qib::System::Commons::Net::IpAddress;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Information::AddressResolution;
using VantrelTest::Shell;

namespace
{

// Reaches the table lookups on a file of the test's choosing.
class TableFileLookup : public AddressResolution
{
public:
    using AddressResolution::TryFindIpAddress;
    using AddressResolution::TryFindMacAddress;
};

IpAddress Ip(const char* text)
{
    return IpAddress::Parse(text);
}

} // namespace

// Two veth ends in the test's namespace carry static neighbour entries. 10.77.0.0/28 is routed as
// prohibited, so the ping before each lookup by IP fails at once and sends nothing; the entries stay.
class AddressResolutionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VANTREL_REQUIRE_NETWORK_NAMESPACE();
        const char* commands[] = {
            "ip link add arp0 type veth peer name arp1",
            "ip link set arp0 up",
            "ip link set arp1 up",
            "ip addr add 10.77.0.1/24 dev arp0",
            "ip addr add 10.77.9.1/24 dev arp1",
            "ip route add prohibit 10.77.0.0/28",
            "ip neigh add 10.77.0.5 lladdr 00:11:22:33:44:55 dev arp0 nud permanent",
            "ip neigh add 10.77.0.5 lladdr 00:11:22:33:44:66 dev arp1 nud permanent",
            "ip neigh add 10.77.0.6 dev arp0 nud incomplete",
            "ip neigh add 10.77.0.7 lladdr 0a:bb:cc:dd:ee:ff dev arp0 nud permanent",
        };
        for (const char* command : commands)
        {
            ASSERT_EQ(Shell(command), 0) << command;
        }
    }
};

TEST_F(AddressResolutionTest, LookupByIpGivesTheKernelTextFormOrEmptiesTheOutput)
{
    struct Row
    {
        const char* ip;
        const char* expected; // empty: a miss
    };
    // Deliberate: an incomplete entry matches too, with its zero address. A prefix is no match.
    const Row rows[] = {{"10.77.0.7", "0a:bb:cc:dd:ee:ff"}, {"10.77.0.6", "00:00:00:00:00:00"},
                        {"10.77.0.9", ""}, {"10.77.0.", ""}, {"10.99.0.1", ""}};
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.ip);
        const bool found = *row.expected != '\0';
        std::string mac = "stale";
        EXPECT_EQ(AddressResolution::TryResolveMacAddress(row.ip, mac), found);
        EXPECT_EQ(mac, row.expected);
        const MacAddress before(1, 2, 3, 4, 5, 6);
        MacAddress parsed = before;
        EXPECT_EQ(AddressResolution::TryResolveMacAddress(row.ip, parsed), found);
        EXPECT_EQ(parsed, found ? MacAddress::Parse(row.expected) : before);
    }
}

TEST_F(AddressResolutionTest, LookupByHardwareAddressMatchesTheKernelTextFormExactly)
{
    // Deliberate: the MacAddress overloads pass the upper-case text form, so only digit-only
    // addresses match the kernel's lower-case one. Upper case and partial texts miss. The incomplete
    // entry's zero address comes before any other zero address.
    const std::pair<std::string, const char*> rows[] = {
        {"0a:bb:cc:dd:ee:ff", "10.77.0.7"}, {"00:11:22:33:44:66", "10.77.0.5"}, {"00:00:00:00:00:00", "10.77.0.6"},
        {"0A:BB:CC:DD:EE:FF", ""}, {"0a:bb:cc:dd:ee:f", ""}};
    for (const auto& [text, expected] : rows)
    {
        std::string ip = "kept";
        IpAddress address = Ip("192.0.2.1");
        const bool found = *expected != '\0';
        EXPECT_EQ(AddressResolution::TryResolveIpAddress(text, ip), found) << text;
        EXPECT_EQ(AddressResolution::TryResolveIpAddress(text, address), found) << text;
        EXPECT_EQ(ip, found ? expected : "kept") << text;
        EXPECT_EQ(address, Ip(found ? expected : "192.0.2.1")) << text;
        if (text.size() == 17)
        {
            const bool digitsOnly = text.find_first_of("abcdefABCDEF") == std::string::npos;
            EXPECT_EQ(AddressResolution::TryResolveIpAddress(MacAddress::Parse(text), ip), digitsOnly) << text;
        }
    }
}

TEST_F(AddressResolutionTest, LookupByIpPingsSoTheKernelLearnsThePeer)
{
    VantrelTest::PeerNamespace peer("arp", "learn0", "10.77.3.1/24", "learn1", "10.77.3.2/24", "02:77:00:00:00:02");
    ASSERT_EQ(peer.Error(), "");
    ASSERT_EQ(VantrelTest::ShellOutput("ip neigh show 10.77.3.2"), "");
    std::string mac;
    EXPECT_TRUE(AddressResolution::TryResolveMacAddress("10.77.3.2", mac));
    EXPECT_EQ(mac, "02:77:00:00:00:02");
}

TEST_F(AddressResolutionTest, LocalAddressIsTheSourceOfTheRouteToTheRemote)
{
    ASSERT_EQ(Shell("ip addr add 10.77.9.3/24 dev arp1"), 0);
    ASSERT_EQ(Shell("ip route add 10.88.0.0/16 dev arp1 src 10.77.9.3"), 0);
    // Port 0 or no route: false, and the output is emptied.
    const std::tuple<const char*, unsigned int, const char*> rows[] = {
        {"10.88.1.1", 67, "10.77.9.3"}, {"10.77.9.20", 69, "10.77.9.1"}, {"10.77.9.20", 0, ""}, {"10.99.0.1", 67, ""}};
    for (const auto& [remote, port, expected] : rows)
    {
        IpAddress local = Ip("192.0.2.1");
        EXPECT_EQ(AddressResolution::TryResolveLocalIpAddress(Ip(remote), port, local), *expected != '\0') << remote;
        EXPECT_EQ(local, *expected != '\0' ? Ip(expected) : IpAddress()) << remote;
    }
}

TEST(AddressResolutionTableTest, MissingTableOrHeaderAndShortLinesGiveNoMatch)
{
    std::string answer = "kept";
    EXPECT_FALSE(TableFileLookup::TryFindMacAddress("/nonexistent/arp", "10.0.0.1", answer));
    EXPECT_FALSE(TableFileLookup::TryFindIpAddress("/nonexistent/arp", "00:11:22:33:44:55", answer));
    EXPECT_EQ(answer, "kept");
    const VantrelTest::TempDirectory folder;
    const std::string path = folder / "arp";
    VantrelTest::WriteFile(path, "10.0.0.1 0x1 0x2 aa:aa:aa:aa:aa:aa * eth0\n10.0.0.2 0x1\n"
                                 "10.0.0.1 0x1 0x2 bb:bb:bb:bb:bb:bb * eth0\n"
                                 "10.0.0.1 0x1 0x2 cc:cc:cc:cc:cc:cc * eth0\n");
    // The first line is taken as the header; short lines are skipped; the first matching line wins.
    EXPECT_TRUE(TableFileLookup::TryFindMacAddress(path.c_str(), "10.0.0.1", answer));
    EXPECT_EQ(answer, "bb:bb:bb:bb:bb:bb");
    EXPECT_FALSE(TableFileLookup::TryFindIpAddress(path.c_str(), "aa:aa:aa:aa:aa:aa", answer));
    EXPECT_FALSE(TableFileLookup::TryFindMacAddress(path.c_str(), "10.0.0.2", answer));
    EXPECT_EQ(answer, "bb:bb:bb:bb:bb:bb");
}
