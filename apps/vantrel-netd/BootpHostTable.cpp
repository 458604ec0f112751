// Builds the BOOTP server's hardware-address table and finds the entries its own search will miss.
#include "BootpHostTable.hpp"

namespace VantrelNetd
{

BootpHostTable::BootpHostTable(const std::vector<BootpHost>& hosts)
{
    for (const BootpHost& host : hosts)
    {
        table.emplace(VantrelBase::Net::MacAddress::Parse(host.MacAddress), host.Address);
    }
    // Checked only once the table is complete: a later insertion can hide an earlier entry.
    for (const BootpHost& host : hosts)
    {
        const auto found = table.find(VantrelBase::Net::MacAddress::Parse(host.MacAddress));
        if (found == table.end() || found->second != host.Address)
        {
            unreachable.push_back(host);
        }
    }
}

} // namespace VantrelNetd
