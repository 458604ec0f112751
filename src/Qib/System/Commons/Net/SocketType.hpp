// Kind of socket: stream or datagram.
#pragma once

namespace Qib::System::Commons::Net
{

enum class SocketType : int
{
    Stream = 1,
    Datagram = 2,
};

} // namespace Qib::System::Commons::Net
