// Six-byte hardware (Ethernet) address value with a lenient parser and an upper-case text form.
#pragma once

#include "VantrelBase/Net/NetExport.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace VantrelBase::Net
{

/// A hardware address: six bytes in transmission order; all zero stands for no address.
/// Distinct objects: safe. Shared objects: safe for reading.
class VANTRELBASE_NET_EXPORT MacAddress
{
public:
    /// The all-zero address.
    MacAddress() = default;
    /// From six bytes in wire order (`b0` is the first byte on the wire).
    MacAddress(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, std::uint8_t b3, std::uint8_t b4, std::uint8_t b5)
        : bytes{b0, b1, b2, b3, b4, b5}
    {
    }
    /// From six bytes in wire order.
    explicit MacAddress(const std::array<std::uint8_t, 6>& wireBytes) : bytes(wireBytes) {}

    /// Reads colon-separated hexadecimal fields ("00:1a:2B:3c:4D:5e", "1:2:3:4:5:6") into `result`.
    /// Fields not reached stay zero and text after the sixth field is ignored. Always returns true,
    /// whatever the text: unreadable text yields 00:00:00:00:00:00.
    static bool TryParse(const std::string& text, MacAddress& result);
    /// TryParse as a value; would throw ArgumentException("String does not match a MAC address
    /// format") if TryParse failed, which it never does.
    static MacAddress Parse(const std::string& text);

    /// Upper-case text form, always 17 characters: "00:1A:2B:3C:4D:5E".
    std::string ToString() const;

    friend bool operator==(const MacAddress& a, const MacAddress& b) { return a.bytes == b.bytes; }
    friend bool operator!=(const MacAddress& a, const MacAddress& b) { return !(a == b); }
    /// True when a is below b at any position. Deliberately not lexicographic (and so not a strict
    /// weak ordering): 01:02:... < 02:01:... and 02:01:... < 01:02:... both hold. Maps keyed by
    /// MacAddress behave accordingly and may fail to find an entry they hold.
    friend bool operator<(const MacAddress& a, const MacAddress& b)
    {
        bool less = false;
        for (std::size_t i = 0; i < a.bytes.size(); ++i)
        {
            less = less || a.bytes[i] < b.bytes[i];
        }
        return less;
    }

    /// The six bytes, `bytes[0]` first on the wire.
    std::array<std::uint8_t, 6> bytes{};
};

} // namespace VantrelBase::Net
