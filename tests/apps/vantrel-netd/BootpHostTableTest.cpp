// Tests of building the BOOTP table and finding the entries its own search misses.
#include "BootpHostTable.hpp"

#include <gtest/gtest.h>

using VantrelNetd::BootpHost;
using VantrelNetd::BootpHostTable;
using Qib::System::Commons::Net::IpAddress;

namespace
{

BootpHost Host(const std::string& mac, const std::string& ip)
{
    BootpHost host;
    host.MacAddress = mac;
    host.Address = IpAddress::Parse(Qib::String(ip));
    host.Key = "bootp.hosts[?]";
    return host;
}

} // namespace

TEST(BootpHostTableTest, EveryEntryOfAnOrdinaryTableIsFound)
{
    const BootpHostTable table({Host("00:1A:2B:3C:4D:5E", "10.77.0.10"), Host("00:1A:2B:3C:4D:5F", "10.77.0.11"),
                                Host("00:11:22:33:44:55", "10.77.0.12")});
    EXPECT_EQ(table.GetTable().size(), 3U);
    EXPECT_TRUE(table.GetUnreachable().empty());
    const auto found = table.GetTable().find(VantrelBase::Net::MacAddress::Parse("00:1A:2B:3C:4D:5F"));
    ASSERT_NE(found, table.GetTable().end());
    EXPECT_EQ(found->second.ToString().GetStdString(), "10.77.0.11");
}

TEST(BootpHostTableTest, EntriesTheTablesOwnSearchCannotFindAreReported)
{
    // The hardware-address ordering is deliberately not a strict weak ordering: of these two, the
    // second is inserted but its search fails.
    const BootpHostTable table({Host("01:02:00:00:00:00", "10.77.0.2"), Host("02:01:00:00:00:00", "10.77.0.3")});
    EXPECT_EQ(table.GetTable().size(), 2U);
    ASSERT_EQ(table.GetUnreachable().size(), 1U);
    EXPECT_EQ(table.GetUnreachable()[0].MacAddress, "02:01:00:00:00:00");
}
