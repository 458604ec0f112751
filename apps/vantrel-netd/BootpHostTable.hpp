// Builds the BOOTP server's hardware-address table and finds the entries its own search will miss.
#pragma once

#include "Config.hpp"

#include "VantrelBase/Net/MacAddress.hpp"

#include <map>
#include <vector>

namespace VantrelNetd
{

/// The table handed to the BOOTP server, built from the config's hosts.
class BootpHostTable
{
public:
    using Table = std::map<VantrelBase::Net::MacAddress, Qib::System::Commons::Net::IpAddress>;

    /// Inserts every host, in config order, through the library's own parser of the colon form.
    explicit BootpHostTable(const std::vector<BootpHost>& hosts);

    const Table& GetTable() const { return table; }

    /// The hosts that the table's own search does not find after all were inserted: the hardware
    /// address ordering is deliberately not a strict weak ordering, so such devices get no reply.
    const std::vector<BootpHost>& GetUnreachable() const { return unreachable; }

private:
    Table table;
    std::vector<BootpHost> unreachable;
};

} // namespace VantrelNetd
