// IPv4 address value, held as four bytes in network byte order.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

#include <cstdint>

namespace Qib::System::Commons::Net
{

/// IPv4 address; 0.0.0.0 by default ("any"). Comparison is on the held 32-bit value.
class QIB_EXPORT IpAddress
{
public:
    IpAddress() = default;
    /// From a value whose bytes are in network order, as in a socket address.
    explicit IpAddress(std::uint32_t networkOrderValue) : value(networkOrderValue) {}

    /// Parses dotted-quad text ("192.168.1.10"); throws InvalidFormatException on anything else.
    static IpAddress Parse(const String& text);
    /// Parses dotted-quad text into `result`; false (and `result` unchanged) on anything else.
    static bool TryParse(const String& text, IpAddress& result);

    std::uint32_t GetValue() const noexcept { return value; }
    String ToString() const;

    friend bool operator==(const IpAddress& a, const IpAddress& b) { return a.value == b.value; }
    friend bool operator!=(const IpAddress& a, const IpAddress& b) { return a.value != b.value; }
    friend bool operator<(const IpAddress& a, const IpAddress& b) { return a.value < b.value; }

private:
    std::uint32_t value = 0;
};

} // namespace Qib::System::Commons::Net
