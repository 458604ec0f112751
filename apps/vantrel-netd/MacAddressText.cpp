// Validation of hardware-address text in the forms engineers copy from device labels and tools.
#include "MacAddressText.hpp"

#include <cctype>

namespace VantrelNetd
{

namespace
{

constexpr std::size_t ByteCount = 6;

bool IsHexDigit(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

} // namespace

bool MacAddressText::TryNormalize(const std::string& text, std::string& colonForm)
{
    // Two digits per byte, then either one separator between pairs or none at all.
    std::size_t stride = 0;
    if (text.size() == ByteCount * 2)
    {
        stride = 2;
    }
    else if (text.size() == ByteCount * 3 - 1 && (text[2] == ':' || text[2] == '-'))
    {
        stride = 3;
    }
    else
    {
        return false;
    }
    const char separator = stride == 3 ? text[2] : '\0';

    std::string result;
    result.reserve(ByteCount * 3 - 1);
    for (std::size_t byte = 0; byte < ByteCount; ++byte)
    {
        const std::size_t at = byte * stride;
        if (!IsHexDigit(text[at]) || !IsHexDigit(text[at + 1]))
        {
            return false;
        }
        if (stride == 3 && byte + 1 < ByteCount && text[at + 2] != separator)
        {
            return false;
        }
        if (byte > 0)
        {
            result += ':';
        }
        result += static_cast<char>(std::toupper(static_cast<unsigned char>(text[at])));
        result += static_cast<char>(std::toupper(static_cast<unsigned char>(text[at + 1])));
    }
    colonForm = result;
    return true;
}

} // namespace VantrelNetd
