// Whether a socket's receive waits for data.
#pragma once

namespace Qib::System::Commons::Net
{

enum class SocketBlockingMode : int
{
    Blocking = 1,
    NonBlocking = 2,
};

} // namespace Qib::System::Commons::Net
