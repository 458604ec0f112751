// Hardware address parsing and text form.
#include "VantrelBase/Net/MacAddress.hpp"

#include "Qib/BasicString.hpp"
#include "Qib/System/Commons/ArgumentException.hpp"

#include <cstdio>

namespace VantrelBase::Net
{

bool MacAddress::TryParse(const std::string& text, MacAddress& result)
{
    static const std::string patterns[3] = {
        "%02x:%02x:%02x:%02x:%02x:%02x",
        "%02x-%02x-%02x-%02x-%02x-%02x",
        "%02x%02x%02x%02x%02x%02x",
    };
    // Deliberately only the colon form is applied; the other two are kept but never tried.
    const std::string pattern = patterns[0];

    unsigned int fields[6] = {0, 0, 0, 0, 0, 0};
    std::sscanf(text.c_str(), pattern.c_str(), &fields[0], &fields[1], &fields[2], &fields[3], &fields[4],
                &fields[5]);
    for (std::size_t i = 0; i < 6; ++i)
    {
        result.bytes[i] = static_cast<std::uint8_t>(fields[i] & 0xFFU);
    }
    // Deliberately true whatever the scan matched.
    return true;
}

MacAddress MacAddress::Parse(const std::string& text)
{
    MacAddress result;
    if (!TryParse(text, result))
    {
        throw Qib::System::Commons::ArgumentException("String does not match a MAC address format");
    }
    return result;
}

std::string MacAddress::ToString() const
{
    // Passed as unsigned ints so that a byte prints as two hexadecimal digits, never as a character.
    return Qib::String::Format("{0:02X}:{1:02X}:{2:02X}:{3:02X}:{4:02X}:{5:02X}", static_cast<unsigned int>(bytes[0]),
                               static_cast<unsigned int>(bytes[1]), static_cast<unsigned int>(bytes[2]),
                               static_cast<unsigned int>(bytes[3]), static_cast<unsigned int>(bytes[4]),
                               static_cast<unsigned int>(bytes[5]))
        .GetStdString();
}

} // namespace VantrelBase::Net
