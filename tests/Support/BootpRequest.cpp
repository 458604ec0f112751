#include "BootpRequest.hpp"

#include <algorithm>
#include <string>

namespace VantrelTest
{

Bytes MakeRequest(std::uint32_t xid, const VantrelBase::Net::MacAddress& device, std::size_t size)
{
    Bytes message(300, 0);
    message[0] = 1;
    message[1] = 1;
    message[2] = 6;
    message[3] = 2;
    for (std::size_t i = 0; i < 4; ++i)
    {
        message[4 + i] = static_cast<std::uint8_t>(xid >> (24 - 8 * i));
    }
    message[9] = 5;
    message[10] = 0x80;
    const std::uint8_t giaddr[] = {10, 77, 1, 254};
    std::copy(std::begin(giaddr), std::end(giaddr), message.begin() + 24);
    std::copy(device.bytes.begin(), device.bytes.end(), message.begin() + 28);
    message[40] = 0xC4;
    const std::string sname = "client-sname";
    std::copy(sname.begin(), sname.end(), message.begin() + 44);
    const std::string file = "generic";
    std::copy(file.begin(), file.end(), message.begin() + 108);
    for (std::size_t i = 236; i < 300; ++i)
    {
        message[i] = static_cast<std::uint8_t>(i * 3 + xid);
    }
    message.resize(size);
    return message;
}

std::uint32_t Xid(const Bytes& message)
{
    return (std::uint32_t{message[4]} << 24) | (std::uint32_t{message[5]} << 16) |
           (std::uint32_t{message[6]} << 8) | std::uint32_t{message[7]};
}

} // namespace VantrelTest
