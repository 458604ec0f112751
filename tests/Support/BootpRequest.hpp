// Boot requests crafted byte by byte, as the BOOTP tests send them.
#pragma once

#include "VantrelBase/Net/MacAddress.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VantrelTest
{

using Bytes = std::vector<std::uint8_t>;

/// A boot request of an Ethernet device, 300 bytes, cut to `size`. Fields the server must not touch
/// carry distinct contents: xid, secs, flags, giaddr, the rest of chaddr, sname, "generic" in file and
/// a vend pattern that depends on the xid.
Bytes MakeRequest(std::uint32_t xid, const VantrelBase::Net::MacAddress& device, std::size_t size = 300);

/// The transaction id of a boot message of at least 8 bytes.
std::uint32_t Xid(const Bytes& message);

} // namespace VantrelTest
