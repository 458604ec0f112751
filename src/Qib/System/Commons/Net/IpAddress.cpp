// IPv4 address value: strict dotted-quad parsing and printing.
#include "Qib/System/Commons/Net/IpAddress.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <arpa/inet.h>

#include <array>
#include <cstring>

namespace Qib::System::Commons::Net
{

namespace
{

// Reads one decimal byte of at most three digits at `pos`; advances `pos`.
bool ReadOctet(const std::string& text, std::size_t& pos, std::uint8_t& octet)
{
    unsigned int number = 0;
    std::size_t digits = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && digits < 4)
    {
        number = number * 10 + static_cast<unsigned int>(text[pos] - '0');
        ++pos;
        ++digits;
    }
    if (digits == 0 || digits > 3 || number > 255)
    {
        return false;
    }
    octet = static_cast<std::uint8_t>(number);
    return true;
}

} // namespace

bool IpAddress::TryParse(const String& text, IpAddress& result)
{
    const std::string& s = text.GetStdString();
    std::array<std::uint8_t, 4> octets{};
    std::size_t pos = 0;
    for (std::size_t i = 0; i < octets.size(); ++i)
    {
        if (i > 0)
        {
            if (pos >= s.size() || s[pos] != '.')
            {
                return false;
            }
            ++pos;
        }
        if (!ReadOctet(s, pos, octets[i]))
        {
            return false;
        }
    }
    if (pos != s.size())
    {
        return false;
    }
    std::uint32_t networkOrder = 0;
    std::memcpy(&networkOrder, octets.data(), sizeof(networkOrder));
    result = IpAddress(networkOrder);
    return true;
}

IpAddress IpAddress::Parse(const String& text)
{
    IpAddress result;
    if (!TryParse(text, result))
    {
        throw InvalidFormatException("'{0}' is not an IPv4 address in dotted-quad form", text);
    }
    return result;
}

String IpAddress::ToString() const
{
    char buffer[INET_ADDRSTRLEN] = {};
    in_addr address{};
    address.s_addr = value;
    inet_ntop(AF_INET, &address, buffer, sizeof(buffer));
    return String(buffer);
}

} // namespace Qib::System::Commons::Net
