// Tests of building the BOOTP table and finding the entries its own search misses.
#include "BootpHostTable.hpp"

#include <gtest/gtest.h>

using VantrelNetd::BootpHost;
using VantrelNetd::BootpHostTable;

namespace
{

BootpHost Host(const std::string& mac, const std::string& ip)
{
    return {mac, Qib::System::Commons::Net::IpAddress::Parse(Qib::String(ip)), "bootp.hosts[?]", {}, ""};
}

} // namespace

TEST(BootpHostTableTest, EntriesTheTablesOwnSearchCannotFindAreReported)
{
    const BootpHostTable ordinary({Host("00:1A:2B:3C:4D:5E", "10.77.0.10"), Host("00:1A:2B:3C:4D:5F", "10.77.0.11")});
    EXPECT_TRUE(ordinary.GetUnreachable().empty());
    const auto found = ordinary.GetTable().find(VantrelBase::Net::MacAddress::Parse("00:1A:2B:3C:4D:5F"));
    ASSERT_NE(found, ordinary.GetTable().end());
    EXPECT_EQ(found->second.ToString().GetStdString(), "10.77.0.11");

    // The hardware-address ordering is deliberately not a strict weak ordering: of these two, the
    // second is inserted but its search fails.
    const BootpHostTable table({Host("01:02:00:00:00:00", "10.77.0.2"), Host("02:01:00:00:00:00", "10.77.0.3")});
    EXPECT_EQ(table.GetTable().size(), 2U);
    ASSERT_EQ(table.GetUnreachable().size(), 1U);
    EXPECT_EQ(table.GetUnreachable()[0].MacAddress, "02:01:00:00:00:00");
}
