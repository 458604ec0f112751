// Address family of a socket.
#pragma once

namespace Qib::System::Commons::Net
{

enum class SocketDomain : int
{
    Ipv4 = 1,
};

} // namespace Qib::System::Commons::Net
